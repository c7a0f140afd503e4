// wireless_scan_test.cpp: records out of driver bytes, scan styles, surveys, retries, their sleeps and their texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_driver.h"

namespace {

constexpr char cache[] = "/var/sta_encode_ssid_cache";

using test::driver;
using Entry = test::HeardEntry;

struct Scan : testing::Test {
    void SetUp() override {
        driver = {};
        std::remove(cache);
        list = std::make_unique<WifiScanList>();
        std::memset(list.get(), 0xee, sizeof *list);
    }
    static inline std::unique_ptr<WifiScanList> list;
    static inline WifiSpectrum measured[1];

    static std::string ssids() {
        std::string all;
        for (int i = 0; i < list->count; ++i) all += std::string(list->records[i].ssid) + ",";
        return all;
    }
};

std::vector<Entry> many(size_t count) { return std::vector<Entry>(count, Entry{"n", "utf-8", {}, -50}); }

}  // namespace

TEST_F(Scan, ConvertsEntriesFieldByField) {
    const std::string long_ssid(48, 's');
    driver.entries[0] = {{"caf\xe9", "gb2312", {{64, 11}, {68, -2147483647}, {72, 2}}, -71},
                         {long_ssid, "nineteenbytes", {{72, 3}}, -32768},
                         {"", "gb2312x", {{72, 1}}, 3}};
    ASSERT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), 0);
    EXPECT_EQ(driver.log, "results ");
    ASSERT_EQ(list->count, 3);
    const WifiScanResult *r = list->records;
    EXPECT_STREQ(r[0].ssid, "caf\xe9");
    EXPECT_STREQ(r[0].encode, "gb2312");
    EXPECT_STREQ(r[0].bssid, "00:1a:ff:03:04:05");
    EXPECT_STREQ(r[0].num_a, "11");
    EXPECT_STREQ(r[0].num_b, "-214748");
    EXPECT_STREQ(r[0].sideband, "upper");
    EXPECT_STREQ(r[0].rssi, "-71");
    EXPECT_EQ(r[1].ssid, long_ssid);
    EXPECT_STREQ(r[1].encode, "ninetee");
    EXPECT_STREQ(r[1].sideband, "lower");
    EXPECT_STREQ(r[1].rssi, "-32768");
    EXPECT_STREQ(r[2].sideband, "none");
    const std::string unused(20, '\xee');
    EXPECT_EQ(std::string(r[0].reserved_0, 4) + std::string(r[0].reserved_79, 16), unused);

    ASSERT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), 0);
    EXPECT_EQ(test::read_text(cache), "\"caf\xe9\" gb2312\n\"caf\xe9\" gb2312\n");
    std::remove(cache);
    mkdir(cache, 0755);
    EXPECT_THAT(test::printed_by([] { wifi_interface_get_scanresults("wlan0", list.get()); }),
                testing::MatchesRegex("[a-z_]+ [0-9]+: fopen error: Is a directory\n"));
    rmdir(cache);
}

TEST_F(Scan, ReadsSecurityTexts) {
    const std::string psk_line = "Unsupported security type %, Set to WPAPSK/WPA2PSK.\n",
                      wpa_line = "Unsupported security type %, Set to WPA/WPA2.\n",
                      cipher_line = "Unsupported security crypto, Set to tkip&aes.\n";
    const struct {
        int head, psk, psk_cipher, enterprise, enterprise_cipher;
        const char *text;
        std::string printed;
    } cases[] = {
        {0, 0, 9, 0, 9, "none", ""},
        {-1, 2, 0, 2, 0, "wep", ""},
        {-2, 1, 1, 0, 0, "wpa-psk/tkip", ""},
        {0, 2, 0, 0, 1, "wpa2-psk/aes", ""},
        {0, 3, 2, 0, 0, "wpa-psk&wpa2-psk/tkip&aes", ""},
        {0, 4, 0, 0, 0, "wpa3/aes", ""},
        {0, 5, 0, 0, 0, "wpa2-psk&wpa3/aes", ""},
        {0, 6, 0, 0, 0, "owe/aes", ""},
        {0, 7, 0, 0, 0, "wpa-psk&wpa2-psk/aes", psk_line},
        {0, -1, 3, 0, 0, "wpa-psk&wpa2-psk/tkip&aes", psk_line + cipher_line},
        {0, 0, 0, 1, 1, "wpa/tkip", ""},
        {0, 0, 0, 2, 0, "wpa2/aes", ""},
        {0, 0, 0, 3, -1, "wpa&wpa2/tkip&aes", cipher_line},
        {0, 0, 0, 4, 0, "wpa&wpa2/aes", wpa_line},
        {0, 1, 0, 1, 0, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        driver.entries[0] = {{"n",
                              "utf-8",
                              {{76, c.head},
                               {76 + 132, c.psk},
                               {76 + 136, c.psk_cipher},
                               {76 + 212, c.enterprise},
                               {76 + 216, c.enterprise_cipher}},
                              0}};
        std::string printed = test::printed_by([] { wifi_interface_get_scanresults("wlan0", list.get()); });
        EXPECT_STREQ(list->records[0].security, c.text);
        std::string expected;
        for (size_t at = 0; (at = printed.find("]Unsupported")) != std::string::npos;) {
            expected += printed.substr(at + 1, printed.find('\n') - at);
            printed.erase(0, printed.find('\n') + 1);
        }
        const std::string type = std::to_string(c.enterprise != 0 ? c.enterprise : c.psk);
        std::string wanted = c.printed;
        if (const size_t at = wanted.find('%'); at != std::string::npos) wanted.replace(at, 1, type);
        EXPECT_EQ(expected, wanted);
    }
}

TEST_F(Scan, CutsTheEntryCount) {
    driver.entries[0] = many(256);
    for (const auto &[claimed, expected] :
         std::map<int, int>{{0, 0}, {255, 255}, {256, 256}, {257, 256}, {0x7fffffff, 256}}) {
        driver.claimed_entries = claimed;
        ASSERT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), 0);
        EXPECT_EQ(list->count, expected);
    }
    driver.failing["results"] = {6};
    EXPECT_THAT(
        test::printed_by([] { EXPECT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), -1); }),
        testing::MatchesRegex("wifi_interface_get_scanresults_by_ugw\\[[0-9]+\\] wlan0 uwb_get_scanresults error!\n"));
}

TEST_F(Scan, ChoosesItsStyleByNameChannelAndBandwidth) {
    const std::string full = "list scan0 sleep5 results ", each = "list scan36 sleep3 results1:36 ";
    driver.channels = {36};
    const struct {
        const char *ifname;
        int bandwidth;
        bool is_dfs, radar_fails;
        std::string log;
    } cases[] = {
        {"wlan0", 20, true, false, "info " + full},           {"wlan0", 160, false, false, "info " + each},
        {"wlan1", 80, false, false, "info radar52 " + full},  {"wlan1", 80, true, false, "info radar52 " + each},
        {"wlan2", 80, true, false, "info radar52 " + each},   {"wlan", 80, true, false, "info radar52 " + each},
        {"", 80, true, false, "info radar52 " + each},        {"wlan1.0", 80, true, false, "info " + full},
        {"wlan1", 160, false, false, "info radar52 " + each}, {"wlan1", 80, true, true, "info radar52 " + full},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ifname + std::string(" ") + std::to_string(c.bandwidth));
        driver.log.clear();
        driver.times.clear();
        driver.channel = 52;
        driver.bandwidth = c.bandwidth;
        driver.is_radar_channel = c.is_dfs;
        driver.failing["radar"] = c.radar_fails ? std::vector<int>{1} : std::vector<int>{};
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(wifi_interface_get_scan_results(c.ifname, list.get()), 0); });
        EXPECT_EQ(driver.log, c.log);
        EXPECT_THAT(printed,
                    testing::MatchesRegex(
                        c.radar_fails ? "wifi_current_chan_is_dfs\\([0-9]+\\) check dfs channel fail \n" : ""));
    }
}

TEST_F(Scan, JoinsTheChannelsOfASurvey) {
    driver.bandwidth = 160;
    driver.entries = {{36, {{"a"}, {"b"}}}, {52, {}}, {100, {{"c"}}}};
    EXPECT_EQ(wifi_interface_get_scan_results("wlan0", list.get()), 0);
    EXPECT_EQ(ssids(), "a,b,c,");

    // The count grows beyond what is kept; the rest of the records is empty.
    driver.entries = {{36, many(200)}, {52, many(56)}, {100, many(10)}};
    EXPECT_EQ(wifi_interface_get_scan_results("wlan0", list.get()), 0);
    ASSERT_EQ(list->count, 256);
    EXPECT_STREQ(list->records[199].ssid, "n");
    EXPECT_STREQ(list->records[200].ssid, "");
    EXPECT_STREQ(list->records[200].bssid, "00:00:00:00:00:00");

    driver.entries = {{36, many(200)}, {52, many(55)}, {100, {}}};
    EXPECT_EQ(wifi_interface_get_scan_results("wlan0", list.get()), 0);
    EXPECT_EQ(list->count, 255);
    EXPECT_STREQ(list->records[254].ssid, "n");
}

TEST_F(Scan, BySsidStopsBeforeTheBufferIsFull) {
    driver.bandwidth = 160;
    driver.entries = {{36, many(200)}, {52, many(55)}, {100, many(1)}};
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", "house", list.get()), 0);
    EXPECT_EQ(list->count, 255);
    EXPECT_EQ(driver.ssid, "house");
    EXPECT_EQ(driver.log, "info list scan36 sleep1 results1:36 scan52 sleep1 results1:52 "
                          "scan100 sleep1 results1:100 ");
    driver.log.clear();
    driver.entries[52] = many(56);
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", nullptr, list.get()), 0);
    EXPECT_EQ(list->count, 200);
    EXPECT_EQ(driver.ssid, "");
    EXPECT_EQ(driver.log.find("100"), std::string::npos);

    driver.bandwidth = 20;
    driver.log.clear();
    const std::string long_ssid(60, 'L');
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", long_ssid.c_str(), list.get()), 0);
    EXPECT_EQ(driver.ssid, long_ssid.substr(0, 49));
    EXPECT_EQ(driver.log, "info scan0 sleep5 results ");
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid(nullptr, "x", list.get()), -1);
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", "x", nullptr), -1);
}

TEST_F(Scan, MeasuresTheSpectrum) {
    const auto spectrum = [](int max) {
        WifiSpectrum out[4] = {};
        std::string text = std::to_string(wifi_interface_get_spectrum("wlan0", out, max));
        for (const auto &s : out) {
            if (s.channel == 0) break;
            text += " " + std::to_string(s.channel) + "/" + std::to_string(s.word_1) + "/" + std::to_string(s.word_3);
        }
        return text;
    };
    EXPECT_EQ(spectrum(4), "3 200/1/3 201/11/13 202/21/23");
    EXPECT_EQ(spectrum(2), "2 200/1/3 201/11/13");
    EXPECT_EQ(spectrum(0), "0");
    EXPECT_EQ(spectrum(-1), "0");
    driver.bandwidth = 160;
    EXPECT_EQ(spectrum(4), "3 36/361/363 52/521/523 100/1001/1003");
    driver.channels.assign(70, 1);
    std::vector<WifiSpectrum> out(80);
    EXPECT_EQ(wifi_interface_get_spectrum("wlan0", out.data(), 80), 64);
}

// What is printed, with "FUNCTION(LINE): " cut to the function's last two words.
static std::string short_lines(const std::string &printed) {
    return std::regex_replace(printed, std::regex("[a-z_]*?([a-z]+_[a-z]+)\\([0-9]+\\): "), "$1: ");
}

TEST_F(Scan, ReportsEachFailureAndRetriesAsItsKindDoes) {
    const auto survey = [] { return wifi_interface_get_scan_results("wlan0", list.get()); };
    const auto spectrum = [] { return wifi_interface_get_spectrum("wlan0", measured, 1); };
    const auto by_ssid = [] { return wifi_interface_get_scan_results_by_ssid("wlan0", "s", list.get()); };
    const struct {
        int (*call)();
        int bandwidth;
        const char *failing;
        std::vector<int> times;
        const char *log, *printed;
    } cases[] = {
        {survey, 20, "info", {1}, "info ", "by_ugw: wlan0 get channel info error!\n"},
        {survey, 20, "list", {1}, "info list ", "by_ugw: wlan0 get channel list fail \n"},
        {survey,
         20,
         "scan",
         {1},
         "info list scan0 ",
         "spectrum_scan: wlan0 channel get scan faild!\nby_ugw:  channel spectrum scan fail \n"},
        {survey,
         20,
         "results",
         {1},
         "info list scan0 sleep5 results ",
         "spectrum_scan: wlan0 channel get scanresult faild!\nby_ugw:  channel spectrum scan fail \n"},
        {survey,
         160,
         "scan",
         {2},
         "info list scan36 sleep3 results1:36 scan52 ",
         "spectrum_scan: wlan0 channel get scan faild!\nby_ugw: wlan0 dfs channel spectrum scan fail \n"},
        {survey,
         160,
         "results",
         {1},
         "info list scan36 sleep3 results1:36 ",
         "spectrum_scan: wlan0 channel get scanresult faild!\nby_ugw: wlan0 dfs channel spectrum scan fail \n"},
        {spectrum, 20, "list", {1}, "info list ", "by_ugw: wlan0 get channel list fail \n"},
        {spectrum,
         20,
         "scan",
         {1},
         "info list scan0 ",
         "spectrum_scan: wlan0 channel get scan faild!\nby_ugw:  channel spectrum scan fail \n"},
        {by_ssid, 20, "info", {1}, "info ", "by_ssid: wlan0 get channel info error!\n"},
        {by_ssid, 20, "scan", {1}, "info scan0 sleep2 scan0 sleep5 results ", ""},
        {by_ssid, 20, "scan", {1, 2}, "info scan0 sleep2 scan0 ", "by_ssid: wlan0 scan fail\n"},
        {by_ssid, 20, "results", {1}, "info scan0 sleep5 results sleep2 results ", ""},
        {by_ssid,
         20,
         "results",
         {1, 2},
         "info scan0 sleep5 results sleep2 results ",
         "by_ssid: wlan0 get_scanresults fail\n"},
        {by_ssid, 160, "list", {1}, "info list ", "by_ssid: wlan0 get channel list fail \n"},
        {by_ssid, 160, "scan", {1, 2}, "info list scan36 sleep1 scan36 ", "by_ssid: wlan0 uwb_scan fail \n"},
        {by_ssid,
         160,
         "results",
         {1, 2},
         "info list scan36 sleep1 results1:36 sleep1 results1:36 ",
         "by_ssid: wlan0 uwb_get_scanresults fail \n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.log);
        driver = {};
        driver.bandwidth = c.bandwidth;
        driver.failing[c.failing] = c.times;
        list->count = 99;
        const int expected = *c.printed == '\0' ? 0 : -1;
        EXPECT_EQ(short_lines(test::printed_by([&] { EXPECT_EQ(c.call(), expected); })), c.printed);
        EXPECT_EQ(driver.log, c.log);
        EXPECT_EQ(list->count, expected == 0 ? 0 : 99);
    }
}
