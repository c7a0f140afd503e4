// power_apply.cpp: applies the controller's transmit powers.

#include "applatform/config_store.h"
#include "applatform/message_bus.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "rfo/log.h"
#include "rfo/radio.h"

namespace ap {

namespace {

void ap_rfo_set_power(int band, int requested_dbm) {
    const int target_dbm = requested_dbm - common_get_int_rate_type_radio(band, "power_compensate");
    const auto max_power = static_cast<unsigned char>(common_get_int_rate_type_radio(band, "maxpower"));
    if (target_dbm == common_get_int_rate_type_radio(band, "curpower")) return;

    common_set_int_rate_type_radio_value(band, "curpower", target_dbm);
    char ifname[radio_ifname_size];
    format_radio_ifname(ifname, band, 0);
    RFO_TRACE("%s set power:%d maxpower:%d\n", ifname, target_dbm, max_power);
    const unsigned char request[2] = {max_power, static_cast<unsigned char>(target_dbm)};
    wifi_interface_set_txpower(ifname, request);
    holymsg_publish(wifi_update_topic, nullptr, 0);
    CommitCfm();
}

}  // namespace

}  // namespace ap

using namespace ap;

void set_ap_power_optmzCfg(const void *request) {
    if (request == nullptr) {
        RFO_ERROR("parameter fail\n");
        return;
    }
    const auto *powers = static_cast<const unsigned char *>(request);
    RFO_TRACE("2.4g power:%d;5g power:%d\n", powers[0], powers[1]);
    if (powers[0] != 0) ap_rfo_set_power(band_24g, powers[0]);
    if (powers[1] != 0) ap_rfo_set_power(band_5g, powers[1]);
}
