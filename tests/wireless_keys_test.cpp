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
using testing::MatchesRegex;

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
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(get_mib_prefix(nullptr, 3, 0), -1); }),
                MatchesRegex("\033\\[1;40;36m\\[PROD\\] [0-9]{4} get_mib_prefix      : namePre is null\n\033\\[0m"));
}

TEST(MibPrefix, KeepsItsFirstReadingAndAsksAgainWhileThePrefixIsEmpty) {
    in_fresh_process("1", [] {
        std::string &prefix = test::store.values["wlan24g.radio_mib_prefix"];
        prefix = "";
        EXPECT_EQ(prefix_of(2, 0), "_");
        prefix = "late";
        test::store.values["wlan.mib_prefix_flag"] = "0";
        EXPECT_EQ(prefix_of(2, 0), "late.");
        prefix = std::string(63, 'p');
        EXPECT_EQ(prefix_of(2, 0), "late.");
        EXPECT_EQ(prefix_of(14, 0), prefix);  // every kind has a reading of its own
        test::store.values["wlan5g.radio_mib_prefix"] = prefix + "qqq";
        EXPECT_EQ(prefix_of(15, 0), prefix);
        EXPECT_EQ(prefix_of(4, 0), prefix);  // the separator has no room left
    });
}

TEST(Setting, JoinsPrefixAndName) {
    char out[16];
    EXPECT_EQ(wifi_get_mibname("r2.", "enable", out), out);
    EXPECT_STREQ(out, "r2.enable");
    for (const int missing : {0, 1, 2}) {
        const char *prefix = missing == 0 ? nullptr : "p", *name = missing == 1 ? nullptr : "n";
        const auto join = [&] { EXPECT_EQ(wifi_get_mibname(prefix, name, missing == 2 ? nullptr : out), nullptr); };
        EXPECT_THAT(test::printed_by(join), HasSubstr(": wifi mib error!"));
    }
}

TEST(Setting, IsWrittenReadAndRemoved) {
    test::store = {};
    const std::string name(200, 'n');
    EXPECT_EQ(wifi_set_value("p.", name.c_str(), "v"), 1);
    EXPECT_EQ(test::store.values["p." + name.substr(0, 125)], "v");

    EXPECT_EQ(wifi_set_value("p.", "text", "v"), 1);
    for (const char *same : {"v", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(wifi_set_value("p.", "text", same), 0);
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
    const std::function<void()> calls[] = {
        [] { EXPECT_EQ(wifi_set_value(nullptr, "n", "v"), -1); },
        [] { EXPECT_EQ(wifi_set_int_value("p", nullptr, 1), -1); },
        [&] { EXPECT_EQ(wifi_get_value(nullptr, "n", out), out); },
        [] { EXPECT_EQ(wifi_get_value("p", "n", nullptr), nullptr); },
        [] { EXPECT_EQ(wifi_get_int_value("p", nullptr), -1); },
        [] { EXPECT_EQ(wifi_unset_value(nullptr, "n"), -1); },
    };
    const std::string line = "\033\\[1;40;31m\\[PROD\\] [0-9]{4} wifi_[a-z_ ]{15}: bad argument\n\033\\[0m";
    for (const auto &call : calls) EXPECT_THAT(test::printed_by(call), MatchesRegex(line));
    EXPECT_STREQ(out, "before");
}

// What each accessor answers for an unsupported band, for a write or read that changes something, and for a second one;
// and the line that it then adds to the log, behind the prefix and the band.
TEST(RateType, AnswersAndTracesEachInItsOwnWay) {
    in_fresh_process("1", [] {
        ASSERT_EQ(set_dbg_level("rfo", 3), 1);
        char out[64] = "before";
        const struct {
            int unsupported, first, second;
            const char *trace;
            std::function<int(int band)> call;
        } cases[] = {
            {0, 1, 1, "str[none] ret[0] ssid_idx[1] value[before].\n",
             [&](int b) { return common_get_value_rate_type_bss_by_ssid_idx(b, 1, "none", out); }},
            {0, 1, 1, "str[t] ret[0] ssid_idx[1] value[v].\n",
             [](int b) { return common_set_value_rate_type_bss_by_ssid_idx(b, 1, "t", "v"); }},
            {0, 1, 1, "str[t] ret[0] ssid_idx[1] value[v].\n",
             [&](int b) { return common_get_value_rate_type_bss_by_ssid_idx(b, 1, "t", out); }},
            {0, 1, 1, "str[i] ret[0] ssid_idx[1] value[4].\n",
             [](int b) { return common_set_int_rate_type_bss_by_ssid_idx(b, 1, "i", 4); }},
            {-1, 4, 4, "str[i] ret[4] ssid_idx[1].\n",
             [](int b) { return common_get_int_rate_type_bss_by_ssid_idx(b, 1, "i"); }},
            {0, 1, 0, "str[i] value[5].\n", [](int b) { return common_set_int_rate_type_radio_value(b, "i", 5); }},
            {0, 5, 5, "str[i] ret[5].\n", [](int b) { return common_get_int_rate_type_radio(b, "i"); }},
            {-1, 1, 1, "str[n] value[-6].\n", [](int b) { return common_set_rate_type_radio_value(b, "n", -6); }},
            {-1, 1, 1, "str[n] value[-6].\n", [&](int b) { return common_get_rate_type_radio_value(b, "n", out); }},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.trace);
            const bool is_radio = std::string(c.trace).find("ssid_idx") == std::string::npos;
            for (const int band : {24, 5}) {
                const std::string digit = band == 24 ? "2" : "5";
                const std::string prefix = (is_radio ? "radio[r" + digit : "bss[b" + digit + "-1") + "_] wifi_type[" +
                                           std::to_string(band) + "] ";
                EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(c.call(band), c.first); }),
                            HasSubstr(": debug:prefix_" + prefix + c.trace));
                EXPECT_EQ(c.call(band), c.second);
            }
            for (const int band : {2, 6, 0, -24}) EXPECT_EQ(c.call(band), c.unsupported);
        }
        EXPECT_THAT(test::printed_by([] { common_get_int_rate_type_radio(7, "x"); }), HasSubstr(": 7 not support.\n"));
        EXPECT_EQ(test::printed_by([] { common_get_rate_type_radio_value(7, "x", nullptr); }), "");
    });
}

TEST(RadioPrefix, IsClearedBoundedAndRefusedForOtherBands) {
    in_fresh_process("1", [] {
        ASSERT_EQ(set_dbg_level("prod", 4), 1);
        const auto written = [](int band, int size, int result, const std::string &line) {
            std::string out(8, 'x');
            EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(get_prefix_radio_by_type(band, out.data(), size), result); }),
                        HasSubstr(": " + line));
            return out;
        };
        EXPECT_EQ(written(5, 6, 0, "wifi_type:[5G], str:[r5_].\n"), std::string("r5_\0\0\0xx", 8));
        EXPECT_EQ(written(24, 3, 0, "wifi_type:[2.4G], str:[r2_].\n"), std::string("r2\0xxxxx", 8));
        EXPECT_EQ(written(6, 8, -1, "6 not support.\n"), std::string(8, '\0'));
    });
}
