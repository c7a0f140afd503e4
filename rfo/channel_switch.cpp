// channel_switch.cpp: the bandwidth rules of the wireless modes, and the switch of one radio.

#include "rfo/channel_switch.h"

#include <string_view>

#include "applatform/config_store.h"
#include "applatform/message_bus.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "rfo/log.h"
#include "rfo/radio.h"

namespace ap {

namespace {

// The widest bandwidth that a 2.4 GHz mode takes; other modes take any.
struct WidestBandwidth {
    std::string_view nettype;
    int bandwidth_mhz;
};
constexpr WidestBandwidth widest_24g[] = {
    {"b", 20}, {"g", 20}, {"bg", 20}, {"bgn", 40}, {"bgn+ax", 40}, {"bgn+ax+be", 40},
};

// What a 5 GHz mode makes of a bandwidth that it does not take.
struct LoweredBandwidth {
    std::string_view nettype;
    int requested_mhz, applied_mhz;
};
constexpr LoweredBandwidth lowered_5g[] = {{"a", 40, 20}, {"an", 80, 40}, {"an+ac", 160, 80}};

struct AllowedBandwidth {
    int bandwidth_mhz;
    bool changed;
};

constexpr int never_applied_mhz = 160, widest_5g_mhz = 80;

// A refused bandwidth leaves the radio at its current one.
AllowedBandwidth allowed_bandwidth_24g(const char *ifname, std::string_view nettype, int requested_mhz,
                                       int current_mhz) {
    for (const auto &mode : widest_24g) {
        if (mode.nettype != nettype) continue;
        if (requested_mhz == 20 || requested_mhz == mode.bandwidth_mhz) break;
        RFO_ERROR("%s nettype is [%s], nonsupport bw:%d \n", ifname, nettype.data(), requested_mhz);
        return {current_mhz, true};
    }
    return {requested_mhz, false};
}

AllowedBandwidth allowed_bandwidth_5g(const char *ifname, std::string_view nettype, int requested_mhz,
                                      int current_mhz) {
    int bandwidth_mhz = requested_mhz;
    for (const auto &mode : lowered_5g) {
        if (mode.nettype != nettype || mode.requested_mhz != requested_mhz) continue;
        RFO_ERROR("%s nettype is [%s], nonsupport bw:%d set to %dM\n", ifname, nettype.data(), requested_mhz,
                  mode.applied_mhz);
        bandwidth_mhz = mode.applied_mhz;
    }
    if (bandwidth_mhz == never_applied_mhz) {
        RFO_ERROR("nonsupport bw:%d cur_channel.bandwidth:%d\n", bandwidth_mhz, current_mhz);
        bandwidth_mhz = widest_5g_mhz;
    }
    return {bandwidth_mhz, bandwidth_mhz != requested_mhz};
}

void announce_and_commit() {
    holymsg_publish(wifi_update_topic, nullptr, 0);
    CommitCfm();
}

}  // namespace

int ap_rfo_preferred_csa_notice(int band, const ChannelChoice &requested, ChannelChoice &applied) {
    WorkingInterface working;
    ChannelInfo current;
    if (!find_working_interface(band, working) || !read_channel_info(working.name, current)) return switch_failed;
    char nettype[config_value_size] = {};
    common_get_rate_type_radio_value(band, "nettype", nettype);
    RFO_TRACE("%s cur_channel:%d bw:%d nettype:%s\n", working.name, current.channel, current.bandwidth_mhz, nettype);

    const auto allowed_bandwidth = band == band_24g ? allowed_bandwidth_24g : allowed_bandwidth_5g;
    const auto allowed = allowed_bandwidth(working.name, nettype, requested.bandwidth_mhz, current.bandwidth_mhz);
    applied = {requested.channel, allowed.bandwidth_mhz};
    common_set_int_rate_type_radio_value(band, "channel", applied.channel);
    common_set_int_rate_type_radio_value(band, "bandwidth", applied.bandwidth_mhz);

    if (current.channel == requested.channel && current.bandwidth_mhz == requested.bandwidth_mhz) {
        RFO_TRACE("%s optimal_channel:%d bw:%d is the current channel bandwidth, so no switch\n", working.name,
                  applied.channel, applied.bandwidth_mhz);
    } else {
        RFO_TRACE("%s optimal_channel:%d bw:%d\n", working.name, applied.channel, applied.bandwidth_mhz);
        const int request[2] = {applied.channel, applied.bandwidth_mhz};
        wifi_interface_switch_chan(working.name, request);
    }
    announce_and_commit();
    return allowed.changed ? switch_applied_changed : switch_applied;
}

}  // namespace ap
