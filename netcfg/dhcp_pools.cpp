// dhcp_pools.cpp: moves a DHCP pool, and with pool 1 the static leases, when the LAN's address or mask changes.
//
// A pool entry is "NUMBER;TEXT;START;END;GATEWAY;MASK;LEASE_TIME;DNS1;DNS2". The keys "dhcps.start", "dhcps.end",
// "dhcps.gw" and "dhcps.dns1" repeat what stands in the pool that was moved last.

#include <cstdio>

#include "apsupport/netcfg.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"
#include "netcfg/rule_lists.h"

namespace ap {

namespace {

struct Pool {
    int number;
    char label[config_value_size];
    char start[address_text_size], end[address_text_size], gateway[address_text_size], mask[address_text_size];
    char lease_time[config_value_size];
    char dns1[address_text_size], dns2[address_text_size];

    in_addr_t start_ip, end_ip;  // of the two texts
};

// False when the entry does not hold nine fields, or no addresses where the range stands.
bool read_pool(const char *entry, Pool &pool) {
    constexpr int pool_fields = 9;
    static_assert(config_value_size == 2307 + 1 && address_text_size == 15 + 1, "the widths of the pattern");
    // NOLINTNEXTLINE(cert-err34-c): the number is written back as it was read
    const int fields = std::sscanf(
        entry, "%d;%2307[^;];%15[0-9.];%15[0-9.];%15[0-9.];%15[0-9.];%2307[^;];%15[0-9.];%15[0-9.]", &pool.number,
        pool.label, pool.start, pool.end, pool.gateway, pool.mask, pool.lease_time, pool.dns1, pool.dns2);
    return fields == pool_fields && read_address(pool.start, pool.start_ip) && read_address(pool.end, pool.end_ip);
}

void store_pool(const char *key, const Pool &pool) {
    char entry[config_value_size];
    const int length =
        std::snprintf(entry, sizeof entry, "%d;%s;%s;%s;%s;%s;%s;%s;%s", pool.number, pool.label, pool.start, pool.end,
                      pool.gateway, pool.mask, pool.lease_time, pool.dns1, pool.dns2);
    if (static_cast<size_t>(length) >= sizeof entry) return;
    SetValue("dhcps.start", pool.start);
    SetValue("dhcps.end", pool.end);
    SetValue("dhcps.gw", pool.gateway);
    SetValue("dhcps.dns1", pool.dns1);
    SetValue(key, entry);
}

// The range and the device's own address, which clients use as gateway and first name server; the range never hands the
// device's address out: an end that is the device's address steps inwards.
void set_range(Pool &pool, in_addr_t new_ip, in_addr_t start, in_addr_t end) {
    const AddressText own(new_ip);
    copy_text(pool.start, AddressText(start == new_ip ? step_address(start, 1) : start).view());
    copy_text(pool.end, AddressText(end == new_ip ? step_address(end, -1) : end).view());
    copy_text(pool.gateway, own.view());
    copy_text(pool.dns1, own.view());
}

// The range keeps its host parts.
void move_range(Pool &pool, in_addr_t new_ip, in_addr_t new_mask) {
    const in_addr_t network = new_ip & new_mask;
    set_range(pool, new_ip, network + (pool.start_ip & ~new_mask), network + (pool.end_ip & ~new_mask));
}

// The range becomes all of the network but its first and its last address.
void fill_network(Pool &pool, in_addr_t new_ip, in_addr_t new_mask) {
    const in_addr_t network = new_ip & new_mask;
    const in_addr_t broadcast = htonl(ntohl(network) + ntohl(~new_mask));
    set_range(pool, new_ip, step_address(network, 1), step_address(broadcast, -1));
    copy_text(pool.mask, AddressText(new_mask).view());
}

}  // namespace

}  // namespace ap

using namespace ap;

void check_lanip_change_sync_dhcps(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_ip, in_addr_t old_mask,
                                   unsigned int pool_number) {
    AP_PLATFORM_TRACE(platform_log_module);
    char key[config_key_size];
    std::snprintf(key, sizeof key, "dhcps.list%u", pool_number);
    Pool pool;
    const bool has_pool = read_pool(ConfigValue(key).c_str(), pool);

    if (new_ip != old_ip) {
        if (has_pool) {
            move_range(pool, new_ip, new_mask);
            store_pool(key, pool);
        }
        if (pool_number == 1) move_list(static_leases, {new_ip, new_mask, old_mask});
    }
    if (new_mask != old_mask && has_pool) {
        fill_network(pool, new_ip, new_mask);
        store_pool(key, pool);
    }
}

void sys_change_lanip_dhcps(const char *new_ip, const char *new_mask, const char *, const char *) {
    AP_PLATFORM_TRACE(platform_log_module);
    if (new_ip == nullptr || new_mask == nullptr) return AP_PLATFORM_LOG(2, platform_log_module, "arg is null.");
    SetValue("dhcps.gw", new_ip);
    SetValue("dhcps.mask", new_mask);
    SetValue("dhcps.dns1", new_ip);
    sys_change_dhcps_cfglist();
}

void sys_change_dhcps_cfglist(void) {
    AP_PLATFORM_TRACE(platform_log_module);
    constexpr const char *keys[] = {"dhcps.en",   "dhcps.start",     "dhcps.end",  "dhcps.gw",
                                    "dhcps.mask", "dhcps.leasetime", "dhcps.dns1", "dhcps.dns2"};
    char entry[config_value_size] = "1";
    size_t length = 1;
    for (const char *key : keys) {
        length += copy_text(entry + length, sizeof entry - length, ";");
        length += copy_text(entry + length, sizeof entry - length, ConfigValue(key).view());
    }
    if (length + 1 == sizeof entry) return AP_PLATFORM_LOG(2, platform_log_module, "the pool's settings are too long.");
    SetValue("dhcps.list1", entry);
    SetValue("dhcps.listnum", "1");
}
