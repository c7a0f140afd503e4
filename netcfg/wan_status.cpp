// wan_status.cpp: the connection type of a WAN, its switch port, and its link status from cable, address and daemon.
//
// "/etc/lan_wan_port" holds lines of two words, "wan[NUMBER]" and the number of the switch port.

#include <cstdio>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "applatform/system.h"
#include "apsupport/netcfg.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"

namespace ap {

namespace {

enum LinkStatus { no_cable = 0, not_connected = 1, connecting = 2, connected = 3 };
enum ConnectionType { by_dhcp = 0, by_static_address = 1, by_pppoe = 2 };

constexpr int wans = 4;
bool is_wan(int wan) { return wan >= 1 && wan <= wans; }

int system_wan_ip_get(const char *ifname, char (&ip)[address_text_size], int wan) {
    if (wan == 1) open_file("/etc/ipv6_wan1.ini");  // opened and closed again; what it says is not used
    const UniqueFd socket_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket_fd) return AP_ERROR(network_log_module, "create socket is fail."), -1;
    ifreq request{};
    copy_text(request.ifr_name, ifname);
    if (ioctl(socket_fd.get(), SIOCGIFADDR, &request) != 0)
        return AP_ERROR(network_log_module, "get ip info is fail."), -1;
    sockaddr_in address;
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    copy_text(ip, AddressText(address.sin_addr.s_addr).view());
    return 0;
}

bool runs_for_wan(const char *daemon_name, int wan) {
    char name[64];
    std::snprintf(name, sizeof name, daemon_name, wan);
    return monitor_check_exist(name) != 0;
}

// The state of the daemon that fetches the address; for WAN 1 the IPv6 client counts as well.
LinkStatus daemon_status(const char *function, const char *daemon_name, int wan) {
    const bool runs = runs_for_wan(daemon_name, wan) || (wan == 1 && monitor_check_exist("dhcp6c") != 0);
    prod_debug(function, __LINE__, 2, network_log_module, runs ? "wan is connecting." : "wan is not connected.");
    return runs ? connecting : not_connected;
}

struct ConnectionName {
    std::string_view code;
    ConnectionType type;
    std::string_view name;
};

ConnectionName connection_of_wan1() {
    constexpr ConnectionName by_code[] = {{"0", by_dhcp, "dhcp"}, {"2", by_pppoe, "pppoe"}};
    const ConfigValue code("wan1.connecttype");
    for (const auto &known : by_code)
        if (code.is(known.code)) return known;
    return {{}, by_static_address, "static"};
}

// The mask of a static address is not told here and stays as it was.
void read_static_address(ip_info &info) {
    copy_config("wan1.ip", info.ip);
    copy_config("wan1.gateway", info.gateway);
    copy_config("wan1.dns1", info.dns1);
    copy_config("wan1.dns2", info.dns2);
}

}  // namespace

}  // namespace ap

using namespace ap;

int getWanConnType(int wan) {
    if (!is_wan(wan)) {
        std::printf("[%s %d]:\twan connect type error!\n", __func__, __LINE__);
        return 0;
    }
    ConfigValue type;
    type.read_format("wan%d.connecttype", wan);
    return type.number();
}

int wanid_to_phy_port(int wan) {
    if (!is_wan(wan)) return -1;
    LineReader<64> lines("/etc/lan_wan_port");
    if (!lines) return std::perror("fopen"), -1;
    char label[16];
    std::snprintf(label, sizeof label, "wan[%d]", wan);
    while (lines.next()) {
        char word[64], port[64];
        if (std::sscanf(lines.line(), "%63s %63s", word, port) == 2 && std::strcmp(word, label) == 0)
            return to_int(port);
    }
    return -1;
}

int system_wan_get_link_status(int wan, int conn_type, int sys_mode) {
    if (get_port_link_status(wanid_to_phy_port(wan)) != 1)
        return AP_ERROR(network_log_module, "wan is not wire."), no_cable;
    const char *ifname = ifaddrs_get_wan_ifname(wan, sys_mode, conn_type);
    if (ifname == nullptr) return AP_ERROR(network_log_module, "get wan ifname fail."), no_cable;
    char ip[address_text_size];
    if (system_wan_ip_get(ifname, ip, wan) == 0) return connected;

    switch (conn_type) {
    case by_dhcp:
    case 6: return system_wan_get_link_status_dhcp(wan, conn_type, sys_mode);
    case by_pppoe:
    case 3:
    case 4:
    case 8: return system_wan_get_link_status_ppp(wan, conn_type, sys_mode);
    default: return AP_ERROR(network_log_module, "wan is not connected."), not_connected;
    }
}

int system_wan_get_link_status_dhcp(int wan, int, int) { return daemon_status(__func__, "dhcpcd_wan%d", wan); }

int system_wan_get_link_status_ppp(int wan, int, int) { return daemon_status(__func__, "pppd_wan%d", wan); }

int sysytem_get_route_wan_info(int wan, char *type_name, struct ip_info *info) {
    if (type_name == nullptr || info == nullptr) return 1;
    const ConnectionName connection = connection_of_wan1();
    copy_text(type_name, connection.name.size() + 1, connection.name);
    const int status = system_wan_get_link_status(wan, connection.type, get_sys_mode());
    if (status == not_connected) return status;
    if (connection.type == by_static_address)
        read_static_address(*info);
    else
        file_wan_ip_info_get(wan, info);
    return status;
}
