// wireless_scan_test.cpp: records out of driver bytes, scan styles, surveys, retries, their sleeps and their texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "tests/support/capture.h"

namespace {

constexpr size_t entries_at = 8, entry_size = 484, channels_at = 123912;
constexpr char cache[] = "/var/sta_encode_ssid_cache";

struct Entry {
    std::string ssid, encoding = "utf-8";
    std::map<size_t, int> words = {};
    int16_t rssi = -50;
};

// A driver that notes its calls in one line of text and fails at those calls that it is told.
struct Driver {
    int channel = 6, bandwidth = 20;
    bool is_dfs = false;
    std::vector<int> channels = {36, 52, 100};
    std::map<int, std::vector<Entry>> entries;        // by scanned channel; 0: by a scan of all
    int full_count = -1, channel_count = 3;           // what a full scan claims; -1: the entries that there are
    std::map<std::string, std::vector<int>> failing;  // call: the times, from 1, at which it fails
    std::map<std::string, int> times;
    std::string log;
    std::string ssid;
    int scanned = 0;
} driver;

int answer(const std::string &call, const std::string &note = "") {
    driver.log += call + note + " ";
    const auto &failing = driver.failing[call];
    return std::ranges::find(failing, ++driver.times[call]) != failing.end() ? -1 : 0;
}

void write_entry(uint8_t *bytes, const Entry &entry) {
    std::copy_n(entry.ssid.begin(), std::min<size_t>(entry.ssid.size(), 48), bytes);
    std::copy_n(entry.encoding.begin(), std::min<size_t>(entry.encoding.size(), 8), bytes + 49);
    const uint8_t bssid[] = {0, 0x1a, 0xff, 3, 4, 5};
    std::memcpy(bytes + 57, bssid, 6);
    for (const auto &[position, word] : entry.words) ap::store_le(bytes + position, word);
    ap::store_le(bytes + 476, entry.rssi);
}

struct Scan : testing::Test {
    void SetUp() override {
        driver = Driver();
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

extern "C" {
unsigned int sleep(unsigned int seconds) { return driver.log += "sleep" + std::to_string(seconds) + " ", 0; }
int uwb_get_chan_info(const char *, void *record) {
    ap::store_le(record, driver.channel);
    ap::store_le(static_cast<uint8_t *>(record) + 8, driver.bandwidth);
    return answer("info");
}
int uwb_get_dfs_radar_status(const char *, void *record) {
    const int channel = ap::load_le<int>(record);
    ap::store_le(static_cast<uint8_t *>(record) + 12, driver.is_dfs ? 77 : 0);
    return answer("radar", std::to_string(channel));
}
int uwb_get_channel_list(const char *, int zero, void *list) {
    ap::store_le(list, static_cast<int>(driver.channels.size()));
    for (size_t i = 0; i < std::min<size_t>(driver.channels.size(), 64); ++i)
        ap::store_le(static_cast<uint8_t *>(list) + 4 + 4 * i, driver.channels[i]);
    return answer("list", zero == 0 ? "" : "?");
}
int uwb_scan(const char *, const void *request) {
    const auto *bytes = static_cast<const uint8_t *>(request);
    driver.scanned = ap::load_le<int>(bytes + 12);
    const auto *ssid = reinterpret_cast<const char *>(bytes) + 76;
    driver.ssid = std::string(ssid, strnlen(ssid, 49));
    const int flags = 10 * ap::load_le<int>(bytes + 4) + ap::load_le<int>(bytes + 8);
    return answer("scan", "[" + std::to_string(flags) + "," + std::to_string(driver.scanned) + "]");
}
int uwb_get_scanresults(const char *, void *buffer) {
    auto *bytes = static_cast<uint8_t *>(buffer);
    const auto &entries = driver.entries[driver.scanned];
    const int claimed =
        driver.scanned == 0 && driver.full_count >= 0 ? driver.full_count : static_cast<int>(entries.size());
    std::string note;
    if (driver.scanned != 0)
        note = "(" + std::to_string(ap::le32(bytes + 4)) + ":" + std::to_string(ap::le32(bytes + channels_at)) + ")";
    ap::store_le(bytes, claimed);
    for (size_t i = 0; i < std::min<size_t>(entries.size(), 256); ++i)
        write_entry(bytes + entries_at + i * entry_size, entries[i]);
    const int records = driver.scanned == 0 ? driver.channel_count : 1;
    if (driver.scanned == 0) ap::store_le(bytes + 4, records);
    for (int i = 0; i < std::min(records, 64); ++i) {
        auto *record = bytes + channels_at + 16 * static_cast<size_t>(i);
        if (driver.scanned == 0) ap::store_le(record, 200 + i);
        for (const int word : {1, 2, 3})
            ap::store_le(record + 4 * static_cast<size_t>(word), 10 * (driver.scanned + i) + word);
    }
    return answer("results", note);
}
}

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
    } cases[] = {{0, 0, 9, 0, 9, "none", ""},
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
                 {0, 1, 0, 1, 0, "", ""}};
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
        driver.full_count = claimed;
        ASSERT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), 0);
        EXPECT_EQ(list->count, expected);
    }
    driver.failing["results"] = {6};
    EXPECT_THAT(
        test::printed_by([] { EXPECT_EQ(wifi_interface_get_scanresults("wlan0", list.get()), -1); }),
        testing::MatchesRegex("wifi_interface_get_scanresults_by_ugw\\[[0-9]+\\] wlan0 uwb_get_scanresults error!\n"));
}

TEST_F(Scan, ChoosesItsStyleByNameChannelAndBandwidth) {
    const std::string full = "list scan[0,0] sleep5 results ", each = "list scan[11,36] sleep3 results(1:36) ";
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
        {"wlan1", 160, false, false, "info radar52 " + each}, {"wlan1", 80, true, true, "info radar52 " + full}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ifname + std::string(" ") + std::to_string(c.bandwidth));
        driver.log.clear();
        driver.times.clear();
        driver.channel = 52;
        driver.bandwidth = c.bandwidth;
        driver.is_dfs = c.is_dfs;
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
    EXPECT_EQ(driver.log, "info list scan[11,36] sleep1 results(1:36) scan[11,52] sleep1 results(1:52) "
                          "scan[11,100] sleep1 results(1:100) ");
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
    EXPECT_EQ(driver.log, "info scan[0,0] sleep5 results ");
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

TEST_F(Scan, ReportsEachFailureAndRetriesAsItsKindDoes) {
    using Call = int (*)();
    const Call survey = [] { return wifi_interface_get_scan_results("wlan0", list.get()); };
    const Call by_ssid = [] { return wifi_interface_get_scan_results_by_ssid("wlan0", "s", list.get()); };
    const Call spectrum = [] { return wifi_interface_get_spectrum("wlan0", measured, 1); };
    const std::string survey_name = "wifi_interface_get_scan_results_by_ugw\\([0-9]+\\): ",
                      ssid_name = "wifi_get_scan_results_by_ssid\\([0-9]+\\): ",
                      spectrum_name = "wifi_interface_get_spectrum_by_ugw\\([0-9]+\\): ",
                      full_scan = "wifi_get_spectrum_scan\\([0-9]+\\): ",
                      one_scan = "wifi_get_dfs_spectrum_scan\\([0-9]+\\): ",
                      all_ssid = "wifi_all_channel_scan_by_ssid\\([0-9]+\\): ",
                      each_ssid = "wifi_dfs_scan_deal_by_ssid\\([0-9]+\\): ";
    const struct {
        const char *what;
        Call call;
        int bandwidth;
        std::string failing;
        std::vector<int> times;
        int result;
        std::string log, printed;
    } cases[] = {
        {"survey, no channel", survey, 20, "info", {1}, -1, "info ", survey_name + "wlan0 get channel info error!\n"},
        {"survey, no list", survey, 20, "list", {1}, -1, "info list ", survey_name + "wlan0 get channel list fail \n"},
        {"survey, no scan",
         survey,
         20,
         "scan",
         {1},
         -1,
         "info list scan[0,0] ",
         full_scan + "wlan0 channel get scan faild!\n" + survey_name + " channel spectrum scan fail \n"},
        {"survey, no results",
         survey,
         20,
         "results",
         {1},
         -1,
         "info list scan[0,0] sleep5 results ",
         full_scan + "wlan0 channel get scanresult faild!\n" + survey_name + " channel spectrum scan fail \n"},
        {"survey, second channel",
         survey,
         160,
         "scan",
         {2},
         -1,
         "info list scan[11,36] sleep3 results(1:36) scan[11,52] ",
         one_scan + "wlan0 channel get scan faild!\n" + survey_name + "wlan0 dfs channel spectrum scan fail \n"},
        {"survey, first results",
         survey,
         160,
         "results",
         {1},
         -1,
         "info list scan[11,36] sleep3 results(1:36) ",
         one_scan + "wlan0 channel get scanresult faild!\n" + survey_name + "wlan0 dfs channel spectrum scan fail \n"},
        {"spectrum, no list",
         spectrum,
         20,
         "list",
         {1},
         -1,
         "info list ",
         spectrum_name + "wlan0 get channel list fail \n"},
        {"spectrum, no scan",
         spectrum,
         20,
         "scan",
         {1},
         -1,
         "info list scan[0,0] ",
         full_scan + "wlan0 channel get scan faild!\n" + spectrum_name + " channel spectrum scan fail \n"},
        {"ssid, no channel", by_ssid, 20, "info", {1}, -1, "info ", ssid_name + "wlan0 get channel info error!\n"},
        {"ssid, one failed scan", by_ssid, 20, "scan", {1}, 0, "info scan[0,0] sleep2 scan[0,0] sleep5 results ", ""},
        {"ssid, two failed scans",
         by_ssid,
         20,
         "scan",
         {1, 2},
         -1,
         "info scan[0,0] sleep2 scan[0,0] ",
         all_ssid + "wlan0 scan fail\n"},
        {"ssid, one failed result",
         by_ssid,
         20,
         "results",
         {1},
         0,
         "info scan[0,0] sleep5 results sleep2 results ",
         ""},
        {"ssid, two failed results",
         by_ssid,
         20,
         "results",
         {1, 2},
         -1,
         "info scan[0,0] sleep5 results sleep2 results ",
         all_ssid + "wlan0 get_scanresults fail\n"},
        {"ssid, no list",
         by_ssid,
         160,
         "list",
         {1},
         -1,
         "info list ",
         "wifi_all_dfs_channel_scan_by_ssid\\([0-9]+\\): wlan0 get channel list fail \n"},
        {"ssid, a channel's two failed scans",
         by_ssid,
         160,
         "scan",
         {1, 2},
         -1,
         "info list scan[11,36] sleep1 scan[11,36] ",
         each_ssid + "wlan0 uwb_scan fail \n"},
        {"ssid, a channel's two failed results",
         by_ssid,
         160,
         "results",
         {1, 2},
         -1,
         "info list scan[11,36] sleep1 results(1:36) sleep1 results(1:36) ",
         each_ssid + "wlan0 uwb_get_scanresults fail \n"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver = Driver();
        driver.bandwidth = c.bandwidth;
        driver.failing[c.failing] = c.times;
        list->count = 99;
        const std::string printed = test::printed_by([&] { EXPECT_EQ(c.call(), c.result); });
        EXPECT_EQ(driver.log, c.log);
        EXPECT_THAT(printed, testing::MatchesRegex(c.printed));
        EXPECT_EQ(list->count, c.result == 0 ? 0 : 99);
    }
}
