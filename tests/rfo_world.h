// rfo_world.h: one scripted access point for the tests of the radio optimiser: its configuration, its radios, its
// driver's neighbour file and its bus. Include it in one source of a test program.
#pragma once

// NOLINTBEGIN(misc-definitions-in-headers): included in one source of a program

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "applatform/interfaces.h"
#include "applatform/message_bus.h"
#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

namespace test {

inline constexpr char lines_file[] = "/proc/kv_wlan/private_ie/private_ie_98";
inline constexpr char measure_file[] = "/etc/wm_config/all_chan_measure.json";

struct Radio {
    int enable = 1, channel = 6, bandwidth_mhz = 20, extension = 0, clients = 0;
    bool answers = true, up = true;
    std::string nettype = "bgn";
    uint64_t received = 0, sent = 0;
    std::vector<std::pair<std::string, std::string>> heard;  // BSSID and signal of each scan entry
};

struct RfoWorld {
    std::map<int, Radio> radios = {{24, Radio{}}, {5, Radio{1, 36, 80, 40, 0, true, true, "an+ac", 0, 0, {}}}};
    std::map<std::string, int> ints = {
        {"24.web_maxbss", 2}, {"5.web_maxbss", 2}, {"24.0.bss_enable", 1}, {"5.1.bss_enable", 1}};
    std::vector<std::string> calls;    // what reached the driver, the bus and the store, in order
    std::map<std::string, int> fails;  // how often a call is still to fail
    std::string neighbour_lines, measurement;
    std::function<void()> on_scan = [] {};
    bool acbs_runs = false, has_lan_mac = true;
    void (*timer_handler)(void *) = nullptr;
    std::vector<void *> timer_arguments;
    int scans = 0, timer_result = 0;

    void note(const std::string &call) {
        const std::lock_guard guard(mutex);
        calls.push_back(call);
    }
    bool is_to_fail(const std::string &call) {
        const std::lock_guard guard(mutex);
        const auto found = fails.find(call);
        return found != fails.end() && found->second-- > 0;
    }
    std::mutex mutex;
};

inline std::unique_ptr<RfoWorld> world;

inline int band_of(const char *ifname) { return std::strncmp(ifname, "wlan0", 5) == 0 ? 24 : 5; }
inline Radio &radio_named(const char *ifname) { return world->radios[band_of(ifname)]; }

}  // namespace test

extern "C" {
const char *ifaddrs_get_lan_ifname(void) { return "br0"; }
int ifaddrs_get_if_netmac(const char *ifname, unsigned char mac[6]) {
    if (std::strcmp(ifname, "br0") == 0 && !test::world->has_lan_mac) return -1;
    const unsigned char last = std::strcmp(ifname, "br0") == 0 ? 1 : test::band_of(ifname) == 24 ? 2 : 3;
    const unsigned char bytes[6] = {2, 0, 0, 0, 0, last};
    return std::memcpy(mac, bytes, 6), 0;
}
int get_wlan_index(int band) { return band == 24 ? 0 : 1; }
int common_get_int_rate_type_radio(int band, const char *name) {
    if (std::strcmp(name, "enable") == 0) return test::world->radios[band].enable;
    return test::world->ints[std::to_string(band) + "." + name];
}
int common_get_int_rate_type_bss_by_ssid_idx(int band, int index, const char *name) {
    return test::world->ints[std::to_string(band) + "." + std::to_string(index) + "." + name];
}
int common_get_value_rate_type_bss_by_ssid_idx(int band, int, const char *, char *out) {
    return std::strcpy(out, band == 24 ? "two" : "five"), 1;
}
int common_get_rate_type_radio_value(int band, const char *, char *out) {
    return std::strcpy(out, test::world->radios[band].nettype.c_str()), 1;
}
int common_set_int_rate_type_radio_value(int band, const char *name, int value) {
    test::world->note("set " + std::to_string(band) + "." + name + "=" + std::to_string(value));
    return test::world->ints[std::to_string(band) + "." + name] = value, 1;
}
int wifi_get_interface_chaninfo(const char *ifname, int out[4]) {
    const auto &radio = test::radio_named(ifname);
    if (!radio.answers) return -1;
    const int words[4] = {1, radio.channel, radio.bandwidth_mhz, radio.extension};
    return std::memcpy(out, words, sizeof words), 0;
}
int wifi_interface_switch_chan(const char *ifname, const int request[2]) {
    test::world->note(std::string("switch ") + ifname + " " + std::to_string(request[0]) + "/" +
                      std::to_string(request[1]));
    return 0;
}
int wifi_interface_set_txpower(const char *ifname, const unsigned char request[2]) {
    test::world->note(std::string("power ") + ifname + " " + std::to_string(request[0]) + "," +
                      std::to_string(request[1]));
    return 0;
}
int wifi_check_interface_downup(const char *ifname) { return test::radio_named(ifname).up ? 1 : 0; }
int wifi_get_osifname(const char *ifname, char *out) {
    return std::strcpy(out, (std::string("os_") + ifname).c_str()), 0;
}
int wifi_get_interface_client_list(const char *ifname, WifiClientInfo *, int) {
    return test::radio_named(ifname).clients;
}
int sys_get_if_statistics(const char *ifname, void *record) {
    const uint64_t words[4] = {test::radio_named(ifname).received, 0, test::radio_named(ifname).sent, 0};
    return std::memcpy(record, words, sizeof words), 0;
}
int wifi_interface_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out) {
    ++test::world->scans;
    if (ssid != nullptr || test::world->is_to_fail("scan")) return -1;
    test::world->on_scan();
    const auto &heard = test::radio_named(ifname).heard;
    out->count = static_cast<int32_t>(heard.size());
    for (size_t i = 0; i < heard.size(); ++i) {
        std::strcpy(out->records[i].bssid, heard[i].first.c_str());
        std::strcpy(out->records[i].rssi, heard[i].second.c_str());
    }
    test::write_text(test::lines_file, test::world->neighbour_lines);
    return 0;
}
int wifi_interface_destory_private_ie(int port) { return test::world->note("destroy " + std::to_string(port)), 0; }
int wifi_interface_disable_private_ie(void) { return test::world->note("disable"), 0; }
int wifi_interface_enable_private_ie(void) {
    return test::world->note("enable"), test::world->is_to_fail("enable") ? -1 : 0;
}
int wifi_interface_create_private_ie(const WifiPrivateIe *d) {
    test::world->note("create " + std::to_string(d->port) + " type " + std::to_string(d->type) + " " + d->interfaces +
                      " " + std::to_string(d->one) + " " + std::to_string(d->max_length) + " [" + d->payload_name +
                      "]");
    return test::world->is_to_fail("create " + std::to_string(d->port)) ? -1 : 0;
}
int get_prefix_radio_by_type(int band, char *out, int size) {
    if (test::world->is_to_fail("prefix")) return -1;
    return std::snprintf(out, static_cast<size_t>(size), "wl%d.", band), 0;
}
int get_web_curpower(const char *prefix) { return std::strcmp(prefix, "wl24.") == 0 ? 20 : 23; }
int get_web_minpower(const char *prefix) { return std::strcmp(prefix, "wl24.") == 0 ? 8 : 9; }
int get_web_maxpower(const char *prefix) { return std::strcmp(prefix, "wl24.") == 0 ? 26 : 300; }
int holymsg_publish(const char *topic, const void *data, unsigned int length) {
    test::world->note(std::string("publish ") + topic + (data == nullptr && length == 0 ? "" : " with data"));
    if (std::strstr(topic, "wifi_measure") != nullptr && !test::world->measurement.empty())
        test::write_text(test::measure_file, test::world->measurement);
    return 0;
}
int holymsg_set_timeout(double seconds, void (*handler)(void *), void *argument) {
    test::world->note("timer " + std::to_string(static_cast<int>(seconds)));
    test::world->timer_handler = handler;
    test::world->timer_arguments.push_back(argument);
    return test::world->timer_result;
}
int proc_check_app(const char *) { return test::world->acbs_runs ? 1 : 0; }
}

namespace test {

inline std::string line_of(const std::string &identity, const std::string &mac_24g, const std::string &mac_5g) {
    return identity + "nbAP:MAC2G=" + mac_24g + ";SSID2G=a;CH2G=6;MAC5G=" + mac_5g + ";SSID5G=b;CH5G=36;\n";
}

// The records that callbacks got.
inline std::vector<std::string> records;
inline std::mutex records_mutex;
inline void keep_record(const void *record, int length) {
    const std::lock_guard guard(records_mutex);
    records.emplace_back(static_cast<const char *>(record), static_cast<size_t>(length));
}

// Workers that the library let go of, kept so that a test can wait for their end.
inline std::vector<pthread_t> workers;
inline std::mutex workers_mutex;

inline void wait_for_worker() {
    const std::lock_guard guard(workers_mutex);
    for (const pthread_t worker : workers) pthread_join(worker, nullptr);
    workers.clear();
}

class RfoTest : public testing::Test {
protected:
    void SetUp() override {
        world = std::make_unique<RfoWorld>();
        store = {};
        commands.clear();
        records.clear();
        std::memset(g_before_cfg, 0, sizeof g_before_cfg);
        write_text(lines_file, "");
        unlink(measure_file);
        write_text("/etc/wm_config/.keep", "");
    }
    FakeClock clock;
};

}  // namespace test

extern "C" int pthread_detach(pthread_t thread) noexcept {
    const std::lock_guard guard(test::workers_mutex);
    test::workers.push_back(thread);
    return 0;
}
// NOLINTEND(misc-definitions-in-headers)
