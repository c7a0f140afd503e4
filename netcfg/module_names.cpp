// module_names.cpp: the names of the network-control modules, which label the messages about configuration changes.

#include <cstdio>
#include <iterator>

#include "apsupport/netcfg.h"

namespace ap {

namespace {

// By module number; null: the number has no name.
constexpr const char *module_names[] = {
    "DBG",
    "LAN",
    "WAN",
    "DHCP_SERVER",
    "PPPOE_SERVER",
    "ADVANCE",
    "PORT_FILTER",
    "URL_FILTER",
    "WEB_CLASS_FILTER",
    "MAC_FILTER",
    "APP_FILTER",
    "IP_MAC_BIND",
    "PRIVILEGE_IP",
    "IP_GROUP",
    "TIME_GROUP",
    "QOS",
    "SAFE_ATTACK",
    "ONLINE_IP",
    "APP_IDENTIFY",
    "WIFI",
    "VPN_PPTP_SERVER",
    "VPN_L2TP_SERVER",
    "VPN_PPTP_CLIENT",
    "VPN_L2TP_CLIENT",
    "SNTP",
    "PORTAL",
    "IGMP",
    "PORT",
    "ROUTE",
    "ACCOUNT_FILTER",
    "AUTO_QOS",
    "BASE_INFO",
    "SYS_SCHED_REBOOT",
    "ARP_FENCE",
    "DDOS_IP_FENCE",
    "LAN_DHCPC",
    "SNMP",
    "LED_CONTROL",
    "QVLAN",
    "APMNG_SVR",
    "CLOUD_CLIENT",
    "URL_RECORD",
    "USB",
    "SAMBA_SERVER",
    "FTP_SERVER",
    "DLNA_SERVER",
    "IPPD",
    "VPN_IPSEC",
    "CONNECT_LIMIT",
    "WAN_ICMP_DROP",
    "WIFI_CONNECT",
    "PORT_VLAN",
    "TIMER",
    "MONITOR",
    "TC",
    "FASTNAT",
    "AC_MANAGEMENT",
    "DNRD",
    "UPLINK_DETECTION",
    "AUTO_DISCOVER",
    "CAST_FILTER",
    "CLIENT_IDENTIFY",
    "PING_WATCHDOG",
    "SCHED_RESTART_WIFI",
    "URL_AUDIT",
    "IP_FILTER",
    "WIFI_GUEST",
    "DEVICE_LIST",
    "SERVICE",
    "LAN6",
    "POLICY_ROUTE",
    "SUPER_USER",
    "LLDPD",
    nullptr,
    "PPPOE_USERPWD_AUTOSYNCHRO",
    nullptr,
    nullptr,
    "XMESH",
    "VANTRI_CTL",
    "YONDAR_CTL",
    "AC_DISTINGUISH",
    "TYPE_IDENTIFY",
    "IOT_MQTT_CTL",
    "NGROKC",
    "NET_CHECK",
    nullptr,
    nullptr,
    nullptr,
};
static_assert(std::size(module_names) == 88);

}  // namespace

}  // namespace ap

using namespace ap;

const char *netctrl_module_name(unsigned int module) {
    if (module < std::size(module_names) && module_names[module] != nullptr) return module_names[module];
    static char number[21];
    std::snprintf(number, sizeof number, "%d", static_cast<int>(module));
    return number;
}
