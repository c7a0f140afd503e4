// scan_style.cpp: chooses between one scan over all channels and a scan of each channel by itself.
//
// A radio on a radar channel, or one that is 160 MHz wide, is scanned channel by channel.

#include "wireless/scan_style.h"

#include <cstdio>

#include "applatform/wireless_driver.h"

namespace ap {

namespace {

// Radar is asked about only where the name is "wlan1" or "wlan2" or a leading part of these.
bool may_be_on_radar_channel(std::string_view ifname) {
    return std::string_view("wlan1").starts_with(ifname) || std::string_view("wlan2").starts_with(ifname);
}

}  // namespace

ScanStyle choose_scan_style(const char *function, const char *ifname) {
    ChannelRecord current;
    if (driver_failed(uwb_get_chan_info(ifname, current.bytes))) {
        std::printf("%s(%d): %s get channel info error!\n", function, __LINE__, ifname);
        return ScanStyle::unknown;
    }
    const bool is_radar_channel =
        may_be_on_radar_channel(ifname) && wifi_current_chan_is_dfs(ifname, current.channel()) != 0;
    return is_radar_channel || current.bandwidth() == 160 ? ScanStyle::channel_by_channel : ScanStyle::full;
}

}  // namespace ap

int wifi_current_chan_is_dfs(const char *ifname, int channel) {
    ap::RadarRecord record(channel);
    if (ap::driver_failed(uwb_get_dfs_radar_status(ifname, record.bytes))) {
        std::printf("%s(%d) check dfs channel fail \n", __func__, __LINE__);
        return 0;
    }
    return record.is_radar_channel() ? 1 : 0;
}
