// measure.cpp: asks the wireless driver for the channels of both radios and writes what it says as JSON:
//
//   {"chanlist_24g": [{"channel": 1, "ap_num": 2, "busy": 35, "score": 55}, ...], "chanlist_5g": [...]}
//
// `ap_num` counts the networks on the channel, `busy` is its load in per cent. The score is 100 for a free channel, one
// less for each per cent of load and five less for each network, and never below 0. A radio that is off has no list.

#include "tools/wifi_measure/measure.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "applatform/wireless_driver.h"
#include "apsupport/product.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"

namespace wifi_measure {

namespace {

constexpr char result_folder[] = "/etc/wm_config";
constexpr size_t entries_at = 4 + 4, entry_capacity = 256, entry_size = 484;
constexpr size_t channels_at = entries_at + entry_capacity * entry_size, channel_capacity = 64, channel_size = 16;
constexpr size_t results_size = channels_at + channel_capacity * channel_size;
constexpr useconds_t dwell_us = 100 * 1000;
constexpr int best_score = 100, score_of_network = 5;

struct Band {
    int code;
    const char *list_name;
};
constexpr Band bands[] = {{24, "chanlist_24g"}, {5, "chanlist_5g"}};

struct Channel {
    int number, networks, load_percent;
};

// What the driver says of the channels of a radio; nothing when it does not answer.
std::vector<Channel> read_channels(const char *ifname) {
    std::vector<uint8_t> results(results_size);
    std::vector<Channel> channels;
    if (uwb_get_scanresults(ifname, results.data()) != 0) return channels;
    const size_t count = std::min<size_t>(ap::le32(&results[4]), channel_capacity);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t *record = &results[channels_at + i * channel_size];
        channels.push_back({ap::load_le<int>(record), ap::load_le<int>(record + 4), ap::load_le<int>(record + 12)});
    }
    return channels;
}

void add_channel(cJSON *list, const Channel &channel) {
    const int busy = std::clamp(channel.load_percent, 0, 100), networks = std::clamp(channel.networks, 0, 255);
    cJSON *item = cJSON_CreateObject();
    cJSON_AddNumberToObject(item, "channel", channel.number);
    cJSON_AddNumberToObject(item, "ap_num", networks);
    cJSON_AddNumberToObject(item, "busy", busy);
    cJSON_AddNumberToObject(item, "score", std::max(0, best_score - busy - score_of_network * networks));
    cJSON_AddItemToArray(list, item);
}

void add_band(cJSON *document, const Band &band) {
    const std::string ifname = "wlan" + std::to_string(get_wlan_index(band.code));
    if (common_get_int_rate_type_radio(band.code, "enable") == 0 || uwb_check_dev_status(ifname.c_str()) != 0) return;
    const auto channels = read_channels(ifname.c_str());
    if (channels.empty()) return;
    cJSON *list = cJSON_AddArrayToObject(document, band.list_name);
    for (const Channel &channel : channels) {
        usleep(dwell_us);
        add_channel(list, channel);
    }
}

// The asker deletes the file; it appears whole or not at all.
bool write_result(std::string_view text) {
    mkdir(result_folder, 0755);
    const std::string temporary = std::string(result_file) + ".new";
    ap::UniqueFd file = ap::open_fd(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    if (!file || !ap::write_full(file.get(), text.data(), text.size())) return false;
    file.reset();
    return std::rename(temporary.c_str(), result_file) == 0;
}

}  // namespace

bool measure_all() {
    const ap::UniqueJson document(cJSON_CreateObject());
    for (const Band &band : bands) add_band(document.get(), band);
    const ap::HeapPtr<char> text(cJSON_Print(document.get()));
    if (text && write_result(text.get())) return true;
    return std::perror(result_file), false;
}

}  // namespace wifi_measure
