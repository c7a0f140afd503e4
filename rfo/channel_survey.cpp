// channel_survey.cpp: the channel survey's worker: measures all channels, finds the neighbours, reports to the
// controller.
//
// The report is a head, the channels of both bands and the neighbours, in the device's own byte order. Every list is
// the worker's own.

#include <unistd.h>

#include "apsupport/foundation.h"
#include "apsupport/rfo.h"
#include "foundation/text.h"
#include "rfo/channel_measure.h"
#include "rfo/neighbours.h"
#include "rfo/private_ie.h"
#include "rfo/runs.h"

static_assert(sizeof(ap_rf_chan_info) == 18 + 1 + 1 + 1 + 1 + 2 && offsetof(ap_rf_chan_info, neighbours) == 21);
static_assert(sizeof(ChannelRecord) == 4 * 1 + 3 * 4 && offsetof(ChannelRecord, ap_num) == 4);
static_assert(sizeof(NeighbourRecord) == 18 + 2 + 2 + 2 && offsetof(NeighbourRecord, rssi_24g) == 18);

pthread_t chan_optmz_tid;
rfo_callback upload_rf_chan_info_cb;

namespace ap {

namespace {

uint8_t *put_channels(uint8_t *out, const GrowingArray<ChannelRecord> &channels) {
    for (ChannelRecord record : channels) {
        record.ap_num = Swap32(record.ap_num);
        record.busy = Swap32(record.busy);
        record.score = Swap32(record.score);
        std::memcpy(out, &record, sizeof record);
        out += sizeof record;
    }
    return out;
}

void rfo_create_ap_rf_chan_info(uint8_t *out, const unsigned char (&lan_mac)[mac_size], const ChannelLists &channels,
                                const GrowingArray<NeighbourRecord> &neighbours) {
    ap_rf_chan_info head = {};
    format_mac(head.mac, lan_mac);
    head.channels_24g = static_cast<uint8_t>(channels.band_24g.size());
    head.channels_5g = static_cast<uint8_t>(channels.band_5g.size());
    head.neighbours = static_cast<uint8_t>(neighbours.size());
    std::memcpy(out, &head, sizeof head);
    out = put_channels(out + sizeof head, channels.band_24g);
    out = put_channels(out, channels.band_5g);
    if (neighbours.size() != 0) std::memcpy(out, neighbours.begin(), neighbours.size() * sizeof(NeighbourRecord));
}

void report_channels(const unsigned char (&lan_mac)[mac_size], const ChannelLists &channels,
                     const GrowingArray<NeighbourRecord> &neighbours) {
    const size_t length = sizeof(ap_rf_chan_info) + neighbours.size() * sizeof(NeighbourRecord) +
                          (channels.band_24g.size() + channels.band_5g.size()) * sizeof(ChannelRecord);
    const HeapPtr<uint8_t> record(static_cast<uint8_t *>(std::calloc(1, length)));
    if (!record) {
        RFO_ERROR("ap_rf_info %d is out of buffer\n", static_cast<int>(length));
        return;
    }
    rfo_create_ap_rf_chan_info(record.get(), lan_mac, channels, neighbours);
    upload(channel_run, record.get(), length);
}

void survey_channels(const unsigned char (&lan_mac)[mac_size]) {
    if (rfo_init() != rfo_success) {
        RFO_ERROR("rfo_init err\n");
        return;
    }
    ChannelLists channels;
    if (rfo_ch_rf_info_collect(channels) != rfo_success) RFO_ERROR("rfo_ch_rf_info_collect err\n");

    const unsigned int wait_seconds = stagger_seconds(lan_mac, channel_run.delay_seconds);
    RFO_TRACE("sleep %ds\n", static_cast<int>(wait_seconds));
    sleep(wait_seconds);

    Neighbours neighbours;
    if (rfo_neighbour_ap_identify(neighbours) != rfo_success) {
        RFO_ERROR("neighbourAP identify err\n");
        return;
    }
    if (rfo_note_to_neighbour_ap(neighbours) != rfo_success) {
        RFO_ERROR("rfo_note_to_neighbour_ap err\n");
        return;
    }
    report_channels(lan_mac, channels, neighbours.entries);
}

// However the survey ends, the private information elements are taken down again.
void rfo_chan_optmz_handle() {
    unsigned char lan_mac[mac_size] = {};
    if (!read_lan_mac(lan_mac)) return;
    survey_channels(lan_mac);
    rfo_neighbour_private_ie_diable();
}

}  // namespace

Run channel_run = {PTHREAD_MUTEX_INITIALIZER,
                   false,
                   false,
                   0,
                   &chan_optmz_tid,
                   &upload_rf_chan_info_cb,
                   rfo_chan_optmz_handle,
                   "parameter fail!\n",
                   "Create chan_optmz_thread is fail.\n"};

}  // namespace ap

using namespace ap;

int rfo_create_chan_optmz_thread(rfo_callback callback, int delay) { return start_run(channel_run, callback, delay); }

int set_ap_chan_optmz(rfo_callback callback, const void *request) {
    const auto *bytes = static_cast<const unsigned char *>(request);
    if (!begin_request(bytes)) return -1;
    rfo_get_all_chan_info();
    return rfo_create_chan_optmz_thread(callback, bytes[1]);
}
