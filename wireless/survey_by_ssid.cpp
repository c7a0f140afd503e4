// survey_by_ssid.cpp: the site survey that looks for one SSID, or for all when none is given.
//
// Every driver call has one retry. Channel by channel, the survey ends as soon as the result buffer would be full.

#include <cstdio>
#include <unistd.h>

#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "wireless/scan_records.h"
#include "wireless/scan_style.h"

namespace ap {

namespace {

// Calls the driver, and once more after `pause_s` seconds when it failed.
template <typename Call> bool failed_twice(unsigned int pause_s, Call call) {
    if (!driver_failed(call())) return false;
    sleep(pause_s);
    return driver_failed(call());
}

bool wifi_all_channel_scan_by_ssid(const char *ifname, const char *ssid, ScanBuffer results) {
    ScanRequest request;
    request.set_ssid(ssid);
    if (failed_twice(2, [&] { return uwb_scan(ifname, request.bytes); })) {
        std::printf("%s(%d): %s scan fail\n", __func__, __LINE__, ifname);
        return false;
    }
    sleep(5);
    results.clear();
    if (failed_twice(2, [&] { return uwb_get_scanresults(ifname, results.data()); })) {
        std::printf("%s(%d): %s get_scanresults fail\n", __func__, __LINE__, ifname);
        return false;
    }
    return true;
}

bool wifi_dfs_scan_deal_by_ssid(const char *ifname, const char *ssid, int channel, ScanBuffer results) {
    results.clear();
    results.set_single_channel(channel);
    ScanRequest request = ScanRequest::of_channel(channel);
    request.set_ssid(ssid);
    if (failed_twice(1, [&] { return uwb_scan(ifname, request.bytes); })) {
        std::printf("%s(%d): %s uwb_scan fail \n", __func__, __LINE__, ifname);
        return false;
    }
    sleep(1);
    if (failed_twice(1, [&] { return uwb_get_scanresults(ifname, results.data()); })) {
        std::printf("%s(%d): %s uwb_get_scanresults fail \n", __func__, __LINE__, ifname);
        return false;
    }
    return true;
}

bool wifi_all_dfs_channel_scan_by_ssid(const char *ifname, const char *ssid, ScanBuffer all) {
    ChannelList channels;
    if (driver_failed(uwb_get_channel_list(ifname, 0, channels.bytes))) {
        std::printf("%s(%d): %s get channel list fail \n", __func__, __LINE__, ifname);
        return false;
    }
    const auto buffer = new_scan_buffer();
    if (!buffer) {
        std::printf("%s(%d): %s no memory \n", __func__, __LINE__, ifname);
        return false;
    }
    all.set_channel_count(channels.count());
    const ScanBuffer one(buffer.get());
    int total = 0;
    for (int i = 0; i < channels.count(); ++i) {
        if (!wifi_dfs_scan_deal_by_ssid(ifname, ssid, channels.channel(i), one)) return false;
        std::memcpy(all.channel_record(i), one.channel_record(0), ScanBuffer::channel_record_size);
        if (total + one.entry_count() >= ScanBuffer::entry_capacity) break;
        all.append_entries(total, one);
        total += one.entry_count();
    }
    all.set_entry_count(total);
    return true;
}

}  // namespace

}  // namespace ap

int wifi_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out) {
    if (ifname == nullptr || out == nullptr) return -1;
    const ap::ScanStyle style = ap::choose_scan_style(__func__, ifname);
    if (style == ap::ScanStyle::unknown) return -1;
    const auto buffer = ap::new_scan_buffer();
    if (!buffer) {
        std::printf("%s(%d): %s no memory \n", __func__, __LINE__, ifname);
        return -1;
    }
    const ap::ScanBuffer results(buffer.get());
    const bool found = style == ap::ScanStyle::full ? ap::wifi_all_channel_scan_by_ssid(ifname, ssid, results)
                                                    : ap::wifi_all_dfs_channel_scan_by_ssid(ifname, ssid, results);
    if (!found) return -1;
    ap::convert_scan_results(results, *out);
    return 0;
}
