// power_survey.cpp: the power survey's worker: how strongly the access points of the system hear one another.
//
// Unlike the channel survey it lists only neighbours that were heard, and leaves the private information elements up
// until the next run takes them down.

#include <unistd.h>

#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "foundation/text.h"
#include "rfo/channel_switch.h"
#include "rfo/neighbours.h"
#include "rfo/private_ie.h"
#include "rfo/runs.h"

static_assert(sizeof(ap_rf_power_info) == 18 + 6 + 3 + 1 && offsetof(ap_rf_power_info, neighbours) == 27);

pthread_t power_optmz_tid;
rfo_callback upload_rf_power_info_cb;

namespace ap {

namespace {

constexpr size_t prefix_size = 64;

struct PowerRange {
    uint8_t current, minimum, maximum;
};

bool rfo_get_ap_curpower_info(int band, PowerRange &power) {
    char prefix[prefix_size] = {};
    if (get_prefix_radio_by_type(band, prefix, sizeof prefix) != 0)
        return RFO_ERROR("rfo_get_ap_curpower_info fail\n"), false;
    power.current = static_cast<uint8_t>(get_web_curpower(prefix));
    power.minimum = static_cast<uint8_t>(get_web_minpower(prefix));
    power.maximum = static_cast<uint8_t>(get_web_maxpower(prefix));
    return true;
}

bool rfo_create_ap_rf_power_info(uint8_t *out, const unsigned char (&lan_mac)[mac_size],
                                 const GrowingArray<NeighbourRecord> &neighbours) {
    PowerRange power_24g = {}, power_5g = {};
    if (!rfo_get_ap_curpower_info(band_24g, power_24g) || !rfo_get_ap_curpower_info(band_5g, power_5g)) return false;
    ap_rf_power_info head = {};
    format_mac(head.mac, lan_mac);
    head.cur_24g = power_24g.current;
    head.min_24g = power_24g.minimum;
    head.max_24g = power_24g.maximum;
    head.cur_5g = power_5g.current;
    head.min_5g = power_5g.minimum;
    head.max_5g = power_5g.maximum;
    head.neighbours = static_cast<uint8_t>(neighbours.size());
    std::memcpy(out, &head, sizeof head);
    if (neighbours.size() != 0)
        std::memcpy(out + sizeof head, neighbours.begin(), neighbours.size() * sizeof(NeighbourRecord));
    return true;
}

void report_power(const unsigned char (&lan_mac)[mac_size], const GrowingArray<NeighbourRecord> &neighbours) {
    const size_t length = sizeof(ap_rf_power_info) + neighbours.size() * sizeof(NeighbourRecord);
    const HeapPtr<uint8_t> record(static_cast<uint8_t *>(std::calloc(1, length)));
    if (!record) {
        RFO_ERROR("ap_rf_info %d is out of buffer\n", static_cast<int>(length));
        return;
    }
    if (!rfo_create_ap_rf_power_info(record.get(), lan_mac, neighbours)) {
        RFO_ERROR("create ap_rf_info err\n");
        return;
    }
    upload(power_run, record.get(), length);
}

void rfo_power_optmz_handle() {
    sleep(1);
    unsigned char lan_mac[mac_size] = {};
    if (!read_lan_mac(lan_mac)) return;
    if (rfo_init() != rfo_success) {
        RFO_ERROR("rfo_init err\n");
        return;
    }
    const unsigned int wait_seconds = stagger_seconds(lan_mac, power_run.delay_seconds);
    RFO_TRACE("sleep %d\n", static_cast<int>(wait_seconds));
    if (wait_seconds != 0) sleep(wait_seconds);

    Neighbours neighbours;
    if (rfo_neighbour_ap_identify(neighbours) != rfo_success) {
        RFO_ERROR("neighbourAP identify err\n");
        return;
    }
    for (const int band : bands) rfo_survey_neighbour_ap(neighbours, band);
    report_power(lan_mac, neighbours.entries);
}

// All access points measure one another on the same channels.
void move_to_reference_channels() {
    constexpr ChannelChoice reference_24g = {6, 20}, reference_5g = {36, 80};
    ChannelChoice applied = {};
    ap_rfo_preferred_csa_notice(band_24g, reference_24g, applied);
    ap_rfo_preferred_csa_notice(band_5g, reference_5g, applied);
}

}  // namespace

Run power_run = {PTHREAD_MUTEX_INITIALIZER,
                 false,
                 false,
                 0,
                 &power_optmz_tid,
                 &upload_rf_power_info_cb,
                 rfo_power_optmz_handle,
                 "parameter fail\n",
                 "Create power_optmz_thread is fail.\n"};

}  // namespace ap

using namespace ap;

int rfo_create_power_optmz_thread(rfo_callback callback, int delay) { return start_run(power_run, callback, delay); }

int set_ap_power_optmz(rfo_callback callback, const void *request) {
    const auto *bytes = static_cast<const unsigned char *>(request);
    if (!begin_request(bytes)) return -1;
    rfo_get_all_chan_info();
    const bool immediate = bytes[0] == 0;
    if (immediate) move_to_reference_channels();
    return rfo_create_power_optmz_thread(callback, bytes[1]);
}
