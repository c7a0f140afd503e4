// rfo_apply_test.cpp: channels, powers and scenes of the controller, applied at once and by schedule.

#include "tests/rfo_world.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

static std::map<std::string, int> wifi_ints;
static int api_messages, steered;

extern "C" {
int get_mib_prefix(char *out, unsigned int kind, int index) { return std::sprintf(out, "k%u.%d.", kind, index), 0; }
int wifi_set_int_value(const char *prefix, const char *name, int value) {
    int &stored = wifi_ints.emplace(std::string(prefix) + name, -1).first->second;
    return stored == value ? 0 : (stored = value, 1);
}
int ap_comm_set_steerd_lrssi_5(int dbm) { return prod_cfm_set_int_val("steerd.lrssi_5", steered = dbm); }
int ap_comm_send_msg_to_api(int message, const char *text) {
    EXPECT_EQ(message, 19);
    EXPECT_STREQ(text, "op=9");
    return ++api_messages, 77;
}
}

namespace {

ChannelSwitchResult result_at(size_t index) {
    ChannelSwitchResult result = {};
    EXPECT_EQ(test::records.at(index).size(), 27U);
    std::memcpy(&result, test::records[index].data(), sizeof result);
    return result;
}

int apply(std::initializer_list<unsigned char> request) {
    int code = 0;
    test::printed_by([&] { code = set_ap_chan_optmzCfg(test::keep_record, std::data(request)); });
    return code;
}

class Apply : public test::RfoTest {};

TEST_F(Apply, BandwidthsFollowTheWirelessMode) {
    const struct {
        const char *what;
        int band;
        const char *nettype;
        int requested, current, applied, result;
    } cases[] = {
        {"b takes 20", 24, "b", 20, 40, 20, 2},         {"g refuses 40", 24, "g", 40, 20, 20, 3},
        {"bg refuses 40", 24, "bg", 40, 20, 20, 3},     {"bg refuses its own 40", 24, "bg", 40, 40, 40, 3},
        {"bgn takes 40", 24, "bgn", 40, 20, 40, 2},     {"bgn refuses 80", 24, "bgn", 80, 20, 20, 3},
        {"ax takes 40", 24, "bgn+ax", 40, 20, 40, 2},   {"be refuses 160", 24, "bgn+ax+be", 160, 40, 40, 3},
        {"others take any", 24, "n", 80, 20, 80, 2},    {"a lowers 40", 5, "a", 40, 80, 20, 3},
        {"a lets 80 pass", 5, "a", 80, 20, 80, 2},      {"an lowers 80", 5, "an", 80, 20, 40, 3},
        {"an takes 40", 5, "an", 40, 20, 40, 2},        {"ac lowers 160", 5, "an+ac", 160, 80, 80, 3},
        {"ac takes 80", 5, "an+ac", 80, 20, 80, 2},     {"160 is never applied", 5, "an+ac+ax", 160, 160, 80, 3},
        {"not even as it is", 5, "a", 160, 160, 80, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        auto &radio = test::world->radios[c.band];
        radio.nettype = c.nettype;
        radio.bandwidth_mhz = c.current;
        const auto requested = static_cast<unsigned char>(c.requested);
        EXPECT_EQ(c.band == 24 ? apply({0, 11, requested, 36, 80}) : apply({0, 6, 20, 44, requested}), 2);
        const auto result = result_at(0);
        EXPECT_EQ(c.band == 24 ? result.result_24g : result.result_5g, c.result);
        EXPECT_EQ(c.band == 24 ? result.channel_24g : result.channel_5g, c.band == 24 ? 11 : 44);
        EXPECT_EQ(c.band == 24 ? result.bandwidth_24g : result.bandwidth_5g, c.applied);
    }
}

TEST_F(Apply, AnUnchangedChannelIsNotSwitchedButCommitted) {
    EXPECT_EQ(apply({0, 6, 20, 36, 80}), 2);
    EXPECT_THAT(test::world->calls, ElementsAre("set 24.channel=6", "set 24.bandwidth=20", "publish cloud.wifi.update",
                                                "set 5.channel=36", "set 5.bandwidth=80", "publish cloud.wifi.update"));
    EXPECT_EQ(test::store.commits, 2);
    const auto result = result_at(0);
    EXPECT_STREQ(result.mac, "02:00:00:00:00:01");
    EXPECT_THAT((std::vector<int>{result.result_24g, result.result_5g, result.result_third, result.channel_third,
                                  result.bandwidth_third}),
                ElementsAre(2, 2, 0, 0, 0));
}

TEST_F(Apply, RadiosThatCannotBeSwitchedSaySo) {
    test::world->radios[24].enable = 0;
    test::world->radios[5].answers = false;
    EXPECT_EQ(apply({0, 6, 20, 36, 80}), 2);
    const auto result = result_at(0);
    EXPECT_THAT((std::vector<int>{result.result_24g, result.channel_24g, result.result_5g, result.bandwidth_5g}),
                ElementsAre(1, 0, 1, 0));
    EXPECT_THAT(test::world->calls, IsEmpty());

    EXPECT_EQ(set_ap_chan_optmzCfg(test::keep_record, nullptr), 1);
    EXPECT_EQ(rfo_chan_optmzCfg_result_handle(test::keep_record, nullptr), 1);
    ChannelSwitchResult own = {};
    EXPECT_EQ(rfo_chan_optmzCfg_result_handle(nullptr, &own), 2);
    EXPECT_STREQ(own.mac, "02:00:00:00:00:01");
    test::world->has_lan_mac = false;
    EXPECT_EQ(apply({0, 6, 20, 36, 80}), 1);
    EXPECT_EQ(test::records.size(), 1U);
}

TEST_F(Apply, AScheduleSwitchesUnusedRadiosAtOnceAndWatchesTheOthers) {
    test::world->radios[24].clients = 1;
    EXPECT_EQ(apply({1, 11, 20, 44, 80}), 2);
    EXPECT_THAT((std::vector<int>(g_chan_cfg, g_chan_cfg + 5)), ElementsAre(1, 11, 20, 44, 80));
    const auto at_once = result_at(0);
    EXPECT_EQ(at_once.result_24g, 0) << "waits on its timer";
    EXPECT_EQ(at_once.result_5g, 2);
    EXPECT_EQ(test::world->calls.front(), "timer 30");
    EXPECT_EQ(flow_check_info_24g.clients, 2U) << "one client on each of two SSIDs";

    test::world->timer_result = -1;
    apply({1, 11, 20, 44, 80});
    EXPECT_EQ(result_at(1).result_24g, 1) << "without a timer nothing would ever decide";
}

TEST_F(Apply, TheTimerDecidesAtTheTrafficBoundary) {
    constexpr uint64_t limit = 5 * 1024 * 30, start = 1000;
    const struct {
        const char *what;
        uint64_t received, sent;
        int result;
    } cases[] = {
        {"idle", start, start, 2},
        {"one byte short", start + limit / 2 - 1, start, 2},
        {"received at the limit", start + limit / 2, start, 1},
        {"sent at the limit", start, start + limit / 2, 1},
        {"sent one byte short", start, start + limit / 2 - 1, 2},
        {"a counter that started over, quiet", limit / 2 - 1, start * 0, 2},
        {"a counter that started over, busy", start, limit, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        auto &radio = test::world->radios[24];
        radio = {1,
                 6,
                 20,
                 0,
                 1,
                 true,
                 true,
                 "bgn",
                 c.received < start ? limit * 9 : start,
                 c.sent < start ? limit * 9 : start,
                 {}};
        apply({1, 11, 20, 36, 80});
        radio.received = c.received;
        radio.sent = c.sent;
        ASSERT_EQ(test::world->timer_arguments.size(), 1U);
        test::printed_by([] { test::world->timer_handler(test::world->timer_arguments[0]); });
        const auto result = result_at(1);
        EXPECT_THAT((std::vector<int>{result.result_24g, result.channel_24g, result.result_5g, result.channel_5g}),
                    ElementsAre(c.result, c.result == 2 ? 11 : 0, 0, 0));
    }
}

TEST_F(Apply, PowersAreSetWhenTheyDiffer) {
    test::world->ints.insert(
        {{"24.power_compensate", 3}, {"24.maxpower", 260}, {"24.curpower", 17}, {"5.curpower", 10}});
    const struct {
        std::initializer_list<unsigned char> request;
        Words calls;
    } cases[] = {
        {{0, 0}, {}},
        {{20, 10}, {}},
        {{21, 0}, {"set 24.curpower=18", "power wlan0.0 4,18", "publish cloud.wifi.update"}},
        {{0, 12}, {"set 5.curpower=12", "power wlan1.0 0,12", "publish cloud.wifi.update"}},
    };
    for (const auto &c : cases) {
        test::world->calls.clear();
        test::store.commits = 0;
        set_ap_power_optmzCfg(std::data(c.request));
        EXPECT_EQ(test::world->calls, c.calls);
        EXPECT_EQ(test::store.commits, c.calls.empty() ? 0 : 1);
    }
    EXPECT_THAT(test::printed_by([] { set_ap_power_optmzCfg(nullptr); }), HasSubstr("parameter fail"));
}

std::string element(unsigned char type, const std::string &value) {
    return std::string{static_cast<char>(type), 0, static_cast<char>(value.size()), 0} + value;
}

int scene(std::initializer_list<std::string> elements) {
    std::string message = std::string("\x12\x34", 2) + static_cast<char>(elements.size()) + '\0';
    for (const auto &part : elements) message += part;
    std::vector<char> exact(message.begin(), message.end());
    return set_ap_scence_optmzCfg(exact.data());
}

TEST_F(Apply, ScenesStoreProtocolsAndThresholds) {
    wifi_ints.clear();
    const struct {
        char protocols;
        const char *list;
    } cases[] = {
        {0, ""},
        {1, "11k"},
        {2, ";11v"},
        {4, ";11r"},
        {6, ";11v;11r"},
        {7, "11k;11v;11r"},
        {static_cast<char>(0xF8), ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.list);
        test::store.values["kvr_enable_str"] = "before";
        api_messages = 0;
        EXPECT_EQ(scene({element(9, "unknown"), element(1, std::string{c.protocols, 70, 65, 75, 60})}), 77);
        EXPECT_EQ(test::store.values["kvr_enable_str"], c.list);
        for (const char *ssid : {"k3.0.", "k3.1.", "k5.0.", "k5.1."}) {
            EXPECT_EQ(wifi_ints[std::string(ssid) + "bss_dot11k"], c.protocols & 1);
            EXPECT_EQ(wifi_ints[std::string(ssid) + "bss_dot11v"], c.protocols >> 1 & 1);
            EXPECT_EQ(wifi_ints[std::string(ssid) + "bss_dot11r"], c.protocols >> 2 & 1);
        }
        EXPECT_EQ(wifi_ints.size(), 12U);
        EXPECT_EQ(api_messages, 1);
    }
    EXPECT_EQ(test::store.values["steerd.lrssi_2"], "-70");
    EXPECT_EQ(test::store.values["steerd.band_safe_rssi_5"], "-65");
    EXPECT_EQ(steered, -75);
    EXPECT_EQ(test::store.values["steerd.ap_safe_rssi_5"], "-60");
}

TEST_F(Apply, AnUnchangedSceneCommitsNothing) {
    wifi_ints.clear();
    const std::string steering = element(1, std::string{7, 70, 65, 75, 60});
    test::store.commit_result = 0;
    EXPECT_EQ(scene({steering}), 0) << "a failed commit is the result";
    const int commits = test::store.commits;
    api_messages = 0;
    EXPECT_EQ(scene({steering, element(2, ""), element(1, "abcd")}), 0);
    EXPECT_EQ(scene({}), 0);
    EXPECT_EQ(test::store.commits, commits);
    EXPECT_EQ(api_messages, 0);
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(set_ap_scence_optmzCfg(nullptr), 0); }),
                HasSubstr("recv msg is NULL."));
}

}  // namespace
