// rfo_world.h: one scripted access point for the tests of the radio optimiser: its configuration, its radios, its
// driver's neighbour file and its bus. Include it in one source of a test program.
#pragma once

// NOLINTBEGIN(misc-definitions-in-headers): included in one source of a program

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <string>

#include "applatform/config_store.h"
#include "applatform/interfaces.h"
#include "applatform/message_bus.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "tests/rfo_workers.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"

namespace test {

inline constexpr char lines_file[] = "/proc/kv_wlan/private_ie/private_ie_98";
inline constexpr char measure_file[] = "/etc/wm_config/all_chan_measure.json";
using Words = std::vector<std::string>;

// What the driver knows of a radio.
struct Radio {
    int channel, bandwidth_mhz, extension, clients = 0;
    bool answers = true, up = true;
    uint64_t received = 0, sent = 0;
    std::vector<std::pair<std::string, std::string>> heard = {};  // BSSID and signal of each scan entry
};

// The first SSID of the 2.4 GHz radio is enabled, of the 5 GHz radio the second.
struct RfoWorld {
    std::map<int, Radio> radios = {{24, {6, 20, 0}}, {5, {36, 80, 40}}};
    std::map<std::string, std::string> values = {{"wlan24g.radio_mib_prefix", "r24"},
                                                 {"wlan24g.bss_mib_prefix", "s24_"},
                                                 {"wlan5g.radio_mib_prefix", "r5"},
                                                 {"wlan5g.bss_mib_prefix", "s5_"},
                                                 {"wl5g.wlan_index", "1"},
                                                 {"r24.enable", "1"},
                                                 {"r24.web_maxbss", "2"},
                                                 {"r24.nettype", "bgn"},
                                                 {"s24_0.bss_enable", "1"},
                                                 {"s24_0.bss_ssid", "two"},
                                                 {"r5.enable", "1"},
                                                 {"r5.web_maxbss", "2"},
                                                 {"r5.nettype", "an+ac"},
                                                 {"s5_1.bss_enable", "1"}};
    Words calls;                       // what reached the driver, the bus and the store, in order
    std::map<std::string, int> fails;  // how often something is still to fail
    std::string neighbour_lines, measurement;
    std::function<void()> on_scan = [] {};
    bool acbs_runs = false;
    std::vector<std::pair<void (*)(void *), void *>> timers;
    int scans = 0, commit_result = 1;

    int failing(const std::string &what) {
        const auto found = fails.find(what);
        return found != fails.end() && found->second-- > 0 ? -1 : 0;
    }
    int noted(const std::string &call, const std::string &arguments = "") {
        return calls.push_back(call + arguments), failing(call);
    }
};
inline std::unique_ptr<RfoWorld> world;

inline int band_of(const char *ifname) { return std::strncmp(ifname, "wlan0", 5) == 0 ? 24 : 5; }
inline Radio &radio_named(const char *ifname) { return world->radios[band_of(ifname)]; }
template <typename... T> std::string words(const T &...numbers) { return ((" " + std::to_string(numbers)) + ...); }

}  // namespace test

extern "C" {
int GetValue(const char *key, char *value) {
    const auto found = test::world->values.find(key);
    if (found == test::world->values.end()) return 0;
    return std::strcpy(value, found->second.c_str()), 1;
}
int SetValue(const char *key, const char *value) {
    test::world->values[key] = value;
    return test::world->noted("set ", std::string(key) + "=" + value), 1;
}
int CommitCfm(void) { return test::world->noted("commit"), test::world->commit_result; }
const char *ifaddrs_get_lan_ifname(void) { return "br0"; }
int ifaddrs_get_if_netmac(const char *ifname, unsigned char mac[6]) {
    const bool is_lan = std::strcmp(ifname, "br0") == 0;
    const unsigned char last = is_lan ? 1 : test::band_of(ifname) == 24 ? 2 : 3, bytes[6] = {2, 0, 0, 0, 0, last};
    return is_lan && test::world->failing("LAN MAC") != 0 ? -1 : (std::memcpy(mac, bytes, 6), 0);
}
int wifi_get_interface_chaninfo(const char *ifname, int out[4]) {
    const auto &radio = test::radio_named(ifname);
    const int info[4] = {1, radio.channel, radio.bandwidth_mhz, radio.extension};
    return radio.answers ? (std::memcpy(out, info, sizeof info), 0) : -1;
}
int wifi_interface_switch_chan(const char *ifname, const int request[2]) {
    return test::world->noted("switch ", ifname + test::words(request[0], request[1]));
}
int wifi_interface_set_txpower(const char *ifname, const unsigned char request[2]) {
    return test::world->noted("power ", ifname + test::words(request[0], request[1]));
}
int wifi_check_interface_downup(const char *ifname) { return test::radio_named(ifname).up ? 1 : 0; }
int wifi_get_osifname(const char *ifname, char *out) {
    return std::sprintf(out, "os_%s", ifname), test::world->failing("OS name");
}
int wifi_get_interface_client_list(const char *name, WifiClientInfo *, int) { return test::radio_named(name).clients; }
int sys_get_if_statistics(const char *ifname, void *record) {
    const uint64_t statistics[4] = {test::radio_named(ifname).received, 0, test::radio_named(ifname).sent, 0};
    return std::memcpy(record, statistics, sizeof statistics), 0;
}
int wifi_interface_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out) {
    ++test::world->scans;
    if (ssid != nullptr || test::world->failing("scan") != 0) return -1;
    test::world->on_scan();
    for (const auto &[bssid, signal] : test::radio_named(ifname).heard) {
        WifiScanResult &entry = out->records[out->count++];
        std::strcpy(entry.bssid, bssid.c_str());
        std::strcpy(entry.rssi, signal.c_str());
    }
    if (test::world->failing("lines") != 0) return unlink(test::lines_file);
    return test::write_text(test::lines_file, test::world->neighbour_lines), 0;
}
int wifi_interface_destory_private_ie(int port) { return test::world->noted("destroy", test::words(port)); }
int wifi_interface_disable_private_ie(void) { return test::world->noted("disable"); }
int wifi_interface_enable_private_ie(void) { return test::world->noted("enable"); }
int wifi_interface_create_private_ie(const WifiPrivateIe *d) {
    const std::string texts = " " + std::string(d->interfaces) + " [" + d->payload_name + "]";
    return test::world->noted("create" + test::words(d->port), test::words(d->type, d->one, d->max_length) + texts);
}
int holymsg_publish(const char *topic, const void *data, unsigned int length) {
    if (std::strstr(topic, "wifi_measure") != nullptr && !test::world->measurement.empty())
        test::write_text(test::measure_file, test::world->measurement);
    return test::world->noted("publish ", std::string(topic) + (data == nullptr && length == 0 ? "" : " with data"));
}
int holymsg_set_timeout(double seconds, void (*handler)(void *), void *argument) {
    test::world->timers.emplace_back(handler, argument);
    return test::world->noted("timer", test::words(static_cast<int>(seconds)));
}
int proc_check_app(const char *) { return test::world->acbs_runs ? 1 : 0; }
}

namespace test {

inline std::string line_of(const std::string &identity, const std::string &mac_24g, const std::string &mac_5g) {
    return identity + "nbAP:MAC2G=" + mac_24g + ";SSID2G=a;CH2G=6;MAC5G=" + mac_5g + ";SSID5G=b;CH5G=36;\n";
}

// The records that callbacks got, on one thread after the other.
inline Words records;
inline void keep_record(const void *record, int length) {
    records.emplace_back(static_cast<const char *>(record), static_cast<size_t>(length));
}

class RfoTest : public testing::Test {
protected:
    void SetUp() override {
        world = std::make_unique<RfoWorld>();
        workers_are = Workers::usual;
        commands.clear();
        records.clear();
        std::memset(g_before_cfg, 0, sizeof g_before_cfg);
        for (const char *file : {lines_file, measure_file}) write_text(file, "");
        unlink(measure_file);
    }
    void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_); }
    const int descriptors_ = open_descriptors();
    FakeClock clock;
};

}  // namespace test
// NOLINTEND(misc-definitions-in-headers)
