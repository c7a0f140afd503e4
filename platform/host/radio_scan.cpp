// radio_scan.cpp: the virtual driver's scans. A scan notes what is to be looked for; its results are what the radio
// hears of that at the moment they are read.
//
// Of an entry, byte 64 is the network's channel and byte 68 its bandwidth in MHz. Of a channel record, the words are
// the channel, the number of networks on it, the noise in dBm and the load in per cent.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "applatform/wireless_driver.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "platform/host/private_lines.h"
#include "platform/host/radio_call.h"

namespace ap::host {

namespace {

constexpr size_t entry_capacity = 256, entry_size = 484, channel_capacity = 64, channel_size = 16;
constexpr size_t entries_at = 4 + 4, channels_at = entries_at + entry_capacity * entry_size;
constexpr size_t results_size = channels_at + channel_capacity * channel_size;

// A security as the driver codes it: the type words of the block's PSK and enterprise parts.
struct SecurityCode {
    const char *name;
    int psk, enterprise;
};
constexpr SecurityCode security_codes[] = {
    {"none", 0, 0}, {"wpa-psk", 1, 0},       {"wpa2-psk", 2, 0}, {"wpa-psk&wpa2-psk", 3, 0},
    {"wpa3", 4, 0}, {"wpa2-psk&wpa3", 5, 0}, {"owe", 6, 0},      {"wpa", 0, 1},
    {"wpa2", 0, 2}, {"wpa&wpa2", 0, 3},
};
constexpr const char *ciphers[] = {"aes", "tkip", "tkip&aes"};

void fill_security(const Network &network, Record block) {
    if (network.security == "wep") ap::store_le(&block[0], uint32_t{0xffffffff});
    const auto *code = std::ranges::find(security_codes, network.security, &SecurityCode::name);
    if (code == std::end(security_codes)) return;
    const auto *cipher = std::ranges::find(ciphers, network.cipher, [](const char *name) { return std::string(name); });
    const int cipher_code = cipher == std::end(ciphers) ? 0 : static_cast<int>(cipher - ciphers);
    ap::store_le(&block[132], code->psk);
    ap::store_le(&block[136], code->psk != 0 ? cipher_code : 0);
    ap::store_le(&block[212], code->enterprise);
    ap::store_le(&block[216], code->enterprise != 0 ? cipher_code : 0);
}

// 2: the second channel lies above, 3: below, 0: there is none.
int sideband_code(const ChannelSetting &setting) {
    if (setting.extension == 0) return 0;
    return setting.extension > setting.channel ? 2 : 3;
}

void fill_entry(const HeardNetwork &heard, Record entry) {
    const Network &network = *heard.network;
    std::ranges::fill(entry, uint8_t{0});
    std::ranges::copy_n(network.ssid.begin(), static_cast<long>(std::min<size_t>(network.ssid.size(), 48)),
                        entry.begin());
    ap::copy_text(reinterpret_cast<char *>(&entry[49]), 57 - 49, network.encoding);
    std::ranges::copy(network.bssid, &entry[57]);
    ap::store_le(&entry[64], heard.setting.channel);
    ap::store_le(&entry[68], heard.setting.bandwidth);
    ap::store_le(&entry[72], sideband_code(heard.setting));
    fill_security(network, entry.subspan(76, 400));
    ap::store_le(&entry[476], static_cast<int16_t>(std::lround(heard.strength_dbm)));
}

void fill_channel(const World &world, int band, int channel, const std::vector<HeardNetwork> &heard, Record record) {
    const auto on_channel = std::ranges::count(heard, channel, [](const HeardNetwork &h) { return h.setting.channel; });
    ap::store_le(&record[0], channel);
    ap::store_le(&record[4], static_cast<uint32_t>(on_channel));
    ap::store_le(&record[8], static_cast<int>(std::lround(world.scenario().noise_dbm)));
    ap::store_le(&record[12], static_cast<uint32_t>(std::lround(100 * channel_load(band, channel, heard))));
}

// The channels whose records the caller wants: those that it named, or all when it named none.
std::vector<int> wanted_channels(const Radio &radio, Record results) {
    const size_t named = std::min<size_t>(ap::le32(&results[4]), channel_capacity);
    if (named == 0)
        return {radio.channels.begin(),
                radio.channels.begin() + static_cast<long>(std::min(radio.channels.size(), channel_capacity))};
    std::vector<int> channels;
    for (size_t i = 0; i < named; ++i) channels.push_back(ap::load_le<int>(&results[channels_at + i * channel_size]));
    return channels;
}

// The networks that the radio's last scan was to find; the number of entries. None without a scan.
size_t fill_entries(const World &world, const RadioPlace &place, const std::vector<HeardNetwork> &heard,
                    Record results) {
    const auto scan = world.state().scans.find(place.key());
    if (scan == world.state().scans.end()) return 0;
    const auto &[channel, ssid] = scan->second;
    size_t count = 0;
    for (const HeardNetwork &network : heard) {
        if (channel != 0 && network.setting.channel != channel) continue;
        if (!ssid.empty() && network.network->ssid != ssid) continue;
        if (count == entry_capacity) break;
        fill_entry(network, results.subspan(entries_at + count++ * entry_size, entry_size));
    }
    return count;
}

int fill_results(const World &world, const RadioPlace &place, Record results) {
    const auto heard = world.heard_by(place);
    const size_t count = fill_entries(world, place, heard, results);

    const auto channels = wanted_channels(*place.radio, results);
    for (size_t i = 0; i < channels.size(); ++i)
        fill_channel(world, place.radio->band, channels[i], heard,
                     results.subspan(channels_at + i * channel_size, channel_size));
    ap::store_le(&results[0], static_cast<uint32_t>(count));
    ap::store_le(&results[4], static_cast<uint32_t>(channels.size()));
    return 0;
}

}  // namespace

}  // namespace ap::host

using namespace ap::host;

int uwb_scan(const char *ifname, const void *request160) {
    const auto *request = static_cast<const uint8_t *>(request160);
    return on_interface(__func__, ifname, {}, [&](World &world, const RadioPlace &place) {
        if (!place.is_up()) return -1;
        const auto *ssid = reinterpret_cast<const char *>(request + 76);
        world.change().scans[place.key()] = {ap::load_le<int>(request + 12), std::string(ssid, strnlen(ssid, 49))};
        return 0;
    });
}

int uwb_get_scanresults(const char *ifname, void *buffer124936) {
    static_assert(results_size == 124936);
    const Record results = record_of(buffer124936, results_size);
    return on_interface(__func__, ifname, results, [&](World &world, const RadioPlace &place) {
        collect_lines(world);
        return fill_results(world, place, results);
    });
}
