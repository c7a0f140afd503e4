// foundation_config_test.cpp: configuration access over a scripted store that notes what reaches it.

#include <cfloat>
#include <climits>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <tuple>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

std::map<std::string, std::string> store;
std::string calls;  // "r" a read, "w" a write, "u" a removal, "c" a commit
int set_result;

struct ConfigAccess : testing::Test {
    void SetUp() override {
        store = {{"lan.ip", "192.168.5.1"}, {"empty", ""}, {"port3", "12abc"}};
        set_result = 1;
        prod_cfm_init();
        calls.clear();
    }
};

}  // namespace

extern "C" int GetValue(const char *key, char *value) {
    calls += 'r';
    const auto found = store.find(key);
    if (found == store.end()) return 0;
    std::memcpy(value, found->second.c_str(), found->second.size() + 1);
    return 7;
}
extern "C" int SetValue(const char *key, const char *value) {
    calls += 'w';
    if (set_result != 0) store[key] = value;
    return set_result;
}
extern "C" int UnSetValue(const char *key) { return calls += 'u', static_cast<int>(store.erase(key)); }
extern "C" int CommitCfm(void) { return calls += 'c', 5; }

TEST_F(ConfigAccess, ReadsTextsAndTellsFoundFromMissing) {
    char value[2308] = "as it was";
    EXPECT_EQ(prod_cfm_get_val("missing", value), 0);
    EXPECT_STREQ(value, "as it was");
    EXPECT_EQ(__prod_cfm_get_fmt_val(value, "port%d", 3), 7);
    EXPECT_STREQ(value, "12abc");
    store["long"] = std::string(2307, '1');
    EXPECT_EQ(prod_cfm_get_val("long", value), 7);
    EXPECT_EQ(value, store["long"]);
    EXPECT_EQ(prod_cfm_get_uint_val("long"), 9223372036854775807ULL);
    store[std::string(511, 'k')] = "under a key that is cut";
    EXPECT_EQ(__prod_cfm_get_fmt_val(value, "%s", std::string(600, 'k').c_str()), 7);
    EXPECT_STREQ(value, "under a key that is cut");
    EXPECT_EQ(prod_cfm_get_val(nullptr, value) + prod_cfm_get_val("lan.ip", nullptr), 0);
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
        {nullptr, 0, 0, 0},
    };
    for (const auto &[text, as_int, as_uint, as_double] : cases) {
        SCOPED_TRACE(text == nullptr ? "missing" : text);
        store.erase("number5");
        if (text != nullptr) store["number5"] = text;
        EXPECT_EQ(prod_cfm_get_int_val("number%d", 5), as_int);
        EXPECT_EQ(prod_cfm_get_uint_val("number%d", 5), as_uint);
        EXPECT_EQ(prod_cfm_get_double_val("number%d", 5), as_double);
    }
}

TEST_F(ConfigAccess, WritesOnlyWhatChangesAndCountsIt) {
    char scratch[2308] = "new";
    const struct {
        const char *what;
        int result;
        const char *calls;
        std::function<int()> call;
    } cases[] = {
        {"same", 0, "r", [] { return prod_cfm_set_val("lan.ip", "192.168.5.1"); }},
        {"other", 1, "rrw", [] { return prod_cfm_set_val("lan.ip", "10.0.0.1"); }},
        {"empty over text", 1, "rrw", [] { return prod_cfm_set_val("lan.ip", ""); }},
        {"empty for a missing key", 0, "r", [] { return prod_cfm_set_val("missing", ""); }},
        {"empty refused", 0, "", [] { return prod_cfm_set_val_check("lan.ip", ""); }},
        {"checked", 1, "rrw", [] { return prod_cfm_set_val_check("lan.ip", "1"); }},
        {"refused by the store", 1, "rrw", [] { return set_result = 0, prod_cfm_set_val("lan.ip", "1"); }},
        {"no key", 0, "", [] { return prod_cfm_set_val(nullptr, "1"); }},
        {"no value", 0, "", [] { return prod_cfm_set_val("lan.ip", nullptr); }},
        {"format", 1, "rrw", [] { return __prod_cfm_set_fmt_val("13", "port%d", 3); }},
        {"format, number", 1, "rrw", [] { return __prod_cfm_set_fmt_int_val(13, "port%d", 3); }},
        {"removal", 1, "ru", [] { return prod_cfm_unset_val("lan.ip"); }},
        {"removal of an empty value", 0, "r", [] { return prod_cfm_unset_val("empty"); }},
        {"removal of a missing key", 0, "r", [] { return prod_cfm_unset_val("missing"); }},
        {"if changed", 1, "rrrw", [&] { return set_if_changed("lan.ip", "new", scratch); }},
        {"if changed, same", 0, "r", [&] { return set_if_changed("lan.ip", "192.168.5.1", scratch); }},
        {"if changed, missing key", 1, "rrrw", [&] { return set_if_changed("missing", "new", scratch); }},
        {"format if changed", 1, "rrrw", [] { return __set_fmt_val_if_changed("13", "port%d", 3); }},
        {"format if changed, same", 0, "r", [] { return __set_fmt_val_if_changed("12abc", "port%d", 3); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        EXPECT_EQ(c.call(), c.result);
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(prod_cfm_commit(), 5);
        EXPECT_EQ(prod_cfm_is_change(), c.result);  // committed or not
    }
    EXPECT_EQ(set_if_changed("lan.ip", "1", nullptr), -1);
    EXPECT_EQ(set_if_changed("lan.ip", "1", scratch), 1);
    EXPECT_STREQ(scratch, "192.168.5.1");
}

TEST_F(ConfigAccess, RendersNumbers) {
    prod_cfm_set_int_val("int", INT_MIN);
    EXPECT_EQ(store["int"], "-2147483648");
    prod_cfm_set_uint64_val("unsigned", ~0ULL);
    EXPECT_EQ(store["unsigned"], "18446744073709551615");
    prod_cfm_set_double_val("double", 1.5);
    EXPECT_EQ(store["double"], "1.500000");
    prod_cfm_set_double_val("double", -DBL_MAX);
    EXPECT_EQ(store["double"], "-1797693134862315708");
}

TEST_F(ConfigAccess, LaysALimitedWriteOverTheOldValue) {
    const std::tuple<const char *, unsigned int, int, const char *> cases[] = {
        {"xy", 4, 1, "xy"},         {"wxyz", 4, 1, "wxyzef"}, {"uvwxyz", 4, 1, "uvwxef"}, {"xy", 0, 1, "abcdef"},
        {"abcdef", 2, 0, "abcdef"}, {"xy", 2308, 1, "xy"},    {"xy", 2309, 0, "abcdef"}};
    for (const auto &[value, n, result, stored] : cases) {
        store["k"] = "abcdef";
        prod_cfm_init();
        EXPECT_EQ(prod_cfm_n_set_val("k", value, n), result) << value << n;
        EXPECT_EQ(store["k"], stored) << value << n;
        EXPECT_EQ(prod_cfm_is_change(), result) << value << n;
    }
}

TEST_F(ConfigAccess, GateShowsWritesFromLevelFourOn) {
    const std::tuple<unsigned int, const char *, int, const char *, const char *> cases[] = {
        {3, "a", 9, "rw", ""},
        {4, "192.168.5.1", 1, "r", ""},
        {4, "b", 9, "rw", "\033[1;40;34m#### [SET] lan.ip: 192.168.5.1 -> b\n\033[0m"},
        {4, nullptr, 0, "", ""},
    };
    for (const auto &[level, value, result, reached, printed] : cases) {
        SetUp();
        set_result = 9;
        set_dbg_level("cfm", level);
        EXPECT_EQ(test::printed_by([&, v = value, r = result] { EXPECT_EQ(__wrap_SetValue("lan.ip", v), r); }),
                  printed);
        EXPECT_EQ(calls, reached);
        EXPECT_EQ(prod_cfm_is_change(), 0);
    }
}
