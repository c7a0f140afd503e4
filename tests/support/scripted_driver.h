// scripted_driver.h: a wireless driver that answers as it is told and notes what it was asked, in order, as one line of
// text. Include it in one source of a test program; `sleep` then only adds to the line.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "applatform/wireless_driver.h"
#include "foundation/byte_order.h"

namespace test {

using WordsAt = std::map<size_t, uint32_t>;  // words of a record by their position in bytes

struct Station {
    uint8_t last_mac_byte = 0;
    WordsAt words = {};
    std::string text = {};
};

struct HeardEntry {
    std::string ssid, encoding = "utf-8";
    WordsAt words = {};
    int16_t rssi = -50;
};

struct ScriptedDriver {
    int result = 0;                                   // of every call that is not told to fail
    std::map<std::string, std::vector<int>> failing;  // call: the times, from 1, at which it answers -1
    int status = 0;                                   // of an interface; 0: up
    int channel = 6, bandwidth = 20;
    bool is_radar_channel = false;
    std::vector<int> channels = {36, 52, 100};
    std::map<std::string, std::vector<Station>> stations;  // by interface
    int extra_stations = 0;                                // that the count claims beyond the records
    std::map<int, std::vector<HeardEntry>> entries;        // by scanned channel; 0: by a scan of all
    int claimed_entries = -1;                              // by a scan of all; -1: as many as there are
    std::string log, ssid;
    std::vector<uint8_t> request;  // the last one
    std::map<std::string, int> times;
    int scanned = 0;

    int answer(const std::string &call, const std::string &note = "") {
        log += call + note + " ";
        const auto &times_failing = failing[call];
        return std::ranges::find(times_failing, ++times[call]) != times_failing.end() ? -1 : result;
    }
    int take(const char *call, const void *bytes, size_t size) {
        const auto *begin = static_cast<const uint8_t *>(bytes);
        request.assign(begin, begin + size);
        return answer(call);
    }
};
inline ScriptedDriver driver;

inline void store_words(uint8_t *record, const WordsAt &words) {
    for (const auto &[position, word] : words) ap::store_le(record + position, word);
}

inline void write_entry(uint8_t *bytes, const HeardEntry &entry) {
    std::copy_n(entry.ssid.begin(), std::min<size_t>(entry.ssid.size(), 48), bytes);
    std::copy_n(entry.encoding.begin(), std::min<size_t>(entry.encoding.size(), 8), bytes + 49);
    const uint8_t bssid[] = {0, 0x1a, 0xff, 3, 4, 5};
    std::memcpy(bytes + 57, bssid, sizeof bssid);
    store_words(bytes, entry.words);
    ap::store_le(bytes + 476, entry.rssi);
}

inline int write_stations(const std::vector<Station> &stations, void *records, int capacity) {
    const size_t written = std::min(stations.size(), static_cast<size_t>(std::max(capacity, 0)));
    for (size_t i = 0; i < written; ++i) {
        auto *record = static_cast<uint8_t *>(records) + 80 * i;
        const uint8_t mac[6] = {0x0a, 0xbc, 0, 0, 0, stations[i].last_mac_byte};
        std::memcpy(record, mac, 6);
        store_words(record, stations[i].words);
        std::copy_n(stations[i].text.begin(), std::min<size_t>(stations[i].text.size(), 12), record + 48);
    }
    return static_cast<int>(written);
}

// A scan of all fills the records of the channels 200, 201, ...; the words of any record tell the channel scanned, its
// place and their number.
inline void write_channels(uint8_t *bytes) {
    const bool all = driver.scanned == 0;
    const size_t count = all ? driver.channels.size() : 1;
    if (all) ap::store_le(bytes + 4, static_cast<uint32_t>(count));
    for (size_t i = 0; i < std::min<size_t>(count, 64); ++i) {
        uint8_t *record = bytes + 123912 + 16 * i;
        if (all) ap::store_le(record, static_cast<uint32_t>(200 + i));
        for (size_t word = 1; word < 4; ++word)
            ap::store_le(record + 4 * word,
                         static_cast<uint32_t>(10 * (static_cast<size_t>(driver.scanned) + i) + word));
    }
}

}  // namespace test

// NOLINTBEGIN(misc-definitions-in-headers): one source of a test program includes this
extern "C" {
unsigned int sleep(unsigned int seconds) { return test::driver.log += "sleep" + std::to_string(seconds) + " ", 0; }
int uwb_get_osif_name(const char *ifname, char *out) {
    std::strcpy(out, (std::string("os-") + ifname).c_str());
    return test::driver.answer("osif");
}
int uwb_get_extend_info(const char *, void *record) { return ap::store_le(record, -3), test::driver.answer("extend"); }
int uwb_get_sta_info(const char *ifname, int zero, void *records, int capacity, int *count) {
    *count = test::write_stations(test::driver.stations[ifname], records, capacity) + test::driver.extra_stations;
    return test::driver.answer("stations", std::to_string(zero) + "/" + std::to_string(capacity));
}
int uwb_check_dev_status(const char *) { return test::driver.status; }
int uwb_get_chan_info(const char *, void *record) {
    test::store_words(static_cast<uint8_t *>(record), {{4, 101}, {12, 103}, {16, 104}, {20, 105}});
    ap::store_le(record, test::driver.channel);
    ap::store_le(static_cast<uint8_t *>(record) + 8, test::driver.bandwidth);
    return test::driver.answer("info");
}
int uwb_channel_switch(const char *, const void *request) { return test::driver.take("switch", request, 16); }
int uwb_set_txpower(const char *, const void *request) { return test::driver.take("power", request, 12); }
int uwb_get_channel_list(const char *, int, void *list) {
    const auto &channels = test::driver.channels;
    ap::store_le(list, static_cast<int>(channels.size()));
    for (size_t i = 0; i < std::min<size_t>(channels.size(), 64); ++i)
        ap::store_le(static_cast<uint8_t *>(list) + 4 + 4 * i, channels[i]);
    return test::driver.answer("list");
}
int uwb_get_dfs_radar_status(const char *, void *record) {
    ap::store_le(static_cast<uint8_t *>(record) + 12, test::driver.is_radar_channel ? 77 : 0);
    return test::driver.answer("radar", std::to_string(ap::load_le<int>(record)));
}
int uwb_scan(const char *, const void *request) {
    const auto *bytes = static_cast<const uint8_t *>(request);
    const auto *ssid = reinterpret_cast<const char *>(bytes) + 76;
    test::driver.request.assign(bytes, bytes + 160);
    test::driver.scanned = ap::load_le<int>(bytes + 12);
    test::driver.ssid = std::string(ssid, strnlen(ssid, 49));
    return test::driver.answer("scan", std::to_string(test::driver.scanned));
}
int uwb_get_scanresults(const char *, void *buffer) {
    auto *bytes = static_cast<uint8_t *>(buffer);
    const auto &entries = test::driver.entries[test::driver.scanned];
    const bool all = test::driver.scanned == 0;
    const std::string note =
        all ? "" : std::to_string(ap::le32(bytes + 4)) + ":" + std::to_string(ap::le32(bytes + 123912));
    ap::store_le(bytes, all && test::driver.claimed_entries >= 0 ? test::driver.claimed_entries
                                                                 : static_cast<int>(entries.size()));
    for (size_t i = 0; i < std::min<size_t>(entries.size(), 256); ++i)
        test::write_entry(bytes + 8 + 484 * i, entries[i]);
    test::write_channels(bytes);
    return test::driver.answer("results", note);
}
int uwb_private_ie_create_port(const void *request) { return test::driver.take("create", request, 96); }
int uwb_private_ie_destory_port(int port) { return test::driver.answer("destroy", std::to_string(port)); }
int uwb_private_ie_switch(int on) { return test::driver.answer("element", std::to_string(on)); }
}
// NOLINTEND(misc-definitions-in-headers)
