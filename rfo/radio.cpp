// radio.cpp: finds a band's working interface and reads its channel, and the access point's own LAN MAC.

#include "rfo/radio.h"

#include <algorithm>
#include <cstdio>

#include "applatform/interfaces.h"
#include "apsupport/product.h"
#include "apsupport/wireless.h"

namespace ap {

int ssid_count(int band) { return std::min(common_get_int_rate_type_radio(band, "web_maxbss"), most_ssids); }

void format_radio_ifname(char (&name)[radio_ifname_size], int band, int ssid_index) {
    std::snprintf(name, sizeof name, "wlan%d.%d", get_wlan_index(band), ssid_index);
}

bool find_working_interface(int band, WorkingInterface &working) {
    if (common_get_int_rate_type_radio(band, "enable") == 0) return RFO_ERROR("%d not enable\n", band), false;

    const int count = ssid_count(band);
    int ssid_index = 0;
    while (ssid_index < count && common_get_int_rate_type_bss_by_ssid_idx(band, ssid_index, "bss_enable") == 0)
        ++ssid_index;
    if (ssid_index >= count)
        return RFO_ERROR("%d not enable ssid idx[%d] max_bss[%d]\n", band, ssid_index, count), false;

    working.ssid_index = ssid_index;
    format_radio_ifname(working.name, band, ssid_index);
    return true;
}

bool read_channel_info(const char *ifname, ChannelInfo &info, Caller caller) {
    int words[4] = {};
    if (wifi_get_interface_chaninfo(ifname, words) != 0) return RFO_ERROR_OF(caller, "uwb_get_chan_info err!\n"), false;
    info = {words[0], words[1], words[2], words[3]};
    return true;
}

bool read_lan_mac(unsigned char (&mac)[mac_size], Caller caller) {
    const char *lan = ifaddrs_get_lan_ifname();
    if (lan == nullptr || ifaddrs_get_if_netmac(lan, mac) != 0)
        return RFO_ERROR_OF(caller, "get lan ifname fail\n"), false;
    return true;
}

void format_mac(char (&text)[mac_text_size], const unsigned char (&mac)[mac_size]) {
    std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

}  // namespace ap
