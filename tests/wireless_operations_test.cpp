// wireless_operations_test.cpp: each operation over a scripted driver: the bytes that reach it, the results, the texts.

#include <cstdarg>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

#include "applatform/kernel_rules.h"
#include "applatform/message_bus.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_driver.h"

namespace {

using test::driver;
using Words = std::vector<int>;

std::string published, logged;
int publish_result;

struct Operation : testing::Test {
    void SetUp() override { driver = {}; }
};

}  // namespace

extern "C" {
int km_interface_isolate_enable(void) { return 41; }
int km_interface_isolate_disable(void) { return 42; }
int holymsg_publish(const char *topic, const void *data, unsigned int length) {
    published += std::string(topic) + "|" + std::string(static_cast<const char *>(data), length) + "\n";
    return publish_result;
}
void syslog(int priority, const char *format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    logged += std::to_string(priority) + " " + text + "\n";
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

TEST_F(Operation, ReadsChannelInformation) {
    int out[4] = {7, 7, 7, 7};
    driver.status = 1;
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), -1);
    EXPECT_EQ(Words(out, out + 4), (Words{0, 7, 7, 7}));
    driver.status = 0;
    driver.bandwidth = 80;
    driver.failing["info"] = {1};
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), -1);
    EXPECT_EQ(Words(out, out + 4), (Words{0, 7, 7, 7}));
    EXPECT_EQ(wifi_get_interface_chaninfo("wlan1.0", out), 0);
    EXPECT_EQ(Words(out, out + 4), (Words{1, 6, 80, 103}));
    EXPECT_EQ(driver.log, "osif osif info osif info ");
}

TEST_F(Operation, SendsRequestsAndTurnsDriverResultsIntoZeroOrFailure) {
    std::vector<uint8_t> description(sizeof(WifiPrivateIe));
    std::iota(description.begin(), description.end(), 1);
    WifiPrivateIe private_ie;
    std::memcpy(&private_ie, description.data(), sizeof private_ie);
    const int channel[2] = {149, 80};
    const unsigned char power[2] = {30, 17};
    for (const int result : {0, -1, 3}) {
        driver = {};
        driver.result = result;
        const int expected = result == 0 ? 0 : -1;
        EXPECT_EQ(wifi_interface_switch_chan("wlan1.0", channel), expected);
        EXPECT_EQ(driver.request, (std::vector<uint8_t>{149, 0, 0, 0, 5, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(wifi_interface_set_txpower("wlan1.0", power), 0);
        EXPECT_EQ(driver.request, (std::vector<uint8_t>{30, 17, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(wifi_interface_create_private_ie(&private_ie), expected);
        EXPECT_EQ(driver.request, description);
        EXPECT_EQ(wifi_interface_destory_private_ie(98), expected);
        EXPECT_EQ(wifi_interface_enable_private_ie(), expected);
        EXPECT_EQ(wifi_interface_disable_private_ie(), expected);
        EXPECT_EQ(driver.log, "switch power create destroy98 element1 element0 ");
    }
}

TEST_F(Operation, SetsTheScanRequestsWords) {
    const auto words = [](int target, unsigned int channel, int bandwidth) {
        driver.bandwidth = bandwidth;
        EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(wifi_interface_scan("wlan1", target, channel), 0); }),
                  "cur_channel.bandwidth:" + std::to_string(bandwidth) + "\n");
        EXPECT_EQ(std::vector(driver.request.begin() + 16, driver.request.end()), std::vector<uint8_t>(160 - 16));
        Words found(4);
        std::memcpy(found.data(), driver.request.data(), 16);
        return found;
    };
    EXPECT_EQ(words(0, 100, 80), (Words{0, 0, 0, 0}));
    EXPECT_EQ(words(0, 36, 160), (Words{0, 1, 1, 0}));
    EXPECT_EQ(words(7, 48, 20), (Words{0, 0, 1, 7}));
    EXPECT_EQ(words(7, 49, 20), (Words{0, 1, 1, 7}));
    EXPECT_EQ(words(7, 148, 20), (Words{0, 1, 1, 7}));
    EXPECT_EQ(words(7, 149, 20), (Words{0, 0, 1, 7}));
    EXPECT_EQ(words(7, 0xffffffff, 20), (Words{0, 0, 1, 7}));
    EXPECT_EQ(words(-7, 36, 160), (Words{0, 1, 1, -7}));
}

TEST_F(Operation, ScansFiveTimesASecondApart) {
    const std::string bandwidth = "cur_channel.bandwidth:20\n";
    std::string log, printed;
    for (int failures = 0; failures <= 5; ++failures) {
        driver = {};
        for (int time = 1; time <= failures; ++time) driver.failing["scan"].push_back(time);
        const bool fails = failures == 5;
        EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(wifi_interface_scan("wlan0", 0, 0), fails ? -1 : 0); }),
                  printed + (fails ? "wlan0 scan failed!\n" : bandwidth));
        EXPECT_EQ(driver.log, log + (fails ? "" : "info scan0 "));
        log += "info scan0 sleep1 ";
        printed += bandwidth;
    }
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(wifi_interface_scan(nullptr, 0, 0), -1); }), "null pointer!\n");
}

TEST_F(Operation, NamesTheWirelessServersTopics) {
    const char *topics[] = {"ugw.wserver.config_band_success", "ugw.wserver.config_band_fail",
                            "ugw.wserver.config_bbs_success", "ugw.wserver.config_bss_fail"};
    char out[64] = "unchanged";
    for (const int kind : {-1, 4}) EXPECT_EQ(wifi_get_subscribe_wserver_name(out, sizeof out, kind), 0);
    EXPECT_EQ(wifi_get_subscribe_wserver_name(out, 0, 0), 1);
    EXPECT_STREQ(out, "unchanged");
    EXPECT_EQ(wifi_get_subscribe_wserver_name(out, 8, 0), 1);
    EXPECT_EQ(std::string(out, 10), std::string("ugw.wse\0d\0", 10));
    for (int kind = 0; kind < 4; ++kind) {
        EXPECT_EQ(wifi_get_subscribe_wserver_name(out, sizeof out, kind), 1);
        EXPECT_STREQ(out, topics[kind]);
    }
}

TEST_F(Operation, SendsTextsToTheWirelessServer) {
    EXPECT_EQ(send_msg_to_wlan_server("{\"op\":1}"), 0);
    publish_result = 3;
    EXPECT_EQ(send_msg_to_wlan_server(""), 0);
    EXPECT_EQ(published, "ugw.wserver.message|{\"op\":1}\nugw.wserver.message|\n");
    EXPECT_EQ(logged, "");

    publish_result = -1;
    const std::string function = "\\[send_msg_to_wlan_server_to_ugw\\]\\[[0-9]+\\]";
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(send_msg_to_wlan_server("m"), -1); }),
                testing::MatchesRegex(function + "\\[m\\] publish WLAN_SERVER_MSG_TYPE failed!\n"));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(send_msg_to_wlan_server(nullptr), -1); }),
                testing::MatchesRegex(function + " data is NULL!\n"));
    EXPECT_EQ(logged, "1 [m] publish WLAN_SERVER_MSG_TYPE failed!\n1 data is NULL!\n");
}
