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
using testing::HasSubstr;
using testing::MatchesRegex;
using Entry = test::HeardEntry;

struct Scan : testing::Test {
    void SetUp() override {
        driver = {};
        std::remove(cache);
        list = std::make_unique<WifiScanList>();
        std::memset(list.get(), 0xee, sizeof *list);
    }
    static inline std::unique_ptr<WifiScanList> list;
};

std::vector<Entry> many(size_t count, const char *ssid = "n") { return std::vector<Entry>(count, Entry{ssid}); }

// A record's texts but for the security.
std::string text_of(const WifiScanResult &r) {
    std::string text;
    for (const char *field : {r.ssid, r.encode, r.bssid, r.num_a, r.num_b, r.sideband, r.rssi})
        text += field + std::string("|");
    return text;
}

// What is printed, without the functions and lines that are named in front.
std::string without_places(const std::string &printed) {
    return std::regex_replace(printed, std::regex("\\[?[a-z_]+\\]?[(\\[][0-9]+[)\\]](: )?"), "");
}

}  // namespace

TEST_F(Scan, ConvertsEntriesFieldByField) {
    const std::string long_ssid(48, 's');
    driver.entries[0] = {{"caf\xe9", "gb2312", {{64, 11}, {68, -2147483647}, {72, 2}}, -71},
                         {long_ssid, "nineteenbytes", {{72, 3}}, -32768},
                         {"", "gb2312x", {{72, 1}}, 3}};
    for (int i = 0; i < 2; ++i) ASSERT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), 0);
    EXPECT_EQ(driver.log, "results results ");
    ASSERT_EQ(list->count, 3);
    const WifiScanResult *r = list->records;
    EXPECT_EQ(text_of(r[0]), "caf\xe9|gb2312|00:1a:ff:03:04:05|11|-214748|upper|-71|");
    EXPECT_EQ(text_of(r[1]), long_ssid + "|ninetee|00:1a:ff:03:04:05|0|0|lower|-32768|");
    EXPECT_EQ(text_of(r[2]), "|gb2312x|00:1a:ff:03:04:05|0|0|none|3|");
    EXPECT_EQ(std::string(r[0].reserved_0, 4) + std::string(r[0].reserved_79, 16), std::string(20, '\xee'));

    EXPECT_EQ(test::read_text(cache), "\"caf\xe9\" gb2312\n\"caf\xe9\" gb2312\n");
    std::remove(cache);
    mkdir(cache, 0755);
    EXPECT_THAT(test::printed_by([] { wifi_interface_get_scanresults("wlan0", list.get()); }),
                MatchesRegex("[a-z_]+ [0-9]+: fopen error: Is a directory\n"));
    rmdir(cache);
}

TEST_F(Scan, ReadsSecurityTexts) {
    const std::string type_line = "Unsupported security type ",
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
        {0, 7, 0, 0, 0, "wpa-psk&wpa2-psk/aes", type_line + "7, Set to WPAPSK/WPA2PSK.\n"},
        {0, -1, 3, 0, 0, "wpa-psk&wpa2-psk/tkip&aes", type_line + "-1, Set to WPAPSK/WPA2PSK.\n" + cipher_line},
        {0, 0, 0, 1, 1, "wpa/tkip", ""},
        {0, 0, 0, 2, 0, "wpa2/aes", ""},
        {0, 0, 0, 3, -1, "wpa&wpa2/tkip&aes", cipher_line},
        {0, 0, 0, 4, 0, "wpa&wpa2/aes", type_line + "4, Set to WPA/WPA2.\n"},
        {0, 1, 0, 1, 0, "", ""},
    };
    for (const auto &c : cases) {
        Entry entry{"n"};
        entry.words = {
            {76, c.head}, {208, c.psk}, {212, c.psk_cipher}, {288, c.enterprise}, {292, c.enterprise_cipher}};
        driver.entries[0] = {entry};
        EXPECT_EQ(without_places(test::printed_by([] { wifi_interface_get_scanresults("wlan0", list.get()); })),
                  c.printed);
        EXPECT_STREQ(list->records[0].security, c.text);
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
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), -1); }),
                MatchesRegex("wifi_interface_get_scanresults_by_ugw\\[[0-9]+\\] wlan0 uwb_get_scanresults error!\n"));
}

TEST_F(Scan, ChoosesItsStyleByNameChannelAndBandwidth) {
    const auto asked = [](const char *ifname, int bandwidth, bool is_dfs, const char *printed = "") {
        driver.log.clear();
        driver.channel = 52;
        driver.channels = {36};
        driver.bandwidth = bandwidth;
        driver.is_radar_channel = is_dfs;
        EXPECT_EQ(without_places(
                      test::printed_by([&] { EXPECT_EQ(wifi_interface_get_scan_results(ifname, list.get()), 0); })),
                  printed);
        return driver.log;
    };
    const std::string full = "list scan0 sleep5 results ", each = "list scan36 sleep3 results1:36 ";
    EXPECT_EQ(asked("wlan0", 20, true), "info " + full);
    EXPECT_EQ(asked("wlan0", 160, false), "info " + each);
    EXPECT_EQ(asked("wlan1.0", 80, true), "info " + full);
    EXPECT_EQ(asked("wlan1", 80, false), "info radar52 " + full);
    EXPECT_EQ(asked("wlan1", 160, false), "info radar52 " + each);
    for (const char *ifname : {"wlan1", "wlan2", "wlan", ""})
        EXPECT_EQ(asked(ifname, 80, true), "info radar52 " + each);
    driver.failing["radar"] = {driver.times["radar"] + 1};
    EXPECT_EQ(asked("wlan1", 80, true, " check dfs channel fail \n"), "info radar52 " + full);
}

// Beyond the buffer's room the count grows on and is cut at the end; the records behind what was kept are empty.
TEST_F(Scan, JoinsTheChannelsOfASurvey) {
    driver.bandwidth = 160;
    const struct {
        size_t on_36, on_52, on_100;
        int count, kept;
        const char *last;
    } cases[] = {
        {2, 0, 1, 3, 3, "c"}, {200, 55, 0, 255, 255, "b"}, {200, 56, 10, 256, 200, "a"}, {200, 56, 0, 256, 200, "a"}};
    for (const auto &c : cases) {
        driver.entries = {{36, many(c.on_36, "a")}, {52, many(c.on_52, "b")}, {100, many(c.on_100, "c")}};
        EXPECT_EQ(wifi_interface_get_scan_results("wlan0", list.get()), 0);
        ASSERT_EQ(list->count, c.count);
        EXPECT_STREQ(list->records[0].ssid, "a");
        EXPECT_STREQ(list->records[c.kept - 1].ssid, c.last);
        for (int i = c.kept; i < c.count; ++i) EXPECT_EQ(text_of(list->records[i]), "||00:00:00:00:00:00|0|0|none|0|");
    }
}

TEST_F(Scan, BySsidStopsBeforeTheBufferIsFull) {
    const auto asked = [](const char *ssid, int bandwidth, size_t on_52) {
        driver = {};
        driver.bandwidth = bandwidth;
        driver.entries = {{0, many(3)}, {36, many(200)}, {52, many(on_52)}};
        EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", ssid, list.get()), 0);
        return driver.ssid + ": " + driver.log + std::to_string(list->count);
    };
    const std::string long_ssid(60, 'L'), two = "info list scan36 sleep1 results1:36 scan52 sleep1 results1:52 ";
    EXPECT_EQ(asked("house", 160, 55), "house: " + two + "scan100 sleep1 results1:100 255");
    EXPECT_EQ(asked(nullptr, 160, 56), ": " + two + "200");
    EXPECT_EQ(asked(long_ssid.c_str(), 20, 0), long_ssid.substr(0, 49) + ": info scan0 sleep5 results 3");
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid(nullptr, "x", list.get()), -1);
    EXPECT_EQ(wifi_interface_get_scan_results_by_ssid("wlan0", "x", nullptr), -1);
}

TEST_F(Scan, MeasuresTheSpectrum) {
    const auto spectrum = [](int max) {
        std::vector<WifiSpectrum> out(80);
        const int count = wifi_interface_get_spectrum("wlan0", out.data(), max);
        std::string text = std::to_string(count);
        for (size_t at = 0; at < 3 && static_cast<int>(at) < count; ++at)
            for (const uint32_t word : {out[at].channel, out[at].word_1, out[at].word_3})
                text += " " + std::to_string(word);
        return text;
    };
    EXPECT_EQ(spectrum(4), "3 200 1 3 201 11 13 202 21 23");
    EXPECT_EQ(spectrum(2), "2 200 1 3 201 11 13");
    EXPECT_EQ(spectrum(0) + spectrum(-1), "00");
    driver.bandwidth = 160;
    EXPECT_EQ(spectrum(4), "3 36 361 363 52 521 523 100 1001 1003");
    driver.channels.assign(70, 36);
    EXPECT_EQ(spectrum(80), "64 36 361 363 36 361 363 36 361 363");
}

TEST_F(Scan, ReportsEachFailureAndRetriesAsItsKindDoes) {
    struct Survey {
        const char *function;  // whose name the last line begins with
        int (*call)();
    };
    static WifiSpectrum measured;
    const Survey survey{"wifi_interface_get_scan_results_by_ugw",
                        [] { return wifi_interface_get_scan_results("wlan0", list.get()); }},
        spectrum{"wifi_interface_get_spectrum_by_ugw",
                 [] { return wifi_interface_get_spectrum("wlan0", &measured, 1); }},
        by_ssid{"_by_ssid", [] { return wifi_interface_get_scan_results_by_ssid("wlan0", "s", list.get()); }};
    const std::string scan_failed = "wlan0 channel get scan faild!\n",
                      results_failed = "wlan0 channel get scanresult faild!\n",
                      all_failed = " channel spectrum scan fail \n", uwb_failed = "wlan0 uwb_get_scanresults fail \n",
                      one_failed = "wlan0 dfs channel spectrum scan fail \n";
    const struct {
        Survey survey;
        int bandwidth;
        const char *failing;
        std::vector<int> times;
        const char *log;
        std::string printed;
    } cases[] = {
        {survey, 20, "info", {1}, "info ", "wlan0 get channel info error!\n"},
        {survey, 20, "list", {1}, "info list ", "wlan0 get channel list fail \n"},
        {survey, 20, "scan", {1}, "info list scan0 ", scan_failed + all_failed},
        {survey, 20, "results", {1}, "info list scan0 sleep5 results ", results_failed + all_failed},
        {survey, 160, "scan", {2}, "info list scan36 sleep3 results1:36 scan52 ", scan_failed + one_failed},
        {survey, 160, "results", {1}, "info list scan36 sleep3 results1:36 ", results_failed + one_failed},
        {spectrum, 20, "list", {1}, "info list ", "wlan0 get channel list fail \n"},
        {spectrum, 20, "scan", {1}, "info list scan0 ", scan_failed + all_failed},
        {by_ssid, 20, "info", {1}, "info ", "wlan0 get channel info error!\n"},
        {by_ssid, 20, "scan", {1}, "info scan0 sleep2 scan0 sleep5 results ", ""},
        {by_ssid, 20, "scan", {1, 2}, "info scan0 sleep2 scan0 ", "wlan0 scan fail\n"},
        {by_ssid, 20, "results", {1}, "info scan0 sleep5 results sleep2 results ", ""},
        {by_ssid, 20, "results", {1, 2}, "info scan0 sleep5 results sleep2 results ", "wlan0 get_scanresults fail\n"},
        {by_ssid, 160, "list", {1}, "info list ", "wlan0 get channel list fail \n"},
        {by_ssid, 160, "scan", {1, 2}, "info list scan36 sleep1 scan36 ", "wlan0 uwb_scan fail \n"},
        {by_ssid, 160, "results", {1, 2}, "info list scan36 sleep1 results1:36 sleep1 results1:36 ", uwb_failed},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.log);
        driver = {};
        driver.bandwidth = c.bandwidth;
        driver.failing[c.failing] = c.times;
        list->count = 99;
        const int expected = c.printed.empty() ? 0 : -1;
        const std::string printed = test::printed_by([&] { EXPECT_EQ(c.survey.call(), expected); });
        EXPECT_EQ(without_places(printed), c.printed);
        EXPECT_THAT(printed, expected == 0 ? HasSubstr("") : HasSubstr(c.survey.function + std::string("(")));
        EXPECT_EQ(driver.log, c.log);
        EXPECT_EQ(list->count, expected == 0 ? 0 : 99);
    }
}
