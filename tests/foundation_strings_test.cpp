// foundation_strings_test.cpp: texts changed in place and new ones, as tables.

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <utility>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

// What a function makes of a text in place.
template <typename Change> std::string changed(const char *text, Change change) {
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    change(buffer.data());
    return buffer.data();
}

std::string take(char *text) {
    std::string copy = text == nullptr ? "(null)" : text;
    std::free(text);
    return copy;
}

}  // namespace

TEST(Strings, ChangeCaseAndCharacters) {
    EXPECT_EQ(changed("aZ-9\xe9", str_to_upper), "AZ-9\xe9");
    EXPECT_EQ(changed("aZ-9", str_to_lower), "az-9");
    EXPECT_EQ(changed("a.b..c", [](char *s) { EXPECT_EQ(replace_char(s, '.', '_'), 0); }), "a_b__c");
    EXPECT_EQ(changed(".a.b..", [](char *s) { EXPECT_EQ(str_del_chars(s, '.'), 1); }), "ab");
    EXPECT_EQ(changed("abc", str_reverse), "cba");
    EXPECT_EQ(changed("", str_reverse), "");
}

TEST(Strings, TrimBothEnds) {
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"  a b  ", "a b  ", "  a b", "a b"}, {"   ", "", "", ""}, {"", "", "", ""}, {"ab", "ab", "ab", "ab"}};
    for (const auto &[text, left, right, both] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(changed(text, [](char *s) { EXPECT_EQ(str_trim_left(s, ' '), s); }), left);
        EXPECT_EQ(changed(text, [](char *s) { EXPECT_EQ(str_trim_right(s, ' '), s); }), right);
        EXPECT_EQ(changed(text, [](char *s) { EXPECT_EQ(str_trim(s, ' '), s); }), both);
    }
}

TEST(Strings, TakeZerosOffTheEndOfAFraction) {
    const std::pair<const char *, const char *> cases[] = {{"1.500", "1.5"}, {"2.000", "2"}, {"100", "100"},
                                                           {"0.0", "0"},     {"0.", "0"},    {".0", ""},
                                                           {"1.05", "1.05"}, {"", ""}};
    for (const auto &[text, result] : cases) EXPECT_EQ(changed(text, removeLastZero), result) << text;
}

TEST(Strings, CutAtASubstring) {
    const struct {
        const char *text, *sub, *rest;
        int at;
    } cases[] = {{"a;b;c", ";", "a", 1}, {"abc", "abc", "", 0}, {"abc", "abcd", "abc", -1}, {"abc", "", "", 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(changed(c.text, [&](char *s) { EXPECT_EQ(removeSubstr(s, c.sub), c.at < 0 ? nullptr : s + c.at); }),
                  c.rest);
    }
    EXPECT_EQ(removeSubstr(nullptr, "a"), nullptr);
}

TEST(Strings, TellDigitsFromOthers) {
    for (const char *yes : {"-12", "+0", "7", "0123456789"}) EXPECT_EQ(str_isdigit(yes), 1) << yes;
    for (const char *no : {"-", "", "1a", "+-1", " 1", "1.0", "/", ":"}) EXPECT_EQ(str_isdigit(no), 0) << no;
    for (const char *yes : {"", " ~", "a\r\n\tb", "\x7f"}) EXPECT_EQ(str_is_printable(yes), 1) << yes;
    for (const char *no : {"\x1f", "\x80", "a\xff", "\x0b"}) EXPECT_EQ(str_is_printable(no), 0) << no;
    EXPECT_EQ(str_isdigit(nullptr) + str_is_printable(nullptr), 0);
}

TEST(Strings, CountAndCompare) {
    const std::pair<const char *, int> cases[] = {{"a,b,c", 3}, {"abc", 0}, {",", 2}, {"", 0}};
    for (const auto &[text, sections] : cases) EXPECT_EQ(count_section_by_identifier(text, ','), sections) << text;
    const std::tuple<int, int, int, int> ranges[] = {{-1, -1, 1, 1}, {1, -1, 1, 1}, {-2, -1, 1, 0},
                                                     {2, -1, 1, 0},  {0, 1, -1, 0}, {INT_MIN, INT_MIN, INT_MAX, 1}};
    for (const auto &[value, low, high, inside] : ranges)
        EXPECT_EQ(integer_is_between(value, low, high), inside) << value;
    EXPECT_STREQ(bool_to_string(-1), "true");
    EXPECT_STREQ(bool_to_string(0), "false");
}

TEST(Strings, FindWithinABound) {
    const std::tuple<const char *, const char *, size_t, int> cases[] = {
        {"abcabc", "ca", 4, 2}, {"abcabc", "ca", 3, -1}, {"abc", "c", 99, 2}, {"abc", "abc", 3, 0},
        {"abc", "abc", 2, -1},  {"abc", "", 3, -1},      {"abc", "a", 0, -1}, {"aab", "ab", SIZE_MAX, 1}};
    for (const auto &[hay, needle, n, at] : cases)
        EXPECT_EQ(strnstr(hay, needle, n), at < 0 ? nullptr : hay + at) << needle;
    EXPECT_EQ(strnstr("abc", nullptr, 3), nullptr);
}

TEST(Strings, JoinAndReplaceIntoNewTexts) {
    EXPECT_EQ(take(str_join("abc", "-")), "a-b-c");
    EXPECT_EQ(take(str_join("abc", "")), "abc");
    EXPECT_EQ(take(str_join("a", "--")), "a");
    EXPECT_EQ(take(str_join("", "-")), "");
    EXPECT_EQ(take(str_join(nullptr, "-")), "(null)");
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"a.b.", ".", "", "ab"}, {"aaa", "aa", "b", "ba"}, {"ab", "b", "bcd", "abcd"},
        {"ab", "x", "y", "ab"},  {"ab", "", "y", "ab"},    {"", "x", "y", ""}};
    for (const auto &[text, from, to, result] : cases) EXPECT_EQ(take(str_replace(text, from, to)), result) << text;
    EXPECT_EQ(str_replace("a", nullptr, "b"), nullptr);
}

TEST(Strings, LeaveNullTextsAlone) {
    EXPECT_EQ(str_to_upper(nullptr), nullptr);
    EXPECT_EQ(str_trim(nullptr, ' '), nullptr);
    EXPECT_EQ(replace_char(nullptr, 'a', 'b') + str_del_chars(nullptr, 'a') + count_section_by_identifier(nullptr, 'a'),
              0);
    str_reverse(nullptr);
    removeLastZero(nullptr);
}

TEST(Strings, NameThisProcessOnceAndForAll) {
    const std::string name = get_self_pname();
    std::ofstream("/proc/self/comm") << "renamed";
    EXPECT_EQ(name, std::string("foundation_strings_test").substr(0, 15));  // as long as the kernel keeps one
    EXPECT_EQ(get_self_pname(), name);
}
