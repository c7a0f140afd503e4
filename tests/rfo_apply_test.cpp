// rfo_apply_test.cpp: channels, powers and scenes of the controller, applied at once and by schedule.

#include "tests/rfo_world.h"

using test::Words;
using Request = std::vector<unsigned char>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

static int api_messages;
int ap_comm_send_msg_to_api(int message, const char *text) {
    EXPECT_EQ(message, 19);
    EXPECT_STREQ(text, "op=9");
    return ++api_messages, 77;
}

namespace {

// Of a 27-byte result: what became of 2.4 GHz, channel and bandwidth, then the same of 5 GHz.
std::vector<int> result_at(size_t index) {
    ChannelSwitchResult r = {};
    EXPECT_EQ(test::records.at(index).size(), sizeof r);
    std::memcpy(&r, test::records[index].data(), sizeof r);
    return {r.result_24g, r.channel_24g, r.bandwidth_24g, r.result_5g, r.channel_5g, r.bandwidth_5g};
}

int apply(const Request &request) {
    int code = 0;
    test::printed_by([&] { code = set_ap_chan_optmzCfg(test::keep_record, request.data()); });
    return code;
}

class Apply : public test::RfoTest {};

TEST_F(Apply, BandwidthsFollowTheWirelessMode) {
    const struct {
        int band;
        const char *nettype;
        int requested, current, applied, result;
    } cases[] = {
        {24, "b", 20, 40, 20, 2},      {24, "g", 40, 20, 20, 3},          {24, "bg", 40, 20, 20, 3},
        {24, "bg", 40, 40, 40, 3},     {24, "bgn", 40, 20, 40, 2},        {24, "bgn", 80, 20, 20, 3},
        {24, "bgn+ax", 40, 20, 40, 2}, {24, "bgn+ax+be", 160, 40, 40, 3}, {24, "n", 80, 20, 80, 2},
        {5, "a", 40, 80, 20, 3},       {5, "a", 80, 20, 80, 2},           {5, "a", 160, 160, 80, 3},
        {5, "an", 80, 20, 40, 3},      {5, "an", 40, 20, 40, 2},          {5, "an+ac", 160, 80, 80, 3},
        {5, "an+ac", 80, 20, 80, 2},   {5, "an+ac+ax", 160, 160, 80, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.nettype << " takes " << c.requested);
        SetUp();
        const bool is_24g = c.band == 24;
        test::world->values[is_24g ? "r24.nettype" : "r5.nettype"] = c.nettype;
        test::world->radios[c.band].bandwidth_mhz = c.current;
        const auto requested = static_cast<unsigned char>(c.requested);
        EXPECT_EQ(apply(is_24g ? Request{0, 11, requested, 36, 80} : Request{0, 6, 20, 44, requested}), 2);
        EXPECT_THAT(test::world->calls, testing::Contains(is_24g ? "switch wlan0.0" + test::words(11, c.applied)
                                                                 : "switch wlan1.1" + test::words(44, c.applied)));
        EXPECT_EQ(result_at(0), is_24g ? (std::vector{c.result, 11, c.applied, 2, 36, 80})
                                       : (std::vector{2, 6, 20, c.result, 44, c.applied}));
    }
}

TEST_F(Apply, AnUnchangedChannelIsNotSwitchedButCommitted) {
    EXPECT_EQ(apply({0, 6, 20, 36, 80}), 2);
    EXPECT_THAT(test::world->calls,
                ElementsAre("set r24.channel=6", "set r24.bandwidth=20", "publish cloud.wifi.update", "commit",
                            "set r5.channel=36", "set r5.bandwidth=80", "publish cloud.wifi.update", "commit"));
    EXPECT_EQ(test::records.at(0), "02:00:00:00:00:01" + std::string("\0\2\2\0\x06\x14\x24\x50\0\0", 10));
}

TEST_F(Apply, RadiosThatCannotBeSwitchedSaySo) {
    test::world->values["r24.enable"] = "0";
    test::world->radios[5].answers = false;
    EXPECT_EQ(apply({0, 6, 20, 36, 80}), 2);
    EXPECT_THAT(result_at(0), ElementsAre(1, 0, 0, 1, 0, 0));
    EXPECT_THAT(test::world->calls, IsEmpty());

    test::printed_by([] { EXPECT_EQ(set_ap_chan_optmzCfg(test::keep_record, nullptr), 1); });
    EXPECT_EQ(rfo_chan_optmzCfg_result_handle(test::keep_record, nullptr), 1);
    ChannelSwitchResult own = {};
    EXPECT_EQ(rfo_chan_optmzCfg_result_handle(nullptr, &own), 2);
    EXPECT_STREQ(own.mac, "02:00:00:00:00:01");
    test::world->fails["LAN MAC"] = 1;
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(rfo_chan_optmzCfg_result_handle(test::keep_record, &own), 1); }),
                HasSubstr("rfo_chan_optmzCfg_result_: get lan ifname fail\n"));
    EXPECT_EQ(test::records.size(), 1U);
}

TEST_F(Apply, AScheduleSwitchesUnusedRadiosAtOnceAndWatchesTheOthers) {
    test::world->radios[24].clients = 1;
    EXPECT_EQ(apply({1, 11, 20, 44, 80}), 2);
    EXPECT_THAT(g_chan_cfg, ElementsAre(1, 11, 20, 44, 80));
    EXPECT_THAT(result_at(0), ElementsAre(0, 0, 0, 2, 44, 80)) << "2.4 GHz waits on its timer";
    EXPECT_EQ(test::world->calls.front(), "timer 30");
    EXPECT_EQ(flow_check_info_24g.clients, 2U) << "one client on each of two SSIDs";

    test::world->fails["timer"] = 1;
    apply({1, 11, 20, 44, 80});
    EXPECT_EQ(result_at(1)[0], 1) << "without a timer nothing would ever decide";
}

TEST_F(Apply, TheTimerDecidesAtTheTrafficBoundary) {
    constexpr uint64_t limit = uint64_t{5} * 1024 * 30, start = 1000,
                       high = limit * 9;  // from high on a counter starts over
    const struct {
        uint64_t received_before, received, sent_before, sent;
        bool is_busy;
        const char *line;
    } cases[] = {
        {start, start, start, start, false, ": Rx_flow = 0, Tx_flow = 0!\n"},
        {start, start + limit - 1, start, start, false, ": Rx_flow = 5119, Tx_flow = 0!\n"},
        {start, start + limit, start, start, true, ": Packet flow >= 5KB/S, Rx_flow = 5120, Tx_flow = 0!\n"},
        {start, start, start, start + limit - 1, false, ": Rx_flow = 0, Tx_flow = 5119!\n"},
        {start, start, start, start + limit, true, ": Packet flow >= 5KB/S, Rx_flow = 0, Tx_flow = 5120!\n"},
        {high, limit - 1, high, 0, false, ": Rx_flow = 5119, Tx_flow = 0!\n"},
        {start, start, high, limit, true, ": Packet flow >= 5KB/S, Rx_flow = 0, Tx_flow = 5120!\n"},
    };
    set_dbg_level("rfo", 3);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        SetUp();
        test::world->values["r24.web_maxbss"] = "1";
        auto &radio = test::world->radios[24];
        radio.clients = 1;
        radio.received = c.received_before;
        radio.sent = c.sent_before;
        apply({1, 11, 20, 36, 80});
        radio.received = c.received;
        radio.sent = c.sent;
        ASSERT_EQ(test::world->timers.size(), 1U);
        const auto timer = test::world->timers[0];
        EXPECT_THAT(test::printed_by([&] { timer.first(timer.second); }), HasSubstr(c.line));
        EXPECT_EQ(result_at(1), c.is_busy ? (std::vector{1, 0, 0, 0, 0, 0}) : (std::vector{2, 11, 20, 0, 0, 0}));
    }
    set_dbg_level("rfo", 0);
}

TEST_F(Apply, PowersAreSetWhenTheyDiffer) {
    test::world->values.insert(
        {{"r24.power_compensate", "3"}, {"r24.maxpower", "260"}, {"r24.curpower", "17"}, {"r5.curpower", "10"}});
    const struct {
        Request request;
        Words calls;
    } cases[] = {
        {{0, 0}, {}},
        {{20, 10}, {}},
        {{21, 0}, {"set r24.curpower=18", "power wlan0.0 4 18", "publish cloud.wifi.update", "commit"}},
        {{0, 12}, {"set r5.curpower=12", "power wlan1.0 0 12", "publish cloud.wifi.update", "commit"}},
    };
    for (const auto &c : cases) {
        test::world->calls.clear();
        set_ap_power_optmzCfg(c.request.data());
        EXPECT_EQ(test::world->calls, c.calls);
    }
    EXPECT_THAT(test::printed_by([] { set_ap_power_optmzCfg(nullptr); }), HasSubstr("parameter fail"));
}

std::string element(unsigned char type, const std::string &value) {
    return std::string{static_cast<char>(type), 0, static_cast<char>(value.size()), 0} + value;
}

int scene(std::initializer_list<std::string> elements) {
    std::string message = std::string("\x12\x34", 2) + static_cast<char>(elements.size()) + '\0';
    for (const auto &part : elements) message += part;
    const std::vector<char> exact(message.begin(), message.end());
    return set_ap_scence_optmzCfg(exact.data());
}

TEST_F(Apply, ScenesAreStoredInOrderAndCommittedWhenTheyChangeSomething) {
    const std::string steering = element(1, {6, 70, 65, 75, 60});
    EXPECT_EQ(scene({element(9, "unknown"), steering, element(1, "abcd")}), 77);
    EXPECT_THAT(test::world->calls,
                ElementsAre("set kvr_enable_str=;11v;11r", "set s24_0.bss_dot11k=0", "set s24_0.bss_dot11v=1",
                            "set s24_0.bss_dot11r=1", "set s24_1.bss_dot11k=0", "set s24_1.bss_dot11v=1",
                            "set s24_1.bss_dot11r=1", "set s5_0.bss_dot11k=0", "set s5_0.bss_dot11v=1",
                            "set s5_0.bss_dot11r=1", "set s5_1.bss_dot11k=0", "set s5_1.bss_dot11v=1",
                            "set s5_1.bss_dot11r=1", "set steerd.lrssi_2=-70", "set steerd.lrssi_5=-75",
                            "set steerd.band_safe_rssi_5=-65", "set steerd.ap_safe_rssi_5=-60", "commit"));
    test::world->calls.clear();
    EXPECT_EQ(scene({steering}) + scene({}), 0);
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(set_ap_scence_optmzCfg(nullptr), 0); }),
                HasSubstr("recv msg is NULL."));
    EXPECT_THAT(test::world->calls, IsEmpty());
    test::world->commit_result = 0;
    EXPECT_EQ(scene({element(1, {0, 70, 65, 75, 60})}), 0) << "a failed commit is the result";
    EXPECT_EQ(test::world->values["kvr_enable_str"], "");
    EXPECT_EQ(api_messages, 1);
}

}  // namespace
