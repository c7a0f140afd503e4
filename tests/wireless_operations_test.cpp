// wireless_operations_test.cpp: each operation over a scripted driver: the bytes that reach it, the results, the texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "applatform/kernel_rules.h"
#include "applatform/message_bus.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_driver.h"

namespace {

using test::driver;
using Words = std::vector<int>;

// The request's words that are not 0, by their index.
std::map<size_t, int> set_words() {
    std::map<size_t, int> words;
    for (size_t i = 0; i + 4 <= driver.request.size(); i += 4)
        if (const int word = ap::load_le<int>(&driver.request[i])) words[i / 4] = word;
    return words;
}

std::vector<std::string> published;
int publish_result;

struct Operation : testing::Test {
    void SetUp() override { driver = {}; }
};

}  // namespace

extern "C" {
int km_interface_isolate_enable(void) { return 41; }
int km_interface_isolate_disable(void) { return 42; }
int holymsg_publish(const char *topic, const void *data, unsigned int length) {
    published.push_back(std::string(topic) + "|" + std::string(static_cast<const char *>(data), length));
    return publish_result;
}
}

TEST_F(Operation, PassesNamesStatesAndResultsOn) {
    char name[64] = {};
    driver.result = 9;
    EXPECT_EQ(wifi_get_osifname("wlan0.0", name), 9);
    EXPECT_STREQ(name, "os-wlan0.0");
    EXPECT_EQ(get_client_assoc_ifname("wlan0.1", name), 0);
    EXPECT_STREQ(name, "wlan0.1");
    EXPECT_EQ(wifi_get_extend_status("wlan0"), -1);
    driver.result = 0;
    EXPECT_EQ(wifi_get_extend_status("wlan0"), -3);
    for (const int status : {0, 1, -1}) {
        driver.status = status;
        EXPECT_EQ(wifi_check_interface_downup("wlan0"), status == 0 ? 1 : 0);
    }
    EXPECT_EQ(wifi_common_isolate_data_filling(nullptr, nullptr), 0);
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(wifi_guest_isolate_enable(), 41); }),
              "wifi_guest_isolate_enable_by_ugw\n");
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(wifi_guest_isolate_disable(), 42); }),
              "wifi_guest_isolate_disable_by_ugw\n");
}

TEST_F(Operation, CountsClients) {
    const struct {
        const char *what;
        int result, stations, extra, expected;
    } cases[] = {
        {"some", 0, 5, 0, 5},      {"a full buffer", 0, 128, 0, 128}, {"more than the buffer", 0, 128, 1, 128},
        {"nonsense", 0, 0, -1, 0}, {"a failure", -1, 7, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver = {};
        driver.result = c.result;
        driver.stations["wlan0.0"].resize(static_cast<size_t>(c.stations));
        driver.extra_stations = c.extra;
        EXPECT_EQ(wifi_get_interface_client_num("wlan0.0"), c.expected);
        EXPECT_EQ(driver.log, "osif stations0/128 ");
    }
}

TEST_F(Operation, ReadsChannelInformation) {
    int out[4] = {7, 7, 7, 7};
    driver.bandwidth = 80;
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), 0);
    EXPECT_EQ(Words(out, out + 4), (Words{1, 6, 80, 103}));

    Words before{7, 7, 7, 7};
    driver.result = -1;
    std::copy(before.begin(), before.end(), out);
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), -1);
    EXPECT_EQ(Words(out, out + 4), before);
    driver.status = 1;
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), -1);
    EXPECT_EQ(Words(out, out + 4), (Words{0, 7, 7, 7}));
}

TEST_F(Operation, SendsChannelPowerAndPrivateElementRequests) {
    const int channel[2] = {149, 80};
    EXPECT_EQ(wifi_interface_switch_chan("wlan1.0", channel), 0);
    EXPECT_EQ(set_words(), (std::map<size_t, int>{{0, 149}, {1, 5}, {2, 80}}));
    const unsigned char power[2] = {30, 17};
    driver.result = -1;
    EXPECT_EQ(wifi_interface_switch_chan("wlan1.0", channel), -1);
    EXPECT_EQ(wifi_interface_set_txpower("wlan1.0", power), 0);
    EXPECT_EQ(driver.request, (std::vector<uint8_t>{30, 17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));

    WifiPrivateIe description;
    std::memset(&description, 0xee, sizeof description);
    description.port = 98;
    description.max_length = 0x01020304;
    EXPECT_EQ(wifi_interface_create_private_ie(&description), -1);
    std::vector<uint8_t> expected(96, 0xee);
    expected[0] = 98;
    for (size_t i = 0; i < 4; ++i) expected[52 + i] = static_cast<uint8_t>(4 - i);
    EXPECT_EQ(driver.request, expected);
}

TEST_F(Operation, TurnsDriverResultsOfPrivateElementsIntoZeroOrFailure) {
    const WifiPrivateIe description = {};
    for (const int result : {0, -1, 3}) {
        driver = {};
        driver.result = result;
        const int expected = result == 0 ? 0 : -1;
        EXPECT_EQ(wifi_interface_create_private_ie(&description), expected);
        EXPECT_EQ(wifi_interface_destory_private_ie(98), expected);
        EXPECT_EQ(wifi_interface_enable_private_ie(), expected);
        EXPECT_EQ(wifi_interface_disable_private_ie(), expected);
        EXPECT_EQ(driver.log, "create destroy98 element1 element0 ");
    }
}

TEST_F(Operation, SetsTheScanRequestsWords) {
    const struct {
        const char *what;
        int target;
        unsigned int channel;
        int bandwidth;
        std::map<size_t, int> words;
    } cases[] = {
        {"no target", 0, 100, 80, {}},
        {"no target at 160 MHz", 0, 36, 160, {{1, 1}, {2, 1}}},
        {"channel 48", 7, 48, 20, {{2, 1}, {3, 7}}},
        {"channel 49", 7, 49, 20, {{1, 1}, {2, 1}, {3, 7}}},
        {"channel 148", 7, 148, 20, {{1, 1}, {2, 1}, {3, 7}}},
        {"channel 149", 7, 149, 20, {{2, 1}, {3, 7}}},
        {"a channel below 0", 7, 0xffffffff, 20, {{2, 1}, {3, 7}}},
        {"a target at 160 MHz", -7, 36, 160, {{1, 1}, {2, 1}, {3, -7}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver.bandwidth = c.bandwidth;
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(wifi_interface_scan("wlan1", c.target, c.channel), 0); });
        EXPECT_EQ(printed, "cur_channel.bandwidth:" + std::to_string(c.bandwidth) + "\n");
        EXPECT_EQ(driver.request.size(), 160u);
        EXPECT_EQ(set_words(), c.words);
    }
}

TEST_F(Operation, ScansFiveTimesASecondApart) {
    const struct {
        Words failing;
        int result;
        const char *log, *printed;
    } cases[] = {
        {{1, 2, 3, 4}, 0, "info scan0 sleep1 info scan0 sleep1 info scan0 sleep1 info scan0 sleep1 info scan0 ", ""},
        {{1, 2, 3, 4, 5},
         -1,
         "info scan0 sleep1 info scan0 sleep1 info scan0 sleep1 info scan0 sleep1 info scan0 sleep1 ",
         "wlan0 scan failed!\n"},
    };
    for (const auto &c : cases) {
        driver = {};
        driver.failing["scan"] = c.failing;
        const std::string printed = test::printed_by([&] { EXPECT_EQ(wifi_interface_scan("wlan0", 0, 0), c.result); });
        EXPECT_EQ(driver.log, c.log);
        EXPECT_THAT(printed, testing::EndsWith("cur_channel.bandwidth:20\n" + std::string(c.printed)));
    }
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(wifi_interface_scan(nullptr, 0, 0), -1); }), "null pointer!\n");
}

TEST_F(Operation, NamesTheWirelessServersTopics) {
    const char *topics[] = {"ugw.wserver.config_band_success", "ugw.wserver.config_band_fail",
                            "ugw.wserver.config_bbs_success", "ugw.wserver.config_bss_fail"};
    for (int kind = 0; kind < 4; ++kind) {
        char out[64];
        EXPECT_EQ(wifi_get_subscribe_wserver_name(out, sizeof out, kind), 1);
        EXPECT_STREQ(out, topics[kind]);
    }
    char out[12] = "unchanged__";
    for (const int kind : {-1, 4}) EXPECT_EQ(wifi_get_subscribe_wserver_name(out, 8, kind), 0);
    EXPECT_EQ(wifi_get_subscribe_wserver_name(out, 0, 0), 1);
    EXPECT_STREQ(out, "unchanged__");
    EXPECT_EQ(wifi_get_subscribe_wserver_name(out, 8, 0), 1);
    EXPECT_EQ(std::string(out, sizeof out), std::string("ugw.wse\0d__\0", 12));
}

TEST_F(Operation, SendsTextsToTheWirelessServer) {
    EXPECT_EQ(send_msg_to_wlan_server("{\"op\":1}"), 0);
    publish_result = 3;
    EXPECT_EQ(send_msg_to_wlan_server(""), 0);
    EXPECT_EQ(published, (std::vector<std::string>{"ugw.wserver.message|{\"op\":1}", "ugw.wserver.message|"}));

    publish_result = -1;
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(send_msg_to_wlan_server("m"), -1); }),
                testing::MatchesRegex(
                    "\\[send_msg_to_wlan_server_to_ugw\\]\\[[0-9]+\\]\\[m\\] publish WLAN_SERVER_MSG_TYPE failed!\n"));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(send_msg_to_wlan_server(nullptr), -1); }),
                testing::MatchesRegex("\\[send_msg_to_wlan_server_to_ugw\\]\\[[0-9]+\\] data is NULL!\n"));
}
