// mac_addresses.cpp: MAC texts: of an interface, of a neighbour in the kernel's ARP table, and out of twelve digits.

#include <cstdio>

#include "applatform/interfaces.h"
#include "apsupport/product.h"
#include "foundation/file_io.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr size_t mac_text_size = 18;  // with the NUL
constexpr int mac_digits = 12;

}  // namespace

}  // namespace ap

int getIfMac(const char *ifname, char *out) {
    unsigned char mac[6] = {};
    if (ifaddrs_get_if_netmac(ifname, mac) != 0) return 1;
    std::snprintf(out, ap::mac_text_size, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return 0;
}

// Returns the number of fields of the last line that was parsed, 3 where the address was found; -1 without the table.
int get_mac_address(const char *ip, char *out) {
    ap::LineReader<256> arp("/proc/net/arp");
    if (!arp) return -1;
    arp.next();  // the heading
    int fields = 0;
    while (arp.next()) {
        char line_ip[256] = {}, mac[256] = {};
        unsigned int flags = 0;
        // NOLINTNEXTLINE(cert-err34-c): the number of fields is the result
        fields = std::sscanf(arp.line(), "%255s %*s %x %255s", line_ip, &flags, mac);
        if (fields != 3 || flags == 0 || std::strcmp(line_ip, ip) != 0) continue;
        ap::copy_text(out, ap::mac_text_size, std::string_view(mac));
        break;
    }
    return fields;
}

int str2mac(const char *text, char *out) {
    if (ap::is_empty(text)) return -1;
    for (int i = 0; i < ap::mac_digits && text[i] != '\0'; ++i) {
        *out++ = text[i];
        if (i % 2 == 1 && i < ap::mac_digits - 2) *out++ = ':';
    }
    *out = '\0';
    return 0;
}
