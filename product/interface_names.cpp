// interface_names.cpp: names of the device's Ethernet and WAN interfaces, by the platform's numbers.

#include "applatform/interfaces.h"
#include "apsupport/product.h"
#include "foundation/console.h"

namespace ap {

namespace {

constexpr char log_module[] = "common_so";             // of the diagnostic log and of the platform's logger
constexpr int lan_interface = 0, wan_interfaces = 11;  // the WAN interfaces 1 to 4 follow behind
constexpr const char *dial_up_interfaces[] = {"ppp1", "ppp2", "ppp3", "ppp4"};

constexpr int highest_wan = 4, highest_kind = 3, highest_protocol = 8;
constexpr int gateway_kind = 3;

bool is_plain_addressing(int protocol) { return protocol == 0 || protocol == 1; }
bool is_dial_up(int protocol) { return protocol >= 2 && protocol <= 5; }

}  // namespace

}  // namespace ap

const char *get_eth_name(int id) { return iof_eth_name_get(id); }

const char *ifaddrs_get_lan_ifname(void) { return get_eth_name(ap::lan_interface); }

const char *ifaddrs_get_wan_ifname(int wan, int kind, int proto) {
    if (wan < 1 || wan > ap::highest_wan || kind < 1 || kind > ap::highest_kind || proto > ap::highest_protocol) {
        AP_ERROR(ap::log_module, "arg is error.");
        AP_PLATFORM_LOG(2, ap::log_module, "arg is error.");
        return nullptr;
    }
    return kind == ap::gateway_kind ? ifaddrs_get_wan_ifname_gw(wan, proto) : nullptr;
}

const char *ifaddrs_get_wan_ifname_gw(int wan, int proto) {
    if (ap::is_plain_addressing(proto)) return get_eth_name(ap::wan_interfaces + wan);
    if (ap::is_dial_up(proto) && wan >= 1 && wan <= ap::highest_wan) return ap::dial_up_interfaces[wan - 1];
    return nullptr;
}
