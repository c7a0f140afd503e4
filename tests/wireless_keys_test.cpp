// wireless_keys_test.cpp: prefixes of all kinds with both separators, one setting at a time, and the eight accessors by
// band with their differing results.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

namespace {

using testing::HasSubstr;

// The store's prefixes are read once in a process, so every set of prefixes has a child of its own.
void in_fresh_process(const std::string &flag, const std::function<void()> &action) {
    test::store.values = {
        {"wlan24g.bss_mib_prefix", "b2-"}, {"wlan24g.radio_mib_prefix", "r2"}, {"wlan24g.extra_mib_prefix", "e2"},
        {"wlan5g.bss_mib_prefix", "b5-"},  {"wlan5g.radio_mib_prefix", "r5"},  {"wlan5g.extra_mib_prefix", "e5"},
        {"wlan.mib_prefix_flag", flag},
    };
    EXPECT_EQ(test::run_in_child([&] {
                  action();
                  if (testing::Test::HasFailure()) _exit(1);
              }),
              0);
}

std::string prefix_of(unsigned int kind, int index) {
    char prefix[64] = {};
    EXPECT_EQ(get_mib_prefix(prefix, kind, index), 0);
    return prefix;
}

std::string value_of(const std::string &key) {
    const auto found = test::store.values.find(key);
    return found == test::store.values.end() ? "(missing)" : found->second;
}

}  // namespace

TEST(MibPrefix, HasFourteenKindsInStoredOrder) {
    const struct {
        unsigned int kind;
        int index;
        const char *with_dot, *with_underscore;
    } cases[] = {
        {0, 0, "", ""},          {1, 5, "lan", "lan"},        {3, 2, "b2-2.", "b2-2_"},
        {12, 0, "b2-0", "b2-0"}, {2, 7, "r2.", "r2_"},        {14, 0, "r2", "r2"},
        {6, 0, "e2.", "e2_"},    {5, 10, "b5-10.", "b5-10_"}, {13, -1, "b5--1", "b5--1"},
        {4, 0, "r5.", "r5_"},    {15, 0, "r5", "r5"},         {7, 0, "e5.", "e5_"},
        {16, 0, "e2", "e2"},     {17, 0, "e5", "e5"},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(g_mib_prefix_handle[i].kind, cases[i].kind);
    for (const char *flag : {"0", "1", "7"}) {
        SCOPED_TRACE(flag);
        in_fresh_process(flag, [&] {
            for (const auto &c : cases)
                EXPECT_EQ(prefix_of(c.kind, c.index), *flag == '0' ? c.with_dot : c.with_underscore) << c.kind;
        });
    }
}

TEST(MibPrefix, LeavesTheBufferAloneForUnknownKindsAndNull) {
    char buffer[64] = "kept";
    for (const unsigned int kind : {8u, 9u, 10u, 11u, 18u, 0xffffffffu}) EXPECT_EQ(get_mib_prefix(buffer, kind, 0), -1);
    EXPECT_EQ(get_mib_prefix(buffer, 0, 0), 0);
    EXPECT_STREQ(buffer, "kept");
    EXPECT_THAT(
        test::printed_by([] { EXPECT_EQ(get_mib_prefix(nullptr, 3, 0), -1); }),
        testing::MatchesRegex("\033\\[1;40;36m\\[PROD\\] [0-9]{4} get_mib_prefix      : namePre is null\n\033\\[0m"));
}

TEST(MibPrefix, KeepsItsFirstReadingAndAsksAgainWhileThePrefixIsEmpty) {
    in_fresh_process("1", [] {
        test::store.values["wlan24g.radio_mib_prefix"] = "";
        EXPECT_EQ(prefix_of(2, 0), "_");
        test::store.values["wlan24g.radio_mib_prefix"] = "late";
        test::store.values["wlan.mib_prefix_flag"] = "0";
        EXPECT_EQ(prefix_of(2, 0), "late.");
        test::store.values["wlan24g.radio_mib_prefix"] = "later";
        EXPECT_EQ(prefix_of(2, 0), "late.");
        EXPECT_EQ(prefix_of(14, 0), "later");  // every kind has a reading of its own
    });
}

TEST(MibPrefix, StaysInsideItsBuffers) {
    const std::string longest(63, 'p'), too_long(100, 'q');
    in_fresh_process("1", [&] {
        test::store.values["wlan24g.radio_mib_prefix"] = longest;
        test::store.values["wlan5g.radio_mib_prefix"] = too_long;
        EXPECT_EQ(prefix_of(14, 0), longest);
        EXPECT_EQ(prefix_of(2, 0), longest);  // the separator has no room left
        EXPECT_EQ(prefix_of(15, 0), too_long.substr(0, 63));
    });
}

TEST(Setting, JoinsPrefixAndNameAndCutsKeysAt127) {
    char out[300];
    EXPECT_EQ(wifi_get_mibname("r2.", "enable", out), out);
    EXPECT_STREQ(out, "r2.enable");
    EXPECT_EQ(wifi_get_mibname(nullptr, "n", out), nullptr);
    EXPECT_EQ(wifi_get_mibname("p", nullptr, out), nullptr);
    EXPECT_EQ(wifi_get_mibname("p", "n", nullptr), nullptr);

    const std::string name(200, 'n');
    test::store.values.clear();
    EXPECT_EQ(wifi_set_value("p.", name.c_str(), "v"), 1);
    EXPECT_EQ(value_of("p." + name.substr(0, 125)), "v");
}

TEST(Setting, IsWrittenReadAndRemoved) {
    test::store = {};
    EXPECT_EQ(wifi_set_value("p.", "text", "v"), 1);
    EXPECT_EQ(wifi_set_value("p.", "text", "v"), 0);
    EXPECT_EQ(wifi_set_value("p.", "text", ""), 0);
    EXPECT_EQ(wifi_set_value("p.", "text", nullptr), 0);
    EXPECT_EQ(value_of("p.text"), "v");
    EXPECT_EQ(wifi_set_int_value("p.", "number%d", -12), 1);
    EXPECT_EQ(wifi_get_int_value("p.", "number%d"), -12);
    EXPECT_EQ(wifi_get_int_value("p.", "missing"), 0);
    char out[16] = "before";
    EXPECT_EQ(wifi_get_value("p.", "missing", out), out);
    EXPECT_STREQ(out, "before");
    EXPECT_STREQ(wifi_get_value("p.", "text", out), "v");
    EXPECT_EQ(wifi_unset_value("p.", "text"), 1);
    EXPECT_EQ(wifi_unset_value("p.", "text"), 0);
}

TEST(Setting, SaysBadArgumentForNull) {
    char out[16] = "before";
    const struct {
        const char *what;
        std::function<void()> call;
    } cases[] = {
        {"wifi_set_value      ", [] { EXPECT_EQ(wifi_set_value(nullptr, "n", "v"), -1); }},
        {"wifi_set_int_value  ", [] { EXPECT_EQ(wifi_set_int_value("p", nullptr, 1), -1); }},
        {"wifi_get_value      ", [&] { EXPECT_EQ(wifi_get_value(nullptr, "n", out), out); }},
        {"wifi_get_value      ", [] { EXPECT_EQ(wifi_get_value("p", "n", nullptr), nullptr); }},
        {"wifi_get_int_value  ", [] { EXPECT_EQ(wifi_get_int_value("p", nullptr), -1); }},
        {"wifi_unset_value    ", [] { EXPECT_EQ(wifi_unset_value(nullptr, "n"), -1); }},
    };
    for (const auto &c : cases)
        EXPECT_THAT(test::printed_by(c.call), testing::MatchesRegex(std::string("\033\\[1;40;31m\\[PROD\\] [0-9]{4} ") +
                                                                    c.what + ": bad argument\n\033\\[0m"));
    EXPECT_STREQ(out, "before");
}

// What each accessor answers for an unsupported band, for a write or read that changes something, and for a second one.
TEST(RateType, AnswersEachInItsOwnWay) {
    in_fresh_process("1", [] {
        char out[64] = "before";
        const struct {
            const char *what;
            int unsupported, first, second;
            std::function<int(int band)> call;
        } cases[] = {
            {"ssid int get", -1, 0, 0, [](int b) { return common_get_int_rate_type_bss_by_ssid_idx(b, 1, "none"); }},
            {"ssid text get", 0, 1, 1,
             [&](int b) { return common_get_value_rate_type_bss_by_ssid_idx(b, 1, "t", out); }},
            {"ssid text set", 0, 1, 1,
             [](int b) { return common_set_value_rate_type_bss_by_ssid_idx(b, 1, "t", "v"); }},
            {"ssid int set", 0, 1, 1, [](int b) { return common_set_int_rate_type_bss_by_ssid_idx(b, 1, "i", 4); }},
            {"radio int get", 0, 0, 0, [](int b) { return common_get_int_rate_type_radio(b, "none"); }},
            {"radio text get", -1, 1, 1, [&](int b) { return common_get_rate_type_radio_value(b, "t", out); }},
            {"radio int set", 0, 1, 0, [](int b) { return common_set_int_rate_type_radio_value(b, "i", 5); }},
            {"radio number set", -1, 1, 1, [](int b) { return common_set_rate_type_radio_value(b, "n", -6); }},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.what);
            for (const int band : {2, 6, 0, -24}) EXPECT_EQ(c.call(band), c.unsupported);
            for (const int band : {24, 5}) {
                EXPECT_EQ(c.call(band), c.first);
                EXPECT_EQ(c.call(band), c.second);
            }
        }
        for (const auto &[key, value] : std::map<std::string, std::string>{
                 {"b2-1_t", "v"}, {"b5-1_t", "v"}, {"b2-1_i", "4"}, {"r2_i", "5"}, {"r5_n", "-6"}})
            EXPECT_EQ(value_of(key), value) << key;
        EXPECT_EQ(common_get_int_rate_type_bss_by_ssid_idx(5, 1, "i"), 4);
        EXPECT_EQ(common_get_int_rate_type_radio(24, "n"), -6);
    });
}

TEST(RateType, TracesWhatItDid) {
    in_fresh_process("1", [] {
        ASSERT_EQ(set_dbg_level("rfo", 3), 1);
        ASSERT_EQ(set_dbg_level("prod", 4), 1);
        char out[64] = {};
        const struct {
            std::string line;
            std::function<void()> call;
        } cases[] = {
            {"debug:prefix_bss[b2-3_] wifi_type[24] str[x] ret[0] ssid_idx[3].\n",
             [] { common_get_int_rate_type_bss_by_ssid_idx(24, 3, "x"); }},
            {"debug:prefix_bss[b5-3_] wifi_type[5] str[x] ret[0] ssid_idx[3] value[v].\n",
             [] { common_set_value_rate_type_bss_by_ssid_idx(5, 3, "x", "v"); }},
            {"debug:prefix_bss[b5-3_] wifi_type[5] str[x] ret[0] ssid_idx[3] value[v].\n",
             [&] { common_get_value_rate_type_bss_by_ssid_idx(5, 3, "x", out); }},
            {"debug:prefix_bss[b2-3_] wifi_type[24] str[y] ret[0] ssid_idx[3] value[9].\n",
             [] { common_set_int_rate_type_bss_by_ssid_idx(24, 3, "y", 9); }},
            {"debug:prefix_radio[r2_] wifi_type[24] str[x] ret[0].\n", [] { common_get_int_rate_type_radio(24, "x"); }},
            {"debug:prefix_radio[r5_] wifi_type[5] str[z] value[8].\n",
             [] { common_set_int_rate_type_radio_value(5, "z", 8); }},
            {"debug:prefix_radio[r5_] wifi_type[5] str[z] value[8].\n",
             [] { common_set_rate_type_radio_value(5, "z", 8); }},
            {"debug:prefix_radio[r5_] wifi_type[5] str[z] value[8].\n",
             [&] { common_get_rate_type_radio_value(5, "z", out); }},
            {"7 not support.\n", [] { common_get_int_rate_type_radio(7, "x"); }},
            {"7 not support.\n", [&] { get_prefix_radio_by_type(7, out, 64); }},
            {"wifi_type:[2.4G], str:[r2_].\n", [&] { get_prefix_radio_by_type(24, out, 64); }},
        };
        for (const auto &c : cases) EXPECT_THAT(test::printed_by(c.call), HasSubstr(": " + c.line)) << c.line;
        EXPECT_EQ(test::printed_by([] { common_get_rate_type_radio_value(7, "x", nullptr); }), "");
    });
}

TEST(RadioPrefix, IsClearedBoundedAndRefusedForOtherBands) {
    in_fresh_process("1", [] {
        char out[8];
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(get_prefix_radio_by_type(5, out, 6), 0);
        EXPECT_EQ(std::string(out, sizeof out), std::string("r5_\0\0\0xx", 8));
        EXPECT_EQ(get_prefix_radio_by_type(24, out, 3), 0);
        EXPECT_STREQ(out, "r2");
        EXPECT_EQ(get_prefix_radio_by_type(6, out, sizeof out), -1);
        EXPECT_EQ(std::string(out, sizeof out), std::string(8, '\0'));
    });
}
