// kernel_rules.cpp: what the device's kernel modules keep: the online clients, DNS redirections, the setup wizard's
// rules, and guest isolation.
//
// Rules are kept in "/var/run/kernel_rules.json", readable for people; like the modules' own memory they last until the
// device restarts. One lock guards the file between threads and processes.

#include "applatform/kernel_rules.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sys/stat.h>

#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "platform/host/online_clients.h"
#include "platform/host/safe_file.h"

namespace ap::host {

namespace {

constexpr char rules_file[] = "/var/run/kernel_rules.json", rules_lock[] = "/var/run/kernel_rules.lock";
constexpr char online_folder[] = "/proc/km", online_file[] = "/proc/km/km_online_ip";

pthread_mutex_t rules_mutex = PTHREAD_MUTEX_INITIALIZER;

std::string mac_text(const MacAddress &mac, char separator, const char *byte_format) {
    std::string text;
    for (const uint8_t byte : mac) {
        char digits[3];
        std::snprintf(digits, sizeof digits, byte_format, byte);
        text += text.empty() ? "" : std::string(1, separator);
        text += digits;
    }
    return text;
}

std::vector<const Client *> own_clients(const World &world, AddressPlace place) {
    std::vector<const Client *> clients;
    for (const Client &client : world.scenario().clients)
        if (world.own() != nullptr && client.access_point == world.own()->name && client.address_place == place)
            clients.push_back(&client);
    return clients;
}

bool replace_text(const char *path, const std::string &text) {
    const std::string temporary = std::string(path) + ".new";
    ap::UniqueFd file = ap::open_fd(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    if (!file || !ap::write_full(file.get(), text.data(), text.size())) return false;
    return std::rename(temporary.c_str(), path) == 0;
}

// Reads the rules, lets `change` work on them, and writes them back. 0, or -1 when they could not be kept.
int change_rules(const std::function<bool(cJSON *rules)> &change) {
    const ProcessLock lock(rules_mutex, rules_lock);
    if (!lock) return -1;
    std::string text, error;
    read_whole_file(rules_file, text, error);
    ap::UniqueJson rules(cJSON_Parse(text.c_str()));
    if (!cJSON_IsObject(rules.get())) rules.reset(cJSON_CreateObject());
    if (!rules || !change(rules.get())) return -1;
    const ap::HeapPtr<char> changed(cJSON_Print(rules.get()));
    return changed && replace_text(rules_file, std::string(changed.get()) + "\n") ? 0 : -1;
}

cJSON *member_of(cJSON *parent, const char *name, cJSON *(*create)(void)) {
    cJSON *member = cJSON_GetObjectItem(parent, name);
    if (member != nullptr) return member;
    member = create();
    cJSON_AddItemToObject(parent, name, member);
    return member;
}

void set_member(cJSON *object, const char *name, cJSON *value) {
    cJSON_DeleteItemFromObject(object, name);
    cJSON_AddItemToObject(object, name, value);
}

const char *domain_of(const cJSON *rule) { return cJSON_GetStringValue(cJSON_GetObjectItem(rule, "Domain")); }

// Removes the redirection of a domain; true when there was one.
bool remove_redirection(cJSON *list, const char *domain) {
    for (int i = 0; i < cJSON_GetArraySize(list); ++i) {
        const char *other = domain_of(cJSON_GetArrayItem(list, i));
        if (other == nullptr || std::strcmp(other, domain) != 0) continue;
        cJSON_DeleteItemFromArray(list, i);
        return true;
    }
    return false;
}

int set_wizard_member(const char *name, cJSON *value) {
    return change_rules([&](cJSON *rules) {
        set_member(member_of(rules, "auto_wizards", cJSON_CreateObject), name, value);
        return true;
    });
}

int set_wizard_address(const char *name, const char *ip, const char *mask) {
    if (ip == nullptr) return -1;
    cJSON *address = cJSON_CreateObject();
    cJSON_AddStringToObject(address, "ip", ip);
    cJSON_AddStringToObject(address, "mask", mask == nullptr ? "" : mask);
    return set_wizard_member(name, address);
}

int set_isolation(bool on) {
    return change_rules([&](cJSON *rules) {
        set_member(rules, "interface_isolate", cJSON_CreateBool(on ? 1 : 0));
        return true;
    });
}

}  // namespace

// Three heading lines, then the address, a number, the MAC and a closing column, one blank apart.
void write_online_file(const World &world) {
    if (mkdir(online_folder, 0755) != 0 && errno != EEXIST) return;
    std::string text = "online ip list\n\nIP              TIME MAC\n";
    for (const Client *client : own_clients(world, AddressPlace::file))
        text += client->ip + " 0 " + mac_text(client->mac, '-', "%02X") + " online\n";
    replace_text(online_file, text);
}

}  // namespace ap::host

using namespace ap::host;

int km_get_online_ip(cJSON *object) {
    WorldAccess access;
    if (!access || object == nullptr) return -1;
    if (const Fault *fault = access->meet_fault(__func__, "")) return fault->result;
    write_online_file(*access);
    cJSON *list = cJSON_AddArrayToObject(object, "List");
    for (const Client *client : own_clients(*access, AddressPlace::table)) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "Mac", mac_text(client->mac, ':', "%02X").c_str());
        cJSON_AddStringToObject(item, "Ip", client->ip.c_str());
        cJSON_AddItemToArray(list, item);
    }
    return 0;
}

// A domain has one redirection: a new one replaces it.
int km_dns_redirect_add_rule(cJSON *rule) {
    if (domain_of(rule) == nullptr) return -1;
    return change_rules([&](cJSON *rules) {
        cJSON *list = member_of(rules, "dns_redirect", cJSON_CreateArray);
        remove_redirection(list, domain_of(rule));
        return cJSON_AddItemToArray(list, cJSON_Duplicate(rule, 1)) != 0;
    });
}

int km_dns_redirect_del_rule(cJSON *rule) {
    if (domain_of(rule) == nullptr) return -1;
    return change_rules([&](cJSON *rules) {
        return remove_redirection(member_of(rules, "dns_redirect", cJSON_CreateArray), domain_of(rule));
    });
}

int km_auto_wizards_gw_port(int port) { return set_wizard_member("gateway_port", cJSON_CreateNumber(port)); }
int km_auto_wizards_ip(const char *ip, const char *mask) { return set_wizard_address("address", ip, mask); }
int km_auto_wizards_manage_ip(const char *ip, const char *mask) {
    return set_wizard_address("manage_address", ip, mask);
}
int km_auto_wizards_enable(void) { return set_wizard_member("enabled", cJSON_CreateTrue()); }
int km_auto_wizards_disable(void) { return set_wizard_member("enabled", cJSON_CreateFalse()); }

int km_interface_isolate_enable(void) { return set_isolation(true); }
int km_interface_isolate_disable(void) { return set_isolation(false); }
