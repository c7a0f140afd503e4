// rfo_measurement_fuzz.cpp: any bytes as the measurement service's file: the lists have an entry for each element of
// the arrays, with the integers that stand there, and the file is gone.

#include "rfo/channel_measure.cpp"  // NOLINT(bugprone-suspicious-include)

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>

#include "applatform/config_store.h"
#include "fuzz/support/quiet.h"

static std::string measured;

static void require(bool holds) {
    if (!holds) std::abort();
}

extern "C" {
int GetValue(const char *, char *) { return 0; }
unsigned int sleep(unsigned int) { return 0; }

// The measurement service, as quick as can be.
int holymsg_publish(const char *, const void *, unsigned int) {
    mkdir("/etc/wm_config", 0755);
    const ap::UniqueFd file = ap::open_fd(ap::measure_file, O_WRONLY | O_CREAT | O_TRUNC);
    return ap::write_full(file.get(), measured.data(), measured.size()) ? 0 : -1;
}
}

static void require_list(const cJSON *document, const char *name, const ap::GrowingArray<ChannelRecord> &list) {
    const cJSON *array = cJSON_GetObjectItem(document, name);
    require(list.size() == static_cast<size_t>(cJSON_GetArraySize(array)));
    for (size_t i = 0; i < list.size(); ++i) {
        const cJSON *element = cJSON_GetArrayItem(array, static_cast<int>(i));
        const cJSON *channel = cJSON_GetObjectItem(element, "channel"), *busy = cJSON_GetObjectItem(element, "busy");
        const ChannelRecord &record = list.begin()[i];
        require(record.channel == static_cast<uint8_t>(cJSON_IsNumber(channel) ? channel->valueint : 0));
        require(record.busy == static_cast<uint32_t>(cJSON_IsNumber(busy) ? busy->valueint : 0));
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    measured.assign(reinterpret_cast<const char *>(data), std::min<size_t>(size, 4096));
    const ap::UniqueJson document(cJSON_Parse(measured.c_str()));

    ap::ChannelLists lists;
    require(ap::rfo_ch_rf_info_collect(lists) == (document ? ap::rfo_success : ap::rfo_failure));
    require_list(document.get(), "chanlist_24g", lists.band_24g);
    require_list(document.get(), "chanlist_5g", lists.band_5g);
    require(access(ap::measure_file, F_OK) != 0);
    return 0;
}
