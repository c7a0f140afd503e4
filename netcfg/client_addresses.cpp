// client_addresses.cpp: the address that the LAN side obtained while the device itself is a DHCP client, and the
// address of a client that is known by its MAC.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "apsupport/netcfg.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"

namespace ap {

namespace {

constexpr size_t mac_text_length = 17;

// An entry of the ARP table: address, hardware type, flags, MAC, mask, interface. Those whose flags begin with "0x0"
// are incomplete.
bool is_entry_of(const char *line, const char *mac, char *ip) {
    char address[64], flags[64], entry_mac[64];
    if (std::sscanf(line, "%63s %*s %63s %63s", address, flags, entry_mac) != 3) return false;
    if (std::strncmp(flags, "0x0", 3) == 0 || strncasecmp(entry_mac, mac, mac_text_length) != 0) return false;
    copy_text(ip, address_text_size, address);
    return true;
}

}  // namespace

}  // namespace ap

using namespace ap;

int file_lan_dhcpc_get_ipinfo_and_status(struct ip_info *info) {
    AP_PROD_TRACE();
    if (info == nullptr) return AP_ERROR(table_log_module, "arg is null."), 1;
    const UniqueFile file = open_file("/etc/lan.cfg");
    if (!file) return AP_DEBUG(3, table_log_module, "Failed(%d) to fopen, %s.", errno, std::strerror(errno)), 1;
    int status = 0;
    // NOLINTNEXTLINE(cert-err34-c): anything but a plain 1 is refused
    if (std::fscanf(file.get(), "%d", &status) != 1) return AP_ERROR(table_log_module, "get status is fail."), 1;
    if (status != 1) return AP_ERROR(table_log_module, "status is error."), 1;
    file_get_ip_info_from_ini("/etc/lan.ini", info);
    return 0;
}

int find_ip_in_arpfile(const char *mac, char *ip) {
    AP_PROD_TRACE();
    if (ip == nullptr) return AP_ERROR(table_log_module, "arg is null."), 1;
    copy_text(ip, address_text_size, no_address);
    if (mac == nullptr) return AP_ERROR(table_log_module, "arg is null."), 1;
    const UniquePipe pipe(popen("cat /proc/net/arp", "re"));
    if (!pipe) return AP_ERROR(table_log_module, "popen is fail."), 1;

    char line[256];
    bool is_heading = true;
    while (std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        if (!is_heading && is_entry_of(line, mac, ip)) return 0;
        is_heading = false;
    }
    return 1;
}
