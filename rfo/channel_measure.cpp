// channel_measure.cpp: asks the measurement service for all channels and reads its file.
//
// The file is a JSON object with the arrays "chanlist_24g" and "chanlist_5g" of objects of the integers "channel",
// "ap_num", "busy" and "score". It is asked for on the bus, waited for by polling, and deleted once it was read.

#include "rfo/channel_measure.h"

#include <sys/stat.h>
#include <unistd.h>

#include "applatform/message_bus.h"
#include "apsupport/foundation.h"
#include "foundation/file_io.h"
#include "rfo/log.h"

namespace ap {

namespace {

constexpr char measure_topic[] = "ugw.wifi_measure.all_chan_measure_request";
constexpr char measure_file[] = "/etc/wm_config/all_chan_measure.json";
constexpr int most_polls = 30;
constexpr off_t largest_file = off_t{1024} * 1024;

void request_measurement() {
    unlink(measure_file);
    holymsg_publish(measure_topic, nullptr, 0);
    for (int polls = 0; polls < most_polls && access(measure_file, F_OK) != 0; ++polls) sleep(1);
}

// The whole file with a NUL behind it; null after a line in the log.
HeapPtr<char> read_file(FILE *file) {
    struct stat status = {};
    if (fstat(fileno(file), &status) != 0 || status.st_size > largest_file) return RFO_ERROR("read fail\n"), nullptr;
    const auto size = static_cast<size_t>(status.st_size);
    HeapPtr<char> text(static_cast<char *>(std::calloc(1, size + 1)));
    if (!text) return RFO_ERROR("malloc fail\n"), nullptr;
    if (std::fread(text.get(), 1, size, file) != size) return RFO_ERROR("read fail\n"), nullptr;
    return text;
}

// Waits for the measurement and takes its file away.
HeapPtr<char> rfo_wm_full_chan_measure() {
    request_measurement();
    UniqueFile file = open_file(measure_file, "rbe");
    if (!file) return RFO_ERROR("open file fail\n"), nullptr;
    HeapPtr<char> text = read_file(file.get());
    file.reset();
    unlink(measure_file);
    return text;
}

bool append_channels(const cJSON *channels, const unsigned char (&own)[3], GrowingArray<ChannelRecord> &list) {
    const cJSON *element = nullptr;
    cJSON_ArrayForEach(element, channels) {
        ChannelRecord record = {};
        record.own_channel = own[1];
        record.own_extension = own[2];
        record.own_bandwidth = own[0];
        record.channel = static_cast<uint8_t>(cJSON_GetObjectNumberValue(element, "channel", 0));
        record.ap_num = static_cast<uint32_t>(cJSON_GetObjectNumberValue(element, "ap_num", 0));
        record.busy = static_cast<uint32_t>(cJSON_GetObjectNumberValue(element, "busy", 0));
        record.score = static_cast<uint32_t>(cJSON_GetObjectNumberValue(element, "score", 0));
        if (!list.append(record)) return RFO_ERROR("Error : rfo_add_node_to_chan_info_list err!\n"), false;
    }
    return true;
}

// The number of nodes, or -1.
int rfo_parse_chan_measure_info(const cJSON *channels, int band, GrowingArray<ChannelRecord> &list) {
    int bandwidth_mhz = 0, channel = 0, extension = 0;
    rfo_get_chan_info(band, &bandwidth_mhz, &channel, &extension);
    RFO_DETAIL("band %d channel %d bandwidth %d extension %d\n", band, channel, bandwidth_mhz, extension);

    unsigned char own[3] = {};
    rfo_get_before_cfg_info(band, own);
    const bool complete = append_channels(channels, own, list);
    rfo_clean_before_cfg_info(band);
    return complete ? static_cast<int>(list.size()) : -1;
}

// A missing array is a radio that is off.
bool parse_band(const cJSON *channels, int band, GrowingArray<ChannelRecord> &list) {
    if (channels == nullptr) return true;
    if (rfo_parse_chan_measure_info(channels, band, list) < 0)
        return RFO_ERROR("rfo_parse_chan_measure_info fail\n"), false;
    return true;
}

}  // namespace

int rfo_ch_rf_info_collect(ChannelLists &lists) {
    const HeapPtr<char> text = rfo_wm_full_chan_measure();
    if (!text) return rfo_failure;
    const UniqueJson measured(cJSON_Parse(text.get()));
    if (!measured) return RFO_ERROR("cJSON_Parse fail\n"), rfo_failure;

    const cJSON *channels_24g = cJSON_GetObjectItem(measured.get(), "chanlist_24g");
    if (channels_24g == nullptr) RFO_ERROR("no chanlist_24g, maybe 2.4g is disable\n");
    if (!parse_band(channels_24g, band_24g, lists.band_24g)) return rfo_failure;

    const cJSON *channels_5g = cJSON_GetObjectItem(measured.get(), "chanlist_5g");
    if (channels_5g == nullptr) RFO_ERROR("no chanlist_5g, maybe 5g is disable\n");
    return parse_band(channels_5g, band_5g, lists.band_5g) ? rfo_success : rfo_failure;
}

}  // namespace ap
