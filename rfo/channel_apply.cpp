// channel_apply.cpp: applies the controller's channels, at once or, by schedule, only while a radio is idle.
//
// By schedule a radio with clients is watched for 30 seconds: the bus's timer takes a second sample of its traffic and
// switches, or not, and sends a result of its own.

#include <unistd.h>

#include "applatform/interfaces.h"
#include "applatform/message_bus.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "rfo/channel_switch.h"
#include "rfo/log.h"
#include "rfo/radio.h"

static_assert(sizeof(ChannelSwitchResult) == 18 + 3 + 6 && offsetof(ChannelSwitchResult, channel_24g) == 21);
static_assert(sizeof(wifi_flow_info) == 4 + 4 + 8 + 8 && offsetof(wifi_flow_info, received) == 8);

unsigned char g_chan_cfg[5];
struct wifi_flow_info flow_check_info_24g;
struct wifi_flow_info flow_check_info_5g;

namespace ap {

namespace {

constexpr int busy_rate_kb = 5;
constexpr int watch_seconds = 30;
constexpr uint64_t busy_bytes = uint64_t{busy_rate_kb} * 1024 * watch_seconds;
constexpr int most_clients = 128;

// What differs between the bands.
struct BandPlan {
    int band;
    size_t request_at;  // where the band's channel and bandwidth stand in the request
    wifi_flow_info *flow;
    uint8_t ChannelSwitchResult::*result, ChannelSwitchResult::*channel, ChannelSwitchResult::*bandwidth;
};
constexpr BandPlan band_plans[] = {
    {band_24g, 1, &flow_check_info_24g, &ChannelSwitchResult::result_24g, &ChannelSwitchResult::channel_24g,
     &ChannelSwitchResult::bandwidth_24g},
    {band_5g, 3, &flow_check_info_5g, &ChannelSwitchResult::result_5g, &ChannelSwitchResult::channel_5g,
     &ChannelSwitchResult::bandwidth_5g},
};

rfo_callback scheduled_callback;

void switch_band(const BandPlan &plan, const unsigned char *request, ChannelSwitchResult &result) {
    ChannelChoice applied = {};
    const ChannelChoice requested = {request[plan.request_at], request[plan.request_at + 1]};
    result.*plan.result = static_cast<uint8_t>(ap_rfo_preferred_csa_notice(plan.band, requested, applied));
    result.*plan.channel = static_cast<uint8_t>(applied.channel);
    result.*plan.bandwidth = static_cast<uint8_t>(applied.bandwidth_mhz);
}

void add_interface_flow(const char *ifname, WifiClientInfo *clients, wifi_flow_info &flow) {
    const int count = clients == nullptr ? 0 : wifi_get_interface_client_list(ifname, clients, most_clients);
    if (count > 0) flow.clients += static_cast<uint32_t>(count);
    uint64_t statistics[4] = {};  // received bytes and packets, sent bytes and packets
    if (sys_get_if_statistics(ifname, statistics) != 0) return;
    flow.received += statistics[0];
    flow.sent += statistics[2];
}

void ap_rfo_get_wifi_flow_info(int band, wifi_flow_info &flow) {
    const HeapPtr<WifiClientInfo> clients(
        static_cast<WifiClientInfo *>(std::calloc(most_clients, sizeof(WifiClientInfo))));
    const int count = ssid_count(band);
    for (int i = 0; i < count; ++i) {
        char ifname[radio_ifname_size];
        format_radio_ifname(ifname, band, i);
        if (wifi_check_interface_downup(ifname) == 0)
            RFO_DETAIL("%s in not up\n", ifname);
        else
            add_interface_flow(ifname, clients.get(), flow);
    }
}

// A counter that went down started over.
uint64_t grown_by(uint64_t now, uint64_t before) { return now < before ? now : now - before; }

bool carries_traffic(const BandPlan &plan) {
    wifi_flow_info now = {};
    ap_rfo_get_wifi_flow_info(plan.band, now);
    const uint64_t received = grown_by(now.received, plan.flow->received), sent = grown_by(now.sent, plan.flow->sent);
    const auto received_rate = static_cast<long long>(received / watch_seconds);
    const auto sent_rate = static_cast<long long>(sent / watch_seconds);
    if (received >= busy_bytes || sent >= busy_bytes) {
        RFO_TRACE("Packet flow >= %dKB/S, Rx_flow = %lld, Tx_flow = %lld!\n", busy_rate_kb, received_rate, sent_rate);
        return true;
    }
    RFO_TRACE("Rx_flow = %lld, Tx_flow = %lld!\n", received_rate, sent_rate);
    return false;
}

void decide_scheduled_switch(void *argument) {
    const auto &plan = *static_cast<const BandPlan *>(argument);
    ChannelSwitchResult result = {};
    if (carries_traffic(plan))
        result.*plan.result = switch_failed;
    else
        switch_band(plan, g_chan_cfg, result);
    rfo_chan_optmzCfg_result_handle(scheduled_callback, &result);
}

// Switches an unused radio at once; otherwise its timer decides, and its result stays 0 here.
void schedule_band(const BandPlan &plan, ChannelSwitchResult &result) {
    *plan.flow = {};
    ap_rfo_get_wifi_flow_info(plan.band, *plan.flow);
    if (plan.flow->clients == 0)
        switch_band(plan, g_chan_cfg, result);
    else if (holymsg_set_timeout(watch_seconds, decide_scheduled_switch, const_cast<BandPlan *>(&plan)) < 0)
        result.*plan.result = switch_failed;
}

void schedule_request(const unsigned char *request, rfo_callback callback, ChannelSwitchResult &result) {
    std::memcpy(g_chan_cfg, request, sizeof g_chan_cfg);
    scheduled_callback = callback;
    for (const auto &plan : band_plans) schedule_band(plan, result);
}

}  // namespace

}  // namespace ap

using namespace ap;

int rfo_chan_optmzCfg_result_handle(rfo_callback callback, struct ChannelSwitchResult *result) {
    unsigned char lan_mac[mac_size] = {};
    if (result == nullptr || !read_lan_mac(lan_mac)) return rfo_failure;
    format_mac(result->mac, lan_mac);
    RFO_TRACE("ap[%s] %d[%d/%d],%d[%d/%d],%d[%d/%d]\n", result->mac, result->result_24g, result->channel_24g,
              result->bandwidth_24g, result->result_5g, result->channel_5g, result->bandwidth_5g, result->result_third,
              result->channel_third, result->bandwidth_third);
    if (callback != nullptr) callback(result, sizeof *result);
    return rfo_success;
}

int set_ap_chan_optmzCfg(rfo_callback callback, const void *request) {
    if (request == nullptr) return RFO_ERROR("parameter fail\n"), rfo_failure;
    const auto *bytes = static_cast<const unsigned char *>(request);
    const bool immediate = bytes[0] == 0;
    RFO_TRACE("[%s] channel:%d,bandwidth:%d;5g channel:%d,bandwidth:%d\n", immediate ? "immediate" : "schedule",
              bytes[1], bytes[2], bytes[3], bytes[4]);

    ChannelSwitchResult result = {};
    if (immediate)
        for (const auto &plan : band_plans) switch_band(plan, bytes, result);
    else
        schedule_request(bytes, callback, result);
    return rfo_chan_optmzCfg_result_handle(callback, &result);
}
