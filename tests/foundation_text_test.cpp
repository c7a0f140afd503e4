// foundation_text_test.cpp: texts changed in place and new ones, encodings at the edges of their room, and words quoted
// for the shell, as a real shell reads them back. The quoting is not exported, so it is built into this program.

#include "foundation/shell_word.cpp"  // NOLINT(bugprone-suspicious-include)

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "apsupport/foundation.h"
#include "foundation/owned.h"

namespace {

// What a function makes of a text in place; `change` may return the text itself.
template <typename Change> std::string changed(const char *text, Change change) {
    std::vector<char> buffer(text, text + std::strlen(text) + 1);
    if constexpr (std::is_same_v<decltype(change(buffer.data())), char *>) {
        EXPECT_EQ(change(buffer.data()), buffer.data());
    } else {
        change(buffer.data());
    }
    return buffer.data();
}

std::string take(char *text) {
    std::string copy = text == nullptr ? "(null)" : text;
    std::free(text);
    return copy;
}

using Coder = int (*)(const char *text, char *out, int size);

// Runs a coder on a buffer of exactly `room` bytes, so that a sanitizer sees one too many. "RESULT BYTES", with a "#" for
// each byte that is left as it was; only the result when it is negative.
std::string outcome(Coder coder, const char *text, int size, int room) {
    const std::string untouched(static_cast<size_t>(room), '#');
    const std::unique_ptr<char[]> out(new char[untouched.size()]);
    untouched.copy(out.get(), untouched.size());
    const int result = coder(text, out.get(), size);
    const std::string bytes(out.get(), strnlen(out.get(), untouched.size()));
    return std::to_string(result) + (result < 0 ? "" : " " + bytes);
}

struct Case {
    const char *text;
    int size;
    const char *outcome;
};
template <size_t N> void expect_outcomes(Coder coder, const Case (&cases)[N]) {
    for (const auto &c : cases) EXPECT_EQ(outcome(coder, c.text, c.size, c.size), c.outcome);
}

int to_hex(const char *text, char *out, int size) { return str_to_hex(text, out, size) == out ? 0 : -1; }
int from_hex(const char *text, char *out, int size) { return hex_to_str(text, out, size) == out ? 0 : -1; }
int encode_prod(const char *text, char *out, int size) { return prod_encode64(out, text, size); }
int decode_prod(const char *text, char *out, int size) { return prod_decode64(out, text, size); }
int encode_kivra(const char *text, char *out, int size) {
    return kivra_base64_encode(text, static_cast<int>(std::strlen(text)), out, size);
}
int decode_kivra(const char *text, char *out, int size) { return kivra_base64_decode(text, out, size); }

}  // namespace

TEST(Strings, ChangeInPlace) {
    EXPECT_EQ(changed("aZ-9\xe9", str_to_upper), "AZ-9\xe9");
    EXPECT_EQ(changed("aZ-9", str_to_lower), "az-9");
    EXPECT_EQ(changed("a.b..c", [](char *s) { EXPECT_EQ(replace_char(s, '.', '_'), 0); }), "a_b__c");
    EXPECT_EQ(changed(".a.b..", [](char *s) { EXPECT_EQ(str_del_chars(s, '.'), 1); }), "ab");
    EXPECT_EQ(changed("abc", str_reverse), "cba");
    EXPECT_EQ(changed("", str_reverse), "");
    const std::pair<const char *, const char *> fractions[] = {{"1.500", "1.5"}, {"2.000", "2"}, {"100", "100"},
                                                               {"0.0", "0"},     {"0.", "0"},    {".0", ""},
                                                               {"1.05", "1.05"}, {"", ""}};
    for (const auto &[text, result] : fractions) EXPECT_EQ(changed(text, removeLastZero), result) << text;
    const std::tuple<const char *, const char *, const char *, const char *> trims[] = {
        {"  a b  ", "a b  ", "  a b", "a b"}, {"   ", "", "", ""}, {"", "", "", ""}, {"ab", "ab", "ab", "ab"}};
    for (const auto &[text, left, right, both] : trims) {
        EXPECT_EQ(changed(text, [](char *s) { return str_trim_left(s, ' '); }), left);
        EXPECT_EQ(changed(text, [](char *s) { return str_trim_right(s, ' '); }), right);
        EXPECT_EQ(changed(text, [](char *s) { return str_trim(s, ' '); }), both);
    }
    const std::tuple<const char *, const char *, const char *, int> cuts[] = {
        {"a;b;c", ";", "a", 1}, {"abc", "abc", "", 0}, {"abc", "abcd", "abc", -1}, {"abc", "", "", 0}};
    for (const auto &[text, sub, rest, at] : cuts) {
        EXPECT_EQ(changed(text, [cut = sub, place = at](
                                    char *s) { EXPECT_EQ(removeSubstr(s, cut), place < 0 ? nullptr : s + place); }),
                  rest);
    }
}

TEST(Strings, AreCheckedAndCounted) {
    for (const char *yes : {"-12", "+0", "7", "0123456789"}) EXPECT_EQ(str_isdigit(yes), 1) << yes;
    for (const char *no : {"-", "", "1a", "+-1", " 1", "1.0", "/", ":"}) EXPECT_EQ(str_isdigit(no), 0) << no;
    for (const char *yes : {"", " ~", "a\r\n\tb", "\x7f"}) EXPECT_EQ(str_is_printable(yes), 1) << yes;
    for (const char *no : {"\x1f", "\x80", "a\xff", "\x0b"}) EXPECT_EQ(str_is_printable(no), 0) << no;
    const std::pair<const char *, int> lists[] = {{"a,b,c", 3}, {"abc", 0}, {",", 2}, {"", 0}};
    for (const auto &[text, sections] : lists) EXPECT_EQ(count_section_by_identifier(text, ','), sections) << text;
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
}

TEST(Strings, JoinAndReplaceIntoNewTexts) {
    const std::tuple<const char *, const char *, const char *> joins[] = {
        {"abc", "-", "a-b-c"}, {"abc", "", "abc"}, {"a", "--", "a"}, {"", "-", ""}, {nullptr, "-", "(null)"}};
    for (const auto &[text, separator, result] : joins) EXPECT_EQ(take(str_join(text, separator)), result);
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"a.b.", ".", "", "ab"}, {"aaa", "aa", "b", "ba"}, {"ab", "b", "bcd", "abcd"},   {"ab", "x", "y", "ab"},
        {"ab", "", "y", "ab"},   {"", "x", "y", ""},       {"a", nullptr, "b", "(null)"}};
    for (const auto &[text, from, to, result] : cases) EXPECT_EQ(take(str_replace(text, from, to)), result);
}

TEST(Strings, AreLeftAloneWhenNull) {
    char *const none = nullptr;
    for (const char *result : {str_to_upper(none), str_trim(none, ' '), removeSubstr(none, "a"),
                               strnstr("abc", none, 3), strnstr(none, "a", 3)})
        EXPECT_EQ(result, nullptr);
    for (const int result : {replace_char(none, 'a', 'b'), str_del_chars(none, 'a'), str_isdigit(none),
                             str_is_printable(none), count_section_by_identifier(none, 'a')})
        EXPECT_EQ(result, 0);
    str_reverse(none);
    removeLastZero(none);
}

TEST(Strings, NameThisProcessOnceAndForAll) {
    const std::string name = get_self_pname();
    std::ofstream("/proc/self/comm") << "renamed";
    EXPECT_EQ(name, std::string("foundation_text_test").substr(0, 15));  // as long as the kernel keeps one
    EXPECT_EQ(get_self_pname(), name);
}

TEST(Hex, NeedsRoomForItsDigitsOrBytesAndTheNul) {
    const Case to_hex_cases[] = {{"a\xff\x01", 7, "0 61ff01"}, {"abc", 6, "-1"}, {"", 0, "-1"}, {nullptr, 7, "-1"}};
    expect_outcomes(to_hex, to_hex_cases);
    const Case from_hex_cases[] = {{"61ff01", 4, "0 a\xff\x01"}, {"61FF", 3, "0 a\xff"},
                                   {"615", 3, "0 aP"},           {"", 1, "0 "},
                                   {"61ff01", 3, "-1"},          {"", 0, "-1"},
                                   {"615", 2, "0 aP"},         // no room for the NUL of an odd length
                                   {"h0z", 3, "0 \x10\x30"}};  // what is no digit is not refused
    expect_outcomes(from_hex, from_hex_cases);
    char out[] = "##";
    EXPECT_EQ(str_to_hex("a", out, 2), nullptr);
    EXPECT_STREQ(out, "##");
}

TEST(Hash, AddsSignedBytesInThirtyTwoBits) {
    const std::pair<const char *, unsigned int> cases[] = {
        {"", 0},       {"\xC3", 4294967235U},    {"\xff\xff", 4294967164U},
        {"ab", 12805}, {"netctrl", 3783915032U}, {nullptr, 0}};
    for (const auto &[text, hash] : cases) EXPECT_EQ(bkdr_hash(text), hash);
}

TEST(MacText, GainsItsColonsInPlace) {
    const std::pair<const char *, const char *> cases[] = {
        {"0011aabbccdd", "00:11:aa:bb:cc:dd"},
        {"0011aabbcc", "00:11:aa:bb:cc:"},
        {"0011a", "00:11:a"},
        {"", ""},
        {"0011aabbccdd-and-some-more-of-it", "00:11:aa:bb:cc:dd-and-some-more"}};
    for (const auto &[text, colons] : cases) {
        char mac[40];
        std::strcpy(mac, text);
        EXPECT_EQ(mac_str_32(mac), 1);
        EXPECT_STREQ(mac, colons);
    }
    EXPECT_EQ(mac_str_32(nullptr), 0);
}

TEST(ProdBase64, StopsDigitsAtTheSizeButNotThePadding) {
    const std::tuple<const char *, int, std::string> cases[] = {
        {"", 1, ""},     {"a", 5, "YQ=="},        {"ab", 5, "YWI="},   {"abc", 5, "YWJj"},     {"abc", 2, "YW"},
        {"a", 1, "Y=="}, {"abcd", 8, "YWJjZA=="}, {"abcd", 2, "YW=="}, {"\xff\xfe", 5, "//4="}};
    for (const auto &[text, size, encoded] : cases)
        EXPECT_EQ(outcome(encode_prod, text, size, static_cast<int>(encoded.size()) + 1), "0 " + encoded);
}

TEST(ProdBase64, DecodesUpToPaddingAndKeepsAByteForTheNul) {
    const Case decode_prod_cases[] = {{"YWJj", 4, "0 abc"},   {"YWJj", 3, "-1"},     {"YQ==", 2, "0 a"},
                                      {"YQ==", 1, "-1"},      {"YWI", 3, "0 ab"},    {"", 1, "0 "},
                                      {"=", 1, "0 "},         {"YWJjZ", 5, "0 abc"}, {"YW Jj", 9, "-1"},
                                      {"YWJj=x", 4, "0 abc"}, {"\xc3\xa4", 9, "-1"}, {"YWJjYWJj", 6, "-1"}};
    expect_outcomes(decode_prod, decode_prod_cases);
}

TEST(KivraBase64, NeedsRoomForEachGroupAndTheNul) {
    const Case encode_kivra_cases[] = {{"", 1, "0 "},    {"", 0, "-1"},       {"a", 5, "4 YQ=="},
                                       {"a", 4, "-1"},   {"ab", 5, "4 YWI="}, {"abc", 5, "4 YWJj"},
                                       {"abc", 4, "-1"}, {"abcd", 8, "-1"}};
    expect_outcomes(encode_kivra, encode_kivra_cases);
    char out[9];
    EXPECT_EQ(kivra_base64_encode("\0\0\0\xff", 4, out, 9), 8);
    EXPECT_STREQ(out, "AAAA/w==");
    EXPECT_EQ(kivra_base64_encode("a", -1, out, 9), -1);
}

TEST(KivraBase64, DecodesAsAResolverDoes) {
    const Case decode_kivra_cases[] = {{"YWJj", 3, "3 abc"},    {"YWJj", 2, "-1"},   {"Y\nW\tJ j\r", 3, "3 abc"},
                                       {" Y Q = = ", 1, "1 a"}, {"YWI=", 2, "2 ab"}, {"YQ==", 1, "1 a"},
                                       {"YQ==", 0, "-1"},       {"", 0, "0 "},       {"YQ=", 9, "-1"},
                                       {"YQ", 9, "-1"},         {"YWI", 9, "-1"},    {"Y===", 9, "-1"},
                                       {"=", 9, "-1"},          {"YWJj=", 9, "-1"},  {"YWI==", 9, "-1"},
                                       {"YQ==YQ==", 9, "-1"},   {"YR==", 9, "-1"},   {"YWJ=", 9, "-1"},
                                       {"YW\x0eJj", 9, "-1"},   {"YW-j", 9, "-1"},   {"+/9+", 3, "3 \xfb\xff~"}};
    expect_outcomes(decode_kivra, decode_kivra_cases);
    EXPECT_EQ(kivra_base64_decode("Y W J j Y Q==", nullptr, 0), 4);
    EXPECT_EQ(kivra_base64_decode("YW", nullptr, 0), -1);
}

TEST(ShellWord, IsReadBackAsTheTextThatItWasMadeFrom) {
    const std::pair<const char *, const char *> cases[] = {{"plain-1.2:/@%+=_", "plain-1.2:/@%+=_"},
                                                           {"", "''"},
                                                           {"a b", "'a b'"},
                                                           {"it's", "'it'\\''s'"},
                                                           {"$(reboot)", "'$(reboot)'"},
                                                           {"a\n\"\\`;&", "'a\n\"\\`;&'"}};
    for (const auto &[text, quoted] : cases) {
        const ap::ShellWord word(text);
        EXPECT_STREQ(word.c_str(), quoted);
        const ap::UniquePipe pipe(popen((std::string("printf %s ") + word.c_str()).c_str(), "r"));
        char read_back[64] = {};
        EXPECT_EQ(std::fread(read_back, 1, sizeof read_back - 1, pipe.get()), std::strlen(text));
        EXPECT_STREQ(read_back, text);
    }
}

TEST(ShellWord, HoldsAConfigurationValueAndTellsNamesAndOptions) {
    const ap::ShellWord longest(std::string(2307, '\'').c_str());
    EXPECT_TRUE(longest.ok());
    EXPECT_EQ(std::strlen(longest.c_str()), 2 + 4 * 2307U);
    EXPECT_FALSE(ap::ShellWord(std::string(2308, 'a').c_str()).ok());
    EXPECT_FALSE(ap::ShellWord(nullptr).ok());
    for (const char *name : {"a", "..a", "-"}) EXPECT_TRUE(ap::is_file_name(name)) << name;
    for (const char *name : {"", ".", "..", "a/b", "/"}) EXPECT_FALSE(ap::is_file_name(name)) << name;
    EXPECT_TRUE(ap::looks_like_option("-rf"));
    EXPECT_FALSE(ap::looks_like_option("a-b"));
}
