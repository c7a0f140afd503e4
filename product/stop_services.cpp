// stop_services.cpp: stops every service of the device before an upgrade or a reboot, as one sequence of steps.
//
// Some services are stopped twice; the repeated stops belong to the sequence.

#include <cstdio>
#include <span>

#include "applatform/commands.h"
#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "foundation/trace.h"

namespace ap {

namespace {

constexpr const char *before_radio_modules[] = {"steerd", "msgagent", "smartdhcps"};

constexpr const char *common_services[] = {
    "netctrl",    "arprecive", "sta_report",   "ap",          "sntp",           "multiWAN",  "dhcps",     "dhcpcd_wisp",
    "dhcpcd_lan", "dhcpcd_ac", "pppd_wisp",    "dhcpcd_wan1", "pppd_wan1",      "dnrd",      "dnrd-wisp", "miniupnpd",
    "snmpd",      "telnetd",   "wserver",      "hostapd",     "wpa_supplicant", "logserver", "logdebug",  "acbs",
    "steerd",     "dhcpcd",    "wifi_measure", "uhttpd",      "ssdpd",          "ntdd",      "qos",
};

constexpr const char *managed_services[] = {"ac_distinguish", "exetsrv"};  // with "srv.hx4100_manage"
constexpr const char *after_watchdog[] = {"netcheck", "smartdhcps", "user_info", "lldpd"};
constexpr const char *last_services[] = {"msgd", "cfmd"};

constexpr const char *web_update[] = {"yondar", "yondar_ctl", "vantri", "vantri_ctl", "iot_mqtt", "ap"};
constexpr const char *yondar_update[] = {"httpd", "vantri", "vantri_ctl", "iot_mqtt", "ap"};
constexpr const char *vantri_update[] = {"httpd", "yondar", "yondar_ctl", "iot_mqtt"};
constexpr const char *mqtt_update[] = {"httpd", "yondar", "yondar_ctl", "vantri", "vantri_ctl", "ap"};
constexpr std::span<const char *const> services_by_type[] = {web_update, yondar_update, vantri_update, mqtt_update};

void stop_all(std::span<const char *const> services) {
    for (const char *service : services) monitor_stop(service);
}

// Whoever asked for the stop keeps its own services running.
void stop_services_of_type(int type) {
    if (type < 0 || static_cast<size_t>(type) >= std::size(services_by_type)) {
        std::printf("invalid type:%d", type);
        return;
    }
    stop_all(services_by_type[type]);
}

}  // namespace

}  // namespace ap

using namespace ap;

void systool_kill_all_process(int type) {
    AP_PLATFORM_TRACE("common_so");
    stop_all(before_radio_modules);
    doSystemCmd("/sbin/wifi_rmmod.sh");
    stop_all(common_services);
    if (prod_cfm_get_int_val("srv.hx4100_manage") != 0) stop_all(managed_services);
    systool_disable_watchdog();
    doSystemCmd("differ_config disable_wdt");
    stop_all(after_watchdog);
    stop_services_of_type(type);
    doSystemCmd("ifconfig br0 down");
    stop_all(last_services);
}
