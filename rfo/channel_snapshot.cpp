// channel_snapshot.cpp: the channels in use before a run moves the radios.
//
// Three bytes a band: bandwidth, channel, extension channel; a channel of 0 is no snapshot. The requesting thread takes
// it, the worker clears it, so the bytes are relaxed atomics.

#include <cstdint>

#include "apsupport/rfo.h"
#include "rfo/log.h"
#include "rfo/radio.h"

unsigned char g_before_cfg[6];

namespace ap {

namespace {

constexpr size_t snapshot_size = 3;
constexpr size_t channel_at = 1;

// The band's bytes; null for a band that the optimiser does not serve.
unsigned char *snapshot_of(int band, Caller caller = Caller::here()) {
    if (band == band_24g) return g_before_cfg;
    if (band == band_5g) return g_before_cfg + snapshot_size;
    if (band == band_6g) RFO_ERROR_OF(caller, "unsupport 6g\n");
    return nullptr;
}

unsigned char load(const unsigned char &byte) { return __atomic_load_n(&byte, __ATOMIC_RELAXED); }
void store(unsigned char &byte, int value) {
    __atomic_store_n(&byte, static_cast<unsigned char>(value), __ATOMIC_RELAXED);
}

void take_snapshot(int band) {
    unsigned char *snapshot = snapshot_of(band);
    int bandwidth_mhz = 0, channel = 0, extension = 0;
    if (load(snapshot[channel_at]) != 0) return;
    if (rfo_get_chan_info(band, &bandwidth_mhz, &channel, &extension) != rfo_success) return;
    store(snapshot[0], bandwidth_mhz);
    store(snapshot[channel_at], channel);
    store(snapshot[2], extension);
}

}  // namespace

}  // namespace ap

using namespace ap;

int rfo_get_chan_info(int band, int *bandwidth, int *channel, int *extension) {
    WorkingInterface working;
    ChannelInfo info;
    if (snapshot_of(band) == nullptr || !find_working_interface(band, working) ||
        !read_channel_info(working.name, info))
        return rfo_failure;
    *bandwidth = info.bandwidth_mhz;
    *channel = info.channel;
    *extension = info.extension;
    return rfo_success;
}

int rfo_get_all_chan_info(void) {
    for (const int band : bands) take_snapshot(band);
    return rfo_success;
}

int rfo_get_before_cfg_info(int band, unsigned char out[3]) {
    const unsigned char *snapshot = snapshot_of(band);
    if (snapshot == nullptr) return rfo_failure;
    for (size_t i = 0; i < snapshot_size; ++i) out[i] = load(snapshot[i]);
    return rfo_success;
}

int rfo_clean_before_cfg_info(int band) {
    unsigned char *snapshot = snapshot_of(band);
    if (snapshot == nullptr) return rfo_failure;
    for (size_t i = 0; i < snapshot_size; ++i) store(snapshot[i], 0);
    return rfo_success;
}
