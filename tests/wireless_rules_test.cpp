// wireless_rules_test.cpp: sidebands, chains, interface lists, power limits, high power, country codes, dual-band
// SSIDs.

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

#include "applatform/wireless_driver.h"
#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

namespace {

std::string power_requests;
int power_result;

// Settings written as "key=value key=value".
std::map<std::string, std::string> settings(const std::string &text) {
    std::map<std::string, std::string> found;
    std::istringstream words(text);
    for (std::string word; words >> word;) found[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return found;
}

void store_settings(const std::string &text) {
    test::store = {};
    test::store.values = settings("wlan24g.bss_mib_prefix=b2- wlan24g.radio_mib_prefix=r2 wlan5g.bss_mib_prefix=b5- "
                                  "wlan5g.radio_mib_prefix=r5 wlan.mib_prefix_flag=0 " +
                                  text);
}

}  // namespace

// The library's own call to its front function comes here: an executable's definition wins.
int wifi_interface_set_txpower(const char *ifname, const unsigned char request[2]) {
    power_requests += ifname + (":" + std::to_string(request[0])) + "," + std::to_string(request[1]) + " ";
    return power_result;
}

TEST(Sideband, FollowsTheChannel) {
    const std::map<std::string, std::vector<int>> channels = {
        {"upper", {-3, 0, 1, 4, 36, 44, 52, 60, 149, 157, 100, 108, 116, 124, 132, 140, 179, 188}},
        {"lower", {10, 13, 40, 48, 56, 64, 153, 161, 104, 112, 120, 128, 136, 165, 181, 248}},
        {"kept", {5, 7, 9}},
        {"none", {14, 35, 144, 169, 1000}},
    };
    for (const auto &[sideband, its_channels] : channels) {
        for (const int channel : its_channels) {
            char out[8] = "kept";
            get_wifi_sideband_flag_by_channel(channel, out);
            EXPECT_EQ(out, sideband) << channel;
        }
    }
}

TEST(Sideband, FollowsTheExtensionChannel) {
    const struct {
        const char *extension, *bandwidth, *sideband;
    } cases[] = {
        {"upper", "40", "upper"}, {"lower", "0", "lower"}, {"null", "40", "kept"}, {"0", "40", "kept"},
        {"upper", "20", "kept"},  {"upper", "", "kept"},   {"", "40", ""},         {"00", "0", "00"},
    };
    for (const auto &c : cases) {
        char out[8] = "kept";
        get_wifi_sideband_flag_by_exchannel(c.extension, c.bandwidth, out);
        EXPECT_STREQ(out, c.sideband) << c.extension << " at " << c.bandwidth;
    }
}

TEST(RadioRules, ReadAntennaMasks) {
    const char *chains[] = {nullptr, "1X1", "1X1", "2X2", "1X1", "2X2", "2X2", "3X3", nullptr};
    for (int mask = 0; mask <= 8; ++mask) {
        char out[8] = "kept";
        const std::string printed = test::printed_by(
            [&] { EXPECT_EQ(getTxRxChainByMask(std::to_string(mask).c_str(), out), chains[mask] ? out : nullptr); });
        EXPECT_STREQ(out, chains[mask] ? chains[mask] : "kept");
        EXPECT_EQ(printed, chains[mask] ? "" : "erro, Not find valid Mask\n");
    }
}

TEST(RadioRules, AddNamesToLists) {
    const auto added = [](std::string list, const char *name) {
        list.resize(32);
        EXPECT_EQ(wifi_list_add_ifname(list.data(), name), 0);
        return list.substr(0, list.find('\0'));
    };
    EXPECT_EQ(added("", "wlan0"), "wlan0");
    EXPECT_EQ(added("wlan0", "wlan1"), "wlan0 wlan1");
    EXPECT_EQ(added("wlan0.1", "wlan0"), "wlan0.1");
    EXPECT_EQ(added("wlan0", "wlan0.1"), "wlan0 wlan0.1");
    EXPECT_EQ(added("a b", ""), "a b");
    char list[4] = "";
    EXPECT_EQ(wifi_list_add_ifname(nullptr, "x"), -1);
    EXPECT_EQ(wifi_list_add_ifname(list, nullptr), -1);
}

TEST(RadioRules, ConvertCountryCodesBothWays) {
    const char *pairs[][2] = {{"AUT", "AT"}, {"CHL", "CL"}, {"GC", "GR"}, {"LT", "RS"}, {"NW", "NO"}};
    for (const auto &pair : pairs)
        for (int i = 0; i < 2; ++i) EXPECT_STREQ(wifi_driver_yondar_countrycode_convert(pair[i]), pair[1 - i]);
    const char *code = "at";
    EXPECT_EQ(wifi_driver_yondar_countrycode_convert(code), code);
    EXPECT_EQ(wifi_driver_yondar_countrycode_convert(nullptr), nullptr);
}

TEST(RadioRules, KnowBandIndexesAndTheSteeringThreshold) {
    store_settings("wl2g.wlan_index=3 wl5g.wlan_index=1");
    EXPECT_EQ(get_wlan_index(24), 3);
    EXPECT_EQ(get_wlan_index(5), 1);
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(get_wlan_index(6), 0); }),
                testing::MatchesRegex("get_wlan_index,[0-9]+ : wifi_type is error\n"));
    EXPECT_EQ(ap_comm_set_steerd_lrssi_5(-70), 1);
    EXPECT_EQ(ap_comm_set_steerd_lrssi_5(-70), 0);
    EXPECT_EQ(test::store.values["steerd.lrssi_5"], "-70");
}

TEST(RadioPower, IsCompensatedAndClamped) {
    store_settings("r2.power_compensate=2 r2.maxpower=25 r2.minpower=5 r2.curpower=17 r2.web_max_power=27 "
                   "r5.power_compensate=0 r5.maxpower=10 r5.minpower=20 r5.curpower=2147483647");
    const struct {
        const char *what;
        int band, requested, expected;
    } cases[] = {
        {"no request", 24, 0, 17},      {"above the limit", 24, 30, 25},     {"at the limit", 24, 27, 25},
        {"just below it", 24, 26, 24},  {"below the limit", 24, 6, 5},       {"at the lower limit", 24, 7, 5},
        {"far below", 24, INT_MIN, 25}, {"contradicting limits", 5, 15, 20}, {"another band", 6, 15, -1},
    };
    for (const auto &c : cases) EXPECT_EQ(adjust_radio_power(c.band, c.requested), c.expected) << c.what;
    EXPECT_EQ(get_web_minpower("r2."), 7);
    EXPECT_EQ(get_web_curpower("r2."), 19);
    EXPECT_EQ(get_web_maxpower("r2."), 27);
    EXPECT_EQ(get_web_curpower("r5."), INT_MAX);
}

TEST(RadioPower, IsHighWhenBothRadiosAreAtTheirGreatest) {
    for (const std::string changed : {"", "r2.web_max_power=26", "r5.web_max_power=26", "r5.power_compensate=2"}) {
        store_settings("r2.power_compensate=2 r2.maxpower=25 r2.web_max_power=27 r5.power_compensate=1 r5.maxpower=30 "
                       "r5.web_max_power=31 " +
                       changed);
        EXPECT_EQ(is_all_switch_to_highpower(), changed.empty() ? 1 : 0) << changed;
    }
}

TEST(HighPower, IsConfiguredCommittedAndApplied) {
    const auto requests = [](const std::string &changed, int commit_result, int driver_result, int result) {
        store_settings("netcheck.adjust_power=1 r2.enable=1 r2.web_maxbss=2 r2.maxpower=25 r2.power_compensate=2 "
                       "b2-1.bss_enable=1 r5.enable=1 r5.web_maxbss=1 r5.maxpower=300 r5.power_compensate=1 "
                       "b5-0.bss_enable=1 b5-1.bss_enable=1 " +
                       changed);
        test::store.commit_result = commit_result;
        power_requests.clear();
        power_result = driver_result;
        EXPECT_EQ(wifi_switch_high_power(), result);
        EXPECT_EQ(test::store.commits, 1);
        for (const auto &[key, value] :
             settings("r2.power=high r2.curpower=25 r2.default_power=25 r2.web_max_power=27 r5.power=high "
                      "r5.curpower=300 r5.default_power=300 r5.web_max_power=301 netcheck.adjust_power=0"))
            EXPECT_EQ(test::store.values[key], value) << key;
        return power_requests;
    };
    EXPECT_EQ(requests("", 1, 0, 0), "b2-1:25,25 b5-0:44,44 ");
    EXPECT_EQ(requests("", 1, 9, 9), "b2-1:25,25 b5-0:44,44 ");
    EXPECT_EQ(requests("", 0, 9, 0), "");  // a failed commit
    EXPECT_EQ(requests("r2.enable=0", 1, 9, 9), "b5-0:44,44 ");
    EXPECT_EQ(requests("r5.web_maxbss=0", 1, 9, 9), "b2-1:25,25 ");
    store_settings("netcheck.adjust_power=0 r2.maxpower=25");
    EXPECT_EQ(wifi_switch_high_power(), 0);
    EXPECT_EQ(test::store.writes + test::store.commits, 0);
}

// For each kind of security the settings that count, and some that do not.
TEST(DualBand, ComparesWhatItsSecurityNeeds) {
    const struct {
        const char *security, *compared, *ignored;
    } cases[] = {
        {"none", "bss_ssid", "bss_wpapsk_key"},
        {"wep",
         "bss_ssid bss_wep_type bss_wep_key bss_wep_key1 bss_wep_key2 bss_wep_key3 bss_wep_key4 bss_wep_key1_format "
         "bss_wep_key2_format bss_wep_key3_format bss_wep_key4_format",
         "bss_wpapsk_key"},
        {"wpapsk", "bss_ssid bss_wpapsk_type bss_wpapsk_crypto bss_wpapsk_key bss_wpapsk_rekey_time",
         "bss_wep_key bss_radius_ip"},
        {"wpa", "bss_ssid bss_wpa_type bss_radius_ip bss_radius_port bss_radius_key bss_wpa_crypto bss_radius_time",
         "bss_wpapsk_key"},
        {"unheard-of", "bss_ssid", "bss_wep_type bss_wpa_type"},
    };
    for (const auto &c : cases) {
        const std::string security =
            std::string("b2-4.bss_security=") + c.security + " b5-4.bss_security=" + c.security;
        for (const auto &[names, expected] : {std::pair(c.compared, 0), std::pair(c.ignored, 1)}) {
            for (const auto &[name, nothing] : settings(names)) {
                store_settings(security);
                test::store.values["b2-4." + name] = "a";
                EXPECT_EQ(check_wifi_dual_band_ssid_cfg(4), expected) << c.security << " " << name;
            }
        }
    }
    store_settings("b2-0.bss_security=wpapsk b5-0.bss_security=wpa");
    EXPECT_EQ(check_wifi_dual_band_ssid_cfg(0), 0);
}

TEST(DualBand, TracesEachComparison) {
    ASSERT_EQ(set_dbg_level("netctrl", 5), 1);
    store_settings("b2-0.bss_security=wpapsk b5-0.bss_security=wpapsk b2-0.bss_ssid=s b5-0.bss_ssid=s "
                   "b2-0.bss_wpapsk_key=k");
    const auto traced = [] {
        return std::regex_replace(test::printed_by([] { check_wifi_dual_band_ssid_cfg(0); }),
                                  std::regex("check_wifi_dual_band_ssid: ([^\n]*)\n"), "$1|",
                                  std::regex_constants::format_no_copy);
    };
    const std::string until_key =
        "ENTER >>> check_wifi_dual_band_ssid_cfg|ssid[s][s]|secType[wpapsk][wpapsk]|WPAPSKType[][]|CRYPTO[][]|";
    EXPECT_EQ(traced(), until_key + "KEY[k][]|");
    test::store.values["b5-0.bss_wpapsk_key"] = "k";
    EXPECT_EQ(traced(),
              until_key + "KEY[k][k]|REKEY_TIME[][]|is dual_band_ssid!|LEAVE <<< check_wifi_dual_band_ssid_cfg|");
}
