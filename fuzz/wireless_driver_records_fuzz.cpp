// wireless_driver_records_fuzz.cpp: any bytes as what the driver answers: channels, station lists, scan results with
// random counts and texts without terminators. Every list keeps to its array and every text ends in its field.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "applatform/kernel_rules.h"
#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"

static std::vector<uint8_t> answers;
static size_t at;

// The next bytes of the input, over and over; an empty input answers nothing.
static int answer(void *record, size_t size) {
    auto *bytes = static_cast<uint8_t *>(record);
    while (size != 0 && !answers.empty()) {
        const size_t piece = std::min(size, answers.size() - at);
        std::memcpy(bytes, answers.data() + at, piece);
        bytes += piece;
        size -= piece;
        at = (at + piece) % answers.size();
    }
    return 0;
}

static void require(bool holds) {
    if (!holds) std::abort();
}

template <size_t... N> static void require_ends(const char (&...fields)[N]) {
    require(((std::memchr(fields, '\0', N) != nullptr) && ...));
}

static void require_record(const WifiScanResult &r) {
    require_ends(r.ssid, r.encode, r.bssid, r.num_a, r.num_b, r.sideband, r.rssi, r.security);
}

static void require_client(const WifiClientInfo &c) {
    require_ends(c.ifname, c.mac, c.ip, c.stat_a, c.conn_time, c.stat_b, c.noise, c.stat_c, c.stat_text, c.stat_d);
}

extern "C" {
unsigned int sleep(unsigned int) { return 0; }
int uwb_get_osif_name(const char *, char *out) { return std::memcpy(out, "wlan1", 6), 0; }
int uwb_get_chan_info(const char *, void *record) { return answer(record, 24); }
int uwb_get_dfs_radar_status(const char *, void *record) { return answer(record, 16); }
int uwb_get_channel_list(const char *, int, void *list) { return answer(list, 260); }
int uwb_scan(const char *, const void *) { return 0; }
int uwb_get_scanresults(const char *, void *buffer) { return answer(buffer, 124936); }
int uwb_get_sta_info(const char *, int, void *records, int capacity, int *count) {
    answer(count, sizeof *count);
    return answer(records, 80 * static_cast<size_t>(std::max(capacity, 0)));
}
int km_get_online_ip(cJSON *) { return 1; }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool is_quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    require(is_quiet);
    answers.assign(data, data + std::min<size_t>(size, 4096));
    at = 0;
    const auto list = std::make_unique<WifiScanList>();
    require(wifi_interface_get_scan_results("wlan1", list.get()) == 0 && list->count >= 0 && list->count <= 256);
    std::for_each(list->records, list->records + list->count, require_record);
    require(wifi_interface_get_scan_results_by_ssid("wlan1", "any", list.get()) == 0 && list->count <= 256);
    std::for_each(list->records, list->records + list->count, require_record);

    const int room = answers.empty() ? 0 : answers[0] % 66;
    const auto spectrum = std::make_unique<WifiSpectrum[]>(static_cast<size_t>(room));
    const int measured = wifi_interface_get_spectrum("wlan1", spectrum.get(), room);
    require(measured >= 0 && measured <= std::min(room, 64));

    std::vector<WifiClientInfo> clients(static_cast<size_t>(room));
    const int count = wifi_get_client_list("wlan1", clients.data(), room);
    require(count >= 0 && count <= room + 1);
    std::for_each(clients.begin(), clients.begin() + std::min(count, room), require_client);
    int noise = 0;
    wifi_get_noise("wlan1", &noise);
    return 0;
}
