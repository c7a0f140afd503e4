// wan.cpp: `apctl wan status`: the cable, daemon and address state of each WAN.

#include <algorithm>
#include <cstdio>

#include "apsupport/netcfg.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl wan status [--json]\n\n"
    "Lists the WANs (\"wans.flag\" of them, at most 4): connection type, switch port, interface, link status\n"
    "and the addresses that the connection has, or that a static one is configured with.\n";

constexpr int most_wans = 4, static_address = 1;

struct WanState {
    int number, type, port;
    std::string ifname, status;
    ip_info addresses;
};

std::string type_name(int type) {
    constexpr const char *names[] = {"DHCP", "static", "PPPoE"};
    return type >= 0 && type < 3 ? names[type] : "type " + std::to_string(type);
}

void read_configured(int wan, ip_info &info) {
    const auto copy = [wan](const char *name, char(&field)[16]) {
        ap::copy_config(("wan" + std::to_string(wan) + "." + name).c_str(), field);
    };
    copy("ip", info.ip);
    copy("mask", info.mask);
    copy("gateway", info.gateway);
    copy("dns1", info.dns1);
    copy("dns2", info.dns2);
}

WanState state_of(int wan) {
    constexpr const char *statuses[] = {"no cable", "not connected", "connecting", "connected"};
    WanState state{wan, getWanConnType(wan), wanid_to_phy_port(wan), "", "", {}};
    const char *ifname = ifaddrs_get_wan_ifname(wan, get_sys_mode(), state.type);
    if (ifname != nullptr) state.ifname = ifname;
    state.status = statuses[system_wan_get_link_status(wan, state.type, get_sys_mode())];
    if (state.type == static_address)
        read_configured(wan, state.addresses);
    else
        file_wan_ip_info_get(wan, &state.addresses);
    return state;
}

void print_states(const std::vector<WanState> &states) {
    std::vector<std::vector<std::string>> rows = {
        {"WAN", "TYPE", "PORT", "INTERFACE", "STATUS", "ADDRESS", "MASK", "GATEWAY", "DNS"}};
    for (const auto &s : states) {
        const ip_info &info = s.addresses;
        rows.push_back({std::to_string(s.number), type_name(s.type), s.port < 0 ? "-" : std::to_string(s.port),
                        s.ifname.empty() ? "-" : s.ifname, s.status, info.ip, info.mask, info.gateway,
                        std::string(info.dns1) + " " + info.dns2});
    }
    print_table(rows);
}

void print_states_json(const std::vector<WanState> &states) {
    const ap::UniqueJson json(cJSON_CreateArray());
    for (const auto &s : states) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddNumberToObject(item, "wan", s.number);
        add_text(item, "type", type_name(s.type));
        cJSON_AddNumberToObject(item, "port", s.port);
        add_text(item, "interface", s.ifname);
        add_text(item, "status", s.status);
        add_text(item, "ip", s.addresses.ip);
        add_text(item, "mask", s.addresses.mask);
        add_text(item, "gateway", s.addresses.gateway);
        add_text(item, "dns1", s.addresses.dns1);
        add_text(item, "dns2", s.addresses.dns2);
        cJSON_AddItemToArray(json.get(), item);
    }
    print_json(json.get());
}

int run_wan(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (words.size() != 1 || words[0] != "status") return usage_error("wan", "the only action is status");
    std::vector<WanState> states;
    LibraryLines lines;
    const int count = std::clamp(ap::config_number("wans.flag"), 1, most_wans);
    for (int wan = 1; wan <= count; ++wan) states.push_back(state_of(wan));
    lines.restore();
    json ? print_states_json(states) : print_states(states);
    return exit_ok;
}

const Verb verb{"wan", "state of the WANs", help, run_wan};

}  // namespace
