// foundation_config_test.cpp: configuration access over a scripted store that counts what reaches it.

#include <cfloat>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <tuple>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

std::map<std::string, std::string> store;
int writes, removals, commits, accepted;

struct ConfigAccess : testing::Test {
    void SetUp() override {
        store = {{"lan.ip", "192.168.5.1"}, {"empty", ""}, {"port3", "12abc"}};
        writes = removals = commits = 0;
        accepted = 1;
        prod_cfm_init();
    }
};

}  // namespace

extern "C" int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    if (found == store.end()) return 0;
    std::memcpy(value, found->second.c_str(), found->second.size() + 1);
    return 7;
}
extern "C" int SetValue(const char *key, const char *value) {
    ++writes;
    if (accepted != 0) store[key] = value;
    return accepted;
}
extern "C" int UnSetValue(const char *key) { return ++removals, static_cast<int>(store.erase(key)); }
extern "C" int CommitCfm(void) { return ++commits, 5; }

TEST_F(ConfigAccess, ReadsTextsAndTellsFoundFromMissing) {
    char value[2308] = "as it was";
    EXPECT_EQ(prod_cfm_get_val("lan.ip", value), 7);
    EXPECT_STREQ(value, "192.168.5.1");
    EXPECT_EQ(prod_cfm_get_val("missing", value), 0);
    EXPECT_STREQ(value, "192.168.5.1");
    EXPECT_EQ(__prod_cfm_get_fmt_val(value, "port%d", 3), 7);
    EXPECT_STREQ(value, "12abc");
    EXPECT_EQ(prod_cfm_get_val(nullptr, value), 0);
    EXPECT_EQ(prod_cfm_get_val("lan.ip", nullptr), 0);
    EXPECT_EQ(__prod_cfm_get_fmt_val(value, nullptr), 0);
}

TEST_F(ConfigAccess, ReadsNumbersAsFarAsTextsBeginLikeOne) {
    const std::tuple<const char *, int, unsigned long long, double> cases[] = {
        {"12abc", 12, 12, 12},
        {"abc", 0, 0, 0},
        {"", 0, 0, 0},
        {" -7", -7, ~0ULL - 6, -7},
        {"2.75", 2, 2, 2.75},
        {"2147483647", INT_MAX, INT_MAX, INT_MAX},
        {"-99999999999", INT_MIN, 0ULL - 99999999999, -99999999999.0},
        {"18446744073709551615", INT_MAX, LLONG_MAX, 18446744073709551615.0},
        {"000000000000000000012", 12, 1, 12},                       // one above 20 characters
        {"0000000000000000000000000000000000000000012", 12, 0, 1},  // one above 42
    };
    for (const auto &[text, as_int, as_uint, as_double] : cases) {
        SCOPED_TRACE(text);
        store["number5"] = text;
        EXPECT_EQ(prod_cfm_get_int_val("number%d", 5), as_int);
        EXPECT_EQ(prod_cfm_get_uint_val("number%d", 5), as_uint);
        EXPECT_EQ(prod_cfm_get_double_val("number%d", 5), as_double);
    }
    EXPECT_EQ(prod_cfm_get_int_val("missing"), 0);
    EXPECT_EQ(prod_cfm_get_uint_val("missing"), 0U);
    EXPECT_EQ(prod_cfm_get_double_val("missing"), 0.0);
}

TEST_F(ConfigAccess, ReadsTheLongestValueAndCutsLongKeys) {
    store["long"] = std::string(2307, '1');
    char value[2308];
    EXPECT_NE(prod_cfm_get_val("long", value), 0);
    EXPECT_EQ(std::strlen(value), 2307U);
    EXPECT_EQ(prod_cfm_get_uint_val("long"), 9223372036854775807ULL);
    store[std::string(511, 'k')] = "cut";
    EXPECT_NE(__prod_cfm_get_fmt_val(value, "%s", std::string(600, 'k').c_str()), 0);
    EXPECT_STREQ(value, "cut");
}

TEST_F(ConfigAccess, WritesOnlyWhatChangesAndCountsIt) {
    char scratch[2308] = "new";
    const struct {
        const char *what;
        int result, written;
        std::function<int()> call;
    } cases[] = {
        {"same", 0, 0, [] { return prod_cfm_set_val("lan.ip", "192.168.5.1"); }},
        {"other", 1, 1, [] { return prod_cfm_set_val("lan.ip", "10.0.0.1"); }},
        {"empty over text", 1, 1, [] { return prod_cfm_set_val("lan.ip", ""); }},
        {"empty for a missing key", 0, 0, [] { return prod_cfm_set_val("missing", ""); }},
        {"empty refused", 0, 0, [] { return prod_cfm_set_val_check("lan.ip", ""); }},
        {"checked", 1, 1, [] { return prod_cfm_set_val_check("lan.ip", "1"); }},
        {"no key", 0, 0, [] { return prod_cfm_set_val(nullptr, "1"); }},
        {"no value", 0, 0, [] { return prod_cfm_set_val("lan.ip", nullptr); }},
        {"format", 1, 1, [] { return __prod_cfm_set_fmt_val("13", "port%d", 3); }},
        {"format, same", 0, 0, [] { return __prod_cfm_set_fmt_val("12abc", "port%d", 3); }},
        {"format, number", 1, 1, [] { return __prod_cfm_set_fmt_int_val(13, "port%d", 3); }},
        {"removal", 1, 0, [] { return prod_cfm_unset_val("lan.ip"); }},
        {"removal of an empty value", 0, 0, [] { return prod_cfm_unset_val("empty"); }},
        {"removal of a missing key", 0, 0, [] { return prod_cfm_unset_val("missing"); }},
        {"if changed", 1, 1, [&] { return set_if_changed("lan.ip", "new", scratch); }},
        {"if changed, same", 0, 0, [&] { return set_if_changed("lan.ip", "192.168.5.1", scratch); }},
        {"if changed, missing key", 1, 1, [&] { return set_if_changed("missing", "new", scratch); }},
        {"format if changed", 1, 1, [] { return __set_fmt_val_if_changed("13", "port%d", 3); }},
        {"format if changed, same", 0, 0, [] { return __set_fmt_val_if_changed("12abc", "port%d", 3); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        EXPECT_EQ(c.call(), c.result);
        EXPECT_EQ(writes, c.written);
        EXPECT_EQ(prod_cfm_is_change(), c.result);
    }
    EXPECT_EQ(set_if_changed("lan.ip", "1", nullptr), -1);
    EXPECT_EQ(set_if_changed("lan.ip", "1", scratch), 1);
    EXPECT_STREQ(scratch, "192.168.5.1");
}

TEST_F(ConfigAccess, RendersNumbers) {
    prod_cfm_set_int_val("n", INT_MIN);
    EXPECT_EQ(store["n"], "-2147483648");
    prod_cfm_set_uint64_val("n", ~0ULL);
    EXPECT_EQ(store["n"], "18446744073709551615");
    prod_cfm_set_double_val("n", 1.5);
    EXPECT_EQ(store["n"], "1.500000");
    prod_cfm_set_double_val("n", -DBL_MAX);
    EXPECT_EQ(store["n"], "-1797693134862315708");
}

TEST_F(ConfigAccess, LaysALimitedWriteOverTheOldValue) {
    const struct {
        const char *what, *old_value, *new_value;
        unsigned int n;
        int result;
        const char *stored;
    } cases[] = {
        {"shorter than n", "abcdef", "xy", 4, 1, "xy"},        {"as long as n", "abcdef", "wxyz", 4, 1, "wxyzef"},
        {"longer than n", "abcdef", "uvwxyz", 4, 1, "uvwxef"}, {"nothing to copy", "abcdef", "xy", 0, 1, "abcdef"},
        {"same", "abcdef", "abcdef", 2, 0, "abcdef"},          {"largest n", "abcdef", "xy", 2308, 1, "xy"},
        {"n too large", "abcdef", "xy", 2309, 0, "abcdef"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        store["k"] = c.old_value;
        prod_cfm_init();
        EXPECT_EQ(prod_cfm_n_set_val("k", c.new_value, c.n), c.result);
        EXPECT_EQ(store["k"], c.stored);
        EXPECT_EQ(prod_cfm_is_change(), c.result);
    }
}

TEST_F(ConfigAccess, CountsAWriteThatTheStoreRefusesAndCommitsWithoutOne) {
    EXPECT_EQ(prod_cfm_commit(), 5);
    accepted = 0;
    EXPECT_EQ(prod_cfm_set_val("lan.ip", "1"), 1);
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(prod_cfm_commit(), 5);
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(commits, 2);
}

TEST_F(ConfigAccess, GateShowsWritesFromLevelFourOn) {
    const struct {
        unsigned int level;
        const char *value;
        int result, written;
        const char *printed;
    } cases[] = {
        {3, "a", 1, 1, ""},
        {4, "192.168.5.1", 1, 0, ""},
        {4, "b", 1, 1, "\033[1;40;34m#### [SET] lan.ip: 192.168.5.1 -> b\n\033[0m"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        SetUp();
        set_dbg_level("cfm", c.level);
        EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(__wrap_SetValue("lan.ip", c.value), c.result); }), c.printed);
        EXPECT_EQ(writes, c.written);
        EXPECT_EQ(prod_cfm_is_change(), 0);
    }
    EXPECT_EQ(__wrap_SetValue("lan.ip", nullptr), 0);
}
