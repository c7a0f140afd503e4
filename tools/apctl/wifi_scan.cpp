// wifi_scan.cpp: `apctl wifi scan|spectrum`: the networks that a radio hears and how busy its channels are, with a
// chart of the channels for people.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

#include "apsupport/wireless.h"
#include "foundation/text.h"
#include "tools/apctl/wifi.h"

namespace apctl::wifi {

namespace {

using Rows = std::vector<std::vector<std::string>>;

cJSON *to_json(const WifiScanResult &network) {
    cJSON *object = cJSON_CreateObject();
    add_text(object, "ssid", for_screen(network.ssid, network.encode));
    add_text(object, "bssid", network.bssid);
    cJSON_AddNumberToObject(object, "channel", ap::to_int(network.num_a));
    cJSON_AddNumberToObject(object, "bandwidth", ap::to_int(network.num_b));
    add_text(object, "sideband", network.sideband);
    cJSON_AddNumberToObject(object, "rssi", ap::to_int(network.rssi));
    add_text(object, "security", network.security);
    return object;
}

void print_channels(const WifiScanList &list) {
    std::map<int, std::vector<int>> strengths;
    size_t most = 0;
    for (int i = 0; i < list.count; ++i) {
        auto &on_channel = strengths[ap::to_int(list.records[i].num_a)];
        on_channel.push_back(ap::to_int(list.records[i].rssi));
        most = std::max(most, on_channel.size());
    }
    Rows rows = {{"CHANNEL", "NETWORKS", "STRONGEST", ""}};
    for (const auto &[channel, on_channel] : strengths) {
        const int strongest = *std::ranges::max_element(on_channel);
        rows.push_back({std::to_string(channel), std::to_string(on_channel.size()), std::to_string(strongest) + " dBm",
                        bar(static_cast<double>(on_channel.size()), static_cast<double>(most))});
    }
    print_table(rows);
}

void print_networks(const WifiScanList &list) {
    Rows rows = {{"SSID", "BSSID", "CHANNEL", "MHz", "SIDEBAND", "RSSI", "SECURITY"}};
    for (int i = 0; i < list.count; ++i) {
        const WifiScanResult &n = list.records[i];
        rows.push_back({for_screen(n.ssid, n.encode), n.bssid, n.num_a, n.num_b, n.sideband, n.rssi, n.security});
    }
    print_table(rows);
    if (list.count != 0) std::puts("");
    if (list.count != 0) print_channels(list);
}

int fail(LibraryLines &lines, const std::string &interface) {
    lines.show();
    std::fprintf(stderr, "apctl wifi: %s cannot be scanned\n", interface.c_str());
    return exit_failed;
}

}  // namespace

int run_scan(const Words &given) {
    Words words = given;
    std::string ssid;
    const bool json = take_flag(words, "--json"), last = take_flag(words, "--last");
    const bool one_ssid = take_option(words, "--ssid", ssid);
    if (words.size() != 1) return usage_error("wifi", "scan takes one INTERFACE");
    const char *interface = words[0].c_str();
    const auto list = std::make_unique<WifiScanList>();
    LibraryLines lines;
    const int result = last       ? wifi_interface_get_scanresults(interface, list.get())
                       : one_ssid ? wifi_interface_get_scan_results_by_ssid(interface, ssid.c_str(), list.get())
                                  : wifi_interface_get_scan_results(interface, list.get());
    if (result != 0) return fail(lines, words[0]);
    lines.restore();
    if (!json) return print_networks(*list), exit_ok;
    const ap::UniqueJson document(cJSON_CreateArray());
    for (int i = 0; i < list->count; ++i) cJSON_AddItemToArray(document.get(), to_json(list->records[i]));
    return print_json(document.get()), exit_ok;
}

int run_spectrum(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (words.size() != 1) return usage_error("wifi", "spectrum takes one INTERFACE");
    constexpr int most_channels = 64;
    WifiSpectrum channels[most_channels];
    LibraryLines lines;
    const int count = wifi_interface_get_spectrum(words[0].c_str(), channels, most_channels);
    if (count < 0) return fail(lines, words[0]);
    lines.restore();

    Rows rows = {{"CHANNEL", "NETWORKS", "LOAD", ""}};
    const ap::UniqueJson document(cJSON_CreateArray());
    for (int i = 0; i < count; ++i) {
        const WifiSpectrum &channel = channels[i];
        rows.push_back({std::to_string(channel.channel), std::to_string(channel.word_1),
                        std::to_string(channel.word_3) + " %", bar(channel.word_3, 100)});
        cJSON *item = cJSON_CreateObject();
        cJSON_AddNumberToObject(item, "channel", channel.channel);
        cJSON_AddNumberToObject(item, "networks", channel.word_1);
        cJSON_AddNumberToObject(item, "load_percent", channel.word_3);
        cJSON_AddItemToArray(document.get(), item);
    }
    json ? print_json(document.get()) : print_table(rows);
    return exit_ok;
}

}  // namespace apctl::wifi
