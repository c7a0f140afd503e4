// lan.cpp: `apctl lan`: moves the LAN to another address with every rule that names one of its hosts, looks for
// overlaps of an address with the served subnets, and finds a client by its MAC.

#include <algorithm>
#include <array>
#include <cstdio>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "apsupport/netcfg.h"
#include "foundation/config_value.h"
#include "tools/apctl/network.h"
#include "tools/apctl/store_plan.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl lan move NEW[/MASK] [--dry-run] [--colour] [--json]\n"
    "       apctl lan conflicts ADDRESS/MASK [--json]\n"
    "       apctl lan client MAC\n\n"
    "move       gives the LAN the address NEW and moves every stored rule that names a LAN host, the LAN's DHCP pools\n"
    "           and the static leases with it: hosts keep their number. --dry-run only shows what would change, line "
    "by\n"
    "           line, old and new; without it the changes are stored and committed, all or none. The services\n"
    "           take them at their next start. Only in a device box.\n"
    "           --colour colours the lines also when they do not go to a terminal.\n"
    "conflicts  lists the subnets that the device serves and marks those that overlap; exit status 1 when one does,\n"
    "           with a free address to use instead.\n"
    "client     prints the address of the neighbour with this MAC; exit status 1 when it is not known.\n\n"
    "MASK is a prefix length (24) or dotted (255.255.255.0); move keeps the present one when it is left out.\n";

constexpr int most_subnets = 100, most_pools = 1000;

struct Subnet {
    std::string name;
    Network network;
    bool valid;
};

std::vector<Subnet> served_subnets() {
    constexpr const char *names[] = {"LAN",  "portal",      "guest network", "PPPoE server",
                                     "VLAN", "PPTP server", "L2TP server"};
    std::vector<conflict_record> records(most_subnets);
    records.resize(static_cast<size_t>(check_get_conflict_ip_list(records.data())));
    std::vector<Subnet> subnets;
    for (const auto &record : records) {
        Subnet subnet{names[record.type], {}, false};
        if (record.tag[0] != '\0') subnet.name += std::string(" ") + record.tag;
        subnet.valid = read_network(std::string(record.ip) + "/" + record.mask, subnet.network);
        subnets.push_back(subnet);
    }
    return subnets;
}

// ---- move

bool read_lan(Network &lan) {
    return read_network(std::string(ap::ConfigValue("lan.ip").c_str()) + "/" + ap::ConfigValue("lan.mask").c_str(),
                        lan);
}

// True when the pool hands out addresses of this network; others belong to VLANs.
bool is_pool_of(int pool, const Network &network) {
    const ap::ConfigValue entry(("dhcps.list" + std::to_string(pool)).c_str());
    std::array<std::string_view, 4> fields;  // number, text, start, the rest
    Network start{0, network.mask};
    return ap::split_fields(entry.view(), ';', fields) == fields.size() &&
           read_network(std::string(fields[2]), start) && start.overlaps(network);
}

// What the library changes when the LAN moves, and the LAN's own keys.
std::vector<StorePlan::Change> plan_move(const Network &from, const Network &to) {
    StorePlan plan;
    check_change_lanip_handle(to.ip_text().c_str(), to.mask_text().c_str(), from.ip_text().c_str(),
                              from.mask_text().c_str());
    const int pools = std::min(ap::config_number("dhcps.listnum"), most_pools);
    for (int pool = 1; pool <= pools; ++pool) {
        if (!is_pool_of(pool, from)) continue;
        check_lanip_change_sync_dhcps(htonl(to.ip), htonl(to.mask), htonl(from.ip), htonl(from.mask),
                                      static_cast<unsigned int>(pool));
    }
    prod_cfm_set_val("lan.ip", to.ip_text().c_str());
    prod_cfm_set_val("lan.mask", to.mask_text().c_str());
    return plan.changes();
}

void print_difference(const std::vector<StorePlan::Change> &changes, bool coloured) {
    const char *red = coloured ? "\033[31m" : "", *green = coloured ? "\033[32m" : "",
               *plain = coloured ? "\033[0m" : "";
    for (const auto &change : changes) {
        std::printf("%s\n", change.key.c_str());
        if (change.existed) std::printf("  %s- %s%s\n", red, change.before.c_str(), plain);
        std::printf("  %s+ %s%s\n", green, change.after.c_str(), plain);
    }
}

void print_move_json(const Network &from, const Network &to, const std::vector<StorePlan::Change> &changes,
                     bool committed) {
    const ap::UniqueJson json(cJSON_CreateObject());
    add_text(json.get(), "from", from.text());
    add_text(json.get(), "to", to.text());
    cJSON_AddBoolToObject(json.get(), "committed", committed);
    cJSON *list = cJSON_AddArrayToObject(json.get(), "changes");
    for (const auto &change : changes) {
        cJSON *item = cJSON_CreateObject();
        add_text(item, "key", change.key);
        if (change.existed) add_text(item, "before", change.before);
        add_text(item, "after", change.after);
        cJSON_AddItemToArray(list, item);
    }
    print_json(json.get());
}

// Why the LAN cannot have this address; empty when it can.
std::string obstacle(const Network &to) {
    if (!to.is_host()) return to.text() + " is no address for a device";
    for (const auto &subnet : served_subnets())
        if (subnet.valid && subnet.name != "LAN" && subnet.network.overlaps(to))
            return to.text() + " overlaps the subnet of the " + subnet.name + ", " + subnet.network.text();
    return "";
}

int move(Words words) {
    const bool dry_run = take_flag(words, "--dry-run"), json = take_flag(words, "--json");
    const bool coloured = take_flag(words, "--colour") || isatty(STDOUT_FILENO) != 0;
    if (words.size() != 1) return usage_error("lan", "move takes one address");
    Network from, to;
    if (!read_lan(from))
        return std::fputs("apctl lan: \"lan.ip\" and \"lan.mask\" hold no address\n", stderr), exit_failed;
    to = from;
    if (!read_network(words[0], to)) return usage_error("lan", "\"" + words[0] + "\" is no address");

    LibraryLines lines;
    const std::string fault = obstacle(to);
    const auto changes = fault.empty() ? plan_move(from, to) : std::vector<StorePlan::Change>{};
    const bool done = fault.empty() && (dry_run || apply(changes));
    lines.restore();
    if (!done) {
        std::fprintf(stderr, "apctl lan: %s\n",
                     fault.empty() ? "a write or the commit failed; nothing was changed" : fault.c_str());
        return exit_failed;
    }
    if (json) return print_move_json(from, to, changes, !dry_run), exit_ok;
    print_difference(changes, coloured);
    std::printf("%s -> %s: %zu settings %s\n", from.text().c_str(), to.text().c_str(), changes.size(),
                dry_run ? "would change" : "changed and committed");
    return exit_ok;
}

// ---- conflicts

int conflicts(Words words) {
    const bool json = take_flag(words, "--json");
    Network candidate;
    if (words.size() != 1 || words[0].find('/') == std::string::npos || !read_network(words[0], candidate))
        return usage_error("lan", "conflicts takes one ADDRESS/MASK");

    LibraryLines lines;
    conflict_record conflict{};
    char free_ip[16] = "";
    const bool overlaps =
        check_ip_conflict(candidate.ip_text().c_str(), candidate.mask_text().c_str(), &conflict, free_ip) == 1;
    const auto subnets = served_subnets();
    lines.restore();

    std::vector<std::vector<std::string>> rows = {{"SUBNET", "ADDRESS", "OVERLAPS"}};
    const ap::UniqueJson document(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(document.get(), "subnets");
    for (const auto &subnet : subnets) {
        const bool hit = subnet.valid && subnet.network.overlaps(candidate);
        rows.push_back({subnet.name, subnet.valid ? subnet.network.text() : "(no address)", hit ? "yes" : ""});
        cJSON *item = cJSON_CreateObject();
        add_text(item, "name", subnet.name);
        add_text(item, "network", subnet.valid ? subnet.network.text() : "");
        cJSON_AddBoolToObject(item, "overlaps", hit);
        cJSON_AddItemToArray(list, item);
    }
    cJSON_AddBoolToObject(document.get(), "conflict", overlaps);
    if (overlaps) add_text(document.get(), "free_address", free_ip);
    if (json)
        print_json(document.get());
    else {
        print_table(rows);
        std::printf(
            "%s is %s\n", candidate.text().c_str(),
            overlaps ? (std::string("taken; free is ") + (free_ip[0] == '\0' ? "none that was found" : free_ip)).c_str()
                     : "free");
    }
    return overlaps ? exit_failed : exit_ok;
}

// ---- client

int client(const Words &words) {
    if (words.size() != 1) return usage_error("lan", "client takes one MAC");
    char ip[16];
    LibraryLines lines;
    const bool found = find_ip_in_arpfile(words[0].c_str(), ip) == 0;
    lines.restore();
    if (!found) return std::fprintf(stderr, "apctl lan: no neighbour has the MAC %s\n", words[0].c_str()), exit_failed;
    std::puts(ip);
    return exit_ok;
}

int run_lan(const Words &words) {
    const std::string action = words.empty() ? "" : words[0];
    const Words rest(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (action == "move") return move(rest);
    if (action == "conflicts") return conflicts(rest);
    if (action == "client") return client(rest);
    return usage_error("lan", action.empty() ? "what to do is missing" : "there is no \"" + action + "\"");
}

const Verb verb{"lan", "move the LAN's address, find conflicts, find a client", help, run_lan};

}  // namespace
