// lan_change.cpp: moves every stored rule that names a host of the LAN when the LAN's address changes.
//
// The caller moves the DHCP pools (dhcp_pools.cpp), commits the store and tells the services; nothing of that is done
// here. Functions of one thread at a time: the store serialises processes, but a rule is read, moved and written in
// three steps.

#include <cstdio>
#include <cstring>

#include "apsupport/netcfg.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"
#include "netcfg/rule_lists.h"

namespace ap {

namespace {

void check_lanip_change_sync_dmz(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    const NetworkMove network{new_ip, new_mask, old_mask};
    const int wans = stored_count("wans.flag");
    for (int wan = 1; wan <= wans; ++wan) {
        char key[config_key_size];
        std::snprintf(key, sizeof key, "wan%d.dmzip", wan);
        in_addr_t host = 0;
        if (!read_address(ConfigValue(key).c_str(), host)) continue;

        const in_addr_t moved = network.moved(host);
        SetValue(key, AddressText(moved).c_str());
        if (!network.is_outside(moved) && moved != new_ip) continue;
        std::snprintf(key, sizeof key, "wan%d.dmzen", wan);
        SetValue(key, "0");
    }
}

void check_lanip_change_sync_lan_control(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    const NetworkMove network{new_ip, new_mask, old_mask};
    ConfigValue manager;
    if (!manager.read("lan.webip")) return AP_PLATFORM_LOG(2, platform_log_module, "get mib cfg is fail.");
    in_addr_t host = 0;
    if (manager.is(no_address) || !read_address(manager.c_str(), host)) return;

    const in_addr_t moved = network.moved(host);
    SetValue("lan.webip", AddressText(moved).c_str());
    if (network.is_outside(moved)) SetValue("lan.webipen", "0");
}

// While the guest network is served, rule 1 belongs to it and stays.
void move_bandwidth_rules(const NetworkMove &network, const char *function, int line) {
    const bool guest_rule = config_number("bandwidth.gst.en") != 0 && stored_count(bandwidth_rules.count_key) >= 1;
    if (guest_rule) std::printf("%s[%d] skip qos rule for wifi Guest\n", function, line);
    move_list(bandwidth_rules, network, guest_rule ? 2 : 1);
}

void check_lanip_change_sync_qos_list(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    move_bandwidth_rules({new_ip, new_mask, old_mask}, __func__, __LINE__);
}

void check_lanip_change_sync_virtual(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    move_list(virtual_servers, {new_ip, new_mask, old_mask});
}

void check_lanip_change_sync_nat(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    move_list(source_nat, {new_ip, new_mask, old_mask});
}

void check_lanip_change_sync_logserver(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    move_list(log_servers, {new_ip, new_mask, old_mask});
}

void check_lanip_change_sync_ipmac_bind(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    move_list(host_bindings, {new_ip, new_mask, old_mask});
}

// In the order in which a change runs them.
constexpr void (*rule_syncs[])(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_mask) = {
    check_lanip_change_sync_dmz,        check_lanip_change_sync_lan_control, check_lanip_change_sync_qos_list,
    check_lanip_change_sync_virtual,    check_lanip_change_sync_nat,         check_lanip_change_sync_logserver,
    check_lanip_change_sync_ipmac_bind,
};

// Reads the change; false, with a line in the log, when an argument is missing or no address.
bool read_move(const char *function, const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask,
               NetworkMove &network) {
    if (new_ip == nullptr || new_mask == nullptr || old_ip == nullptr || old_mask == nullptr) {
        log_debug_print(function, __LINE__, 2, platform_log_module, "arg is null.");
        return false;
    }
    if (read_address(new_ip, network.new_ip) && read_address(new_mask, network.new_mask) &&
        read_address(old_mask, network.old_mask))
        return true;
    log_debug_print(function, __LINE__, 2, platform_log_module, "no address: %s/%s, old mask %s", new_ip, new_mask,
                    old_mask);
    return false;
}

}  // namespace

}  // namespace ap

using namespace ap;

// A change of the mask alone moves no rule.
void check_change_lanip_handle(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    NetworkMove network{};
    if (!read_move(__func__, new_ip, new_mask, old_ip, old_mask, network)) return;
    if (std::strncmp(new_ip, old_ip, address_text_size) == 0) return;
    for (const auto sync : rule_syncs) sync(network.new_ip, network.new_mask, network.old_mask);
}

void sys_change_lanip(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    sys_change_lanip_logserver(new_ip, new_mask, old_ip, old_mask);
    sys_change_lanip_qos(new_ip, new_mask, old_ip, old_mask);
}

void sys_change_lanip_logserver(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    NetworkMove network{};
    if (!read_move(__func__, new_ip, new_mask, old_ip, old_mask, network) || std::strcmp(new_ip, old_ip) == 0) return;
    move_list(log_servers, network);
}

void sys_change_lanip_qos(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask) {
    AP_PLATFORM_TRACE(platform_log_module);
    NetworkMove network{};
    if (!read_move(__func__, new_ip, new_mask, old_ip, old_mask, network) || std::strcmp(new_ip, old_ip) == 0) return;
    move_bandwidth_rules(network, __func__, __LINE__);
}
