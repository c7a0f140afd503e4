// survey.cpp: the full site survey and the spectrum, in one scan or channel by channel, and the two scans they are made
// of.
//
// A survey holds its caller for 5 seconds, or for 3 seconds a channel. It allocates two driver buffers and frees them.

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "wireless/scan_records.h"
#include "wireless/scan_style.h"

namespace ap {

namespace {

// The survey that both exported functions share. `function` is the name under which it reports failures.
class Survey {
public:
    Survey(const char *function, const char *ifname) : function_(function), ifname_(ifname) {}

    // True when `results()` holds what was found.
    bool run() {
        const ScanStyle style = choose_scan_style(function_, ifname_);
        if (style == ScanStyle::unknown) return false;
        if (!buffer_ || !channel_buffer_) {
            std::printf("%s(%d) malloc failed!\n", function_, __LINE__);
            return false;
        }
        if (driver_failed(uwb_get_channel_list(ifname_, 0, channels_.bytes))) {
            std::printf("%s(%d): %s get channel list fail \n", function_, __LINE__, ifname_);
            return false;
        }
        return style == ScanStyle::full ? scan_all() : scan_each();
    }
    ScanBuffer results() const { return ScanBuffer(buffer_.get()); }

private:
    // The failure line names no interface.
    bool scan_all() {
        if (wifi_get_spectrum_scan(ifname_, buffer_.get(), 0) != 0) {
            std::printf("%s(%d): %s channel spectrum scan fail \n", function_, __LINE__, "");
            return false;
        }
        ScanBuffer all = results();
        if (all.channel_count() == 0) all.set_channel_count(channels_.count());
        return true;
    }

    bool scan_each() {
        ScanBuffer all = results(), one(channel_buffer_.get());
        all.set_channel_count(channels_.count());
        int total = 0;
        for (int i = 0; i < channels_.count(); ++i) {
            if (wifi_get_dfs_spectrum_scan(ifname_, channel_buffer_.get(), channels_.channel(i), 0) != 0) {
                std::printf("%s(%d): %s dfs channel spectrum scan fail \n", function_, __LINE__, ifname_);
                return false;
            }
            std::memcpy(all.channel_record(i), one.channel_record(0), ScanBuffer::channel_record_size);
            const int before = total;
            total += one.entry_count();
            if (total < ScanBuffer::entry_capacity) all.append_entries(before, one);
        }
        all.set_entry_count(total);
        return true;
    }

    const char *function_, *ifname_;
    HeapPtr<void> buffer_ = new_scan_buffer(), channel_buffer_ = new_scan_buffer();
    ChannelList channels_;
};

}  // namespace

}  // namespace ap

int wifi_get_spectrum_scan(const char *ifname, void *buffer, int) {
    const ap::ScanRequest request;
    if (ap::driver_failed(uwb_scan(ifname, request.bytes))) {
        std::printf("%s(%d): %s channel get scan faild!\n", __func__, __LINE__, ifname);
        return -1;
    }
    sleep(5);
    ap::ScanBuffer(buffer).clear();
    if (ap::driver_failed(uwb_get_scanresults(ifname, buffer))) {
        std::printf("%s(%d): %s channel get scanresult faild!\n", __func__, __LINE__, ifname);
        return -1;
    }
    return 0;
}

int wifi_get_dfs_spectrum_scan(const char *ifname, void *buffer, int channel, int) {
    ap::ScanBuffer results(buffer);
    results.clear();
    const ap::ScanRequest request = ap::ScanRequest::of_channel(channel);
    if (ap::driver_failed(uwb_scan(ifname, request.bytes))) {
        std::printf("%s(%d): %s channel get scan faild!\n", __func__, __LINE__, ifname);
        return -1;
    }
    sleep(3);
    results.set_single_channel(channel);
    if (ap::driver_failed(uwb_get_scanresults(ifname, buffer))) {
        std::printf("%s(%d): %s channel get scanresult faild!\n", __func__, __LINE__, ifname);
        return -1;
    }
    return 0;
}

int wifi_interface_get_scanresults_by_ugw(const char *ifname, WifiScanList *out) {
    const auto buffer = ap::new_scan_buffer();
    if (!buffer) {
        std::printf("%s[%d]: Failed to malloc!\n", __func__, __LINE__);
        return -1;
    }
    if (ap::driver_failed(uwb_get_scanresults(ifname, buffer.get()))) {
        std::printf("%s[%d] %s uwb_get_scanresults error!\n", __func__, __LINE__, ifname);
        return -1;
    }
    ap::convert_scan_results(ap::ScanBuffer(buffer.get()), *out);
    return 0;
}

int wifi_interface_get_scan_results_by_ugw(const char *ifname, WifiScanList *out) {
    if (ifname == nullptr || out == nullptr) return -1;
    ap::Survey survey(__func__, ifname);
    if (!survey.run()) return -1;
    ap::convert_scan_results(survey.results(), *out);
    return 0;
}

int wifi_interface_get_spectrum_by_ugw(const char *ifname, WifiSpectrum *out, int max) {
    if (ifname == nullptr || out == nullptr) return -1;
    ap::Survey survey(__func__, ifname);
    if (!survey.run()) return -1;
    const ap::ScanBuffer results = survey.results();
    const int count = std::clamp(max, 0, results.channel_count());
    for (int i = 0; i < count; ++i)
        out[i] = {results.channel_word(i, 0), results.channel_word(i, 1), results.channel_word(i, 3)};
    return count;
}
