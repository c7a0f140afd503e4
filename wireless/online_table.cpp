// online_table.cpp: which address a station has: the platform's online-client table, a JSON document, and as a fallback
// the kernel's text file of online clients, of which two forms exist. The file is read once for all clients that are
// looked up in it, up to the line with the last of them.

#include "wireless/online_table.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <unistd.h>

#include "applatform/kernel_rules.h"
#include "apsupport/wireless.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr size_t line_size = 1024;

std::string_view member_text(const cJSON *item, const char *name) {
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(item, name));
    return text == nullptr ? std::string_view() : std::string_view(text);
}

void copy_entry(const cJSON *item, OnlineIpEntry &entry) {
    entry = {};
    copy_text(entry.mac, member_text(item, "Mac"));
    copy_text(entry.ip, member_text(item, "Ip"));
}

// One of the two forms of the kernel's file. `parse` leaves what a line lacks as the line before it had it.
struct OnlineFile {
    const char *path;
    int heading_lines;
    void (*parse)(const char *line, char (&ip)[line_size], char (&mac)[line_size]);
};

constexpr OnlineFile online_files[] = {
    {"/proc/net/km_online_ip", 2,
     [](const char *line, char (&ip)[line_size], char (&mac)[line_size]) {
         std::sscanf(line, "%15s %17s %*[^ ]", ip, mac);
     }},
    {"/proc/km/km_online_ip", 3,
     [](const char *line, char (&ip)[line_size], char (&mac)[line_size]) {
         std::sscanf(line, "%1023[^ ] %*[^ ] %1023[^ ] ", ip, mac);
     }},
};
static_assert(line_size == 1023 + 1);

void give_address(const char (&ip)[line_size], std::span<const SoughtClient> clients) {
    char address[16] = {};
    copy_text(address, ip);
    for (const SoughtClient &client : clients) std::memcpy(client.ip, address, sizeof address);
}

// Whoever no line has gets the address of the last line.
void search_online_file(const OnlineFile &file, std::span<SoughtClient> sought) {
    LineReader<line_size> reader(file.path);
    if (!reader) {
        std::printf("can not find %s\n", file.path);
        return;
    }
    for (int i = 0; i < file.heading_lines; ++i) reader.next();
    char ip[line_size] = {}, mac[line_size] = {};
    while (!sought.empty() && reader.next()) {
        file.parse(reader.line(), ip, mac);
        const auto found = std::partition(sought.begin(), sought.end(), [&](const SoughtClient &client) {
            return std::strcmp(client.mac, mac) != 0;
        });
        give_address(ip, {found, sought.end()});
        sought = {sought.begin(), found};
    }
    give_address(ip, sought);
}

}  // namespace

SoughtClient::SoughtClient(const char *client_mac, char *out) : ip(out) {
    char upper[sizeof mac] = {};
    copy_text(upper, {client_mac, strnlen(client_mac, sizeof upper)});
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    unsigned int bytes[6] = {};
    // NOLINTNEXTLINE(cert-err34-c): two digits always fit, and a byte that cannot be read stays 0
    std::sscanf(upper, "%02X:%02X:%02X:%02X:%02X:%02X", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                &bytes[5]);
    std::snprintf(mac, sizeof mac, "%02X-%02X-%02X-%02X-%02X-%02X", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                  bytes[5]);
}

void find_in_online_file(std::span<SoughtClient> sought) {
    if (sought.empty()) return;
    for (const OnlineFile &file : online_files)
        if (access(file.path, F_OK) == 0) return search_online_file(file, sought);
}

}  // namespace ap

int get_client_ip_mac(OnlineIpTable *table) {
    if (table == nullptr) return 1;
    const ap::UniqueJson online_info(cJSON_CreateObject());
    if (!online_info) {
        std::puts("cJSON_CreateObject online_info fail!");
        return 1;
    }
    if (km_get_online_ip(online_info.get()) != 0) return 1;
    const cJSON *list = cJSON_GetObjectItem(online_info.get(), "List");
    if (!cJSON_IsArray(list)) return 1;

    uint32_t count = 0;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        if (count == std::size(table->entries)) break;
        ap::copy_entry(item, table->entries[count++]);
    }
    table->count = count;
    return 0;
}

void get_client_mac_by_ip(const char *ip, char *out) {
    OnlineIpTable table = {};
    if (ip == nullptr || get_client_ip_mac(&table) != 0) return;
    for (const OnlineIpEntry &entry : std::span(table.entries).first(table.count)) {
        if (std::strncmp(entry.ip, ip, sizeof entry.ip) != 0) continue;
        std::memcpy(out, entry.mac, sizeof entry.mac);
        return;
    }
}

void get_ip_by_online_ip(const char *mac, char *out) {
    if (mac == nullptr) return;
    ap::SoughtClient client(mac, out);
    ap::find_in_online_file({&client, 1});
}
