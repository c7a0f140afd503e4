// radio.h: the interface through which the optimiser works with a band's radio.
#pragma once

#include <cstddef>

#include "rfo/log.h"

namespace ap {

inline constexpr size_t radio_ifname_size = 32;
inline constexpr size_t mac_size = 6;
inline constexpr size_t mac_text_size = 18;

struct WorkingInterface {
    char name[radio_ifname_size];  // "wlan%d.%d": radio index, SSID index
    int ssid_index;
};

// What `wifi_get_interface_chaninfo` fills.
struct ChannelInfo {
    int state, channel, bandwidth_mhz, extension;
};

// The SSIDs that a radio may have; what is configured beyond any radio's room is cut.
inline constexpr int most_ssids = 64;
int ssid_count(int band);

void format_radio_ifname(char (&name)[radio_ifname_size], int band, int ssid_index);

// The band's first enabled SSID; false, after a line in the log, when there is none.
bool find_working_interface(int band, WorkingInterface &working);

// False, after a line in the log, when the driver does not answer.
bool read_channel_info(const char *ifname, ChannelInfo &info, Caller caller = Caller::here());

// The LAN interface's MAC; false, after a line in the log, when it cannot be read.
bool read_lan_mac(unsigned char (&mac)[mac_size], Caller caller = Caller::here());
void format_mac(char (&text)[mac_text_size], const unsigned char (&mac)[mac_size]);

}  // namespace ap
