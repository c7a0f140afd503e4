// foundation_encodings_test.cpp: hexadecimal, hash, MAC text and both Base64 pairs, at the edges of their room.

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "apsupport/foundation.h"

namespace {

// A heap buffer of exactly the room that is told, so that a sanitizer sees a byte too many.
struct Room {
    std::unique_ptr<char[]> bytes;
    explicit Room(int size) : bytes(new char[static_cast<size_t>(size)]) {
        std::memset(out(), '#', static_cast<size_t>(size));
    }
    char *out() const { return bytes.get(); }
    std::string written(int length) const { return {out(), static_cast<size_t>(length)}; }
};

}  // namespace

TEST(Hex, NeedsRoomForTwoDigitsAByteAndTheNul) {
    Room exact(2 * 3 + 1), short_of_one(2 * 3);
    EXPECT_EQ(str_to_hex("a\xff\x01", exact.out(), 7), exact.out());
    EXPECT_STREQ(exact.out(), "61ff01");
    EXPECT_EQ(str_to_hex("abc", short_of_one.out(), 6), nullptr);
    EXPECT_EQ(short_of_one.written(1), "#");
    EXPECT_EQ(str_to_hex("", exact.out(), 0), nullptr);
    EXPECT_EQ(str_to_hex(nullptr, exact.out(), 7), nullptr);
}

TEST(Hex, ReadsPairsOfDigitsWithoutChecking) {
    const std::tuple<const char *, int, const char *> cases[] = {{"61ff01", 4, "a\xff\x01"}, {"61FF", 3, "a\xff"},
                                                                 {"615", 3, "aP"},           {"", 1, ""},
                                                                 {"61ff01", 3, nullptr},     {"", 0, nullptr}};
    for (const auto &[hex, size, bytes] : cases) {
        Room room(size);
        EXPECT_EQ(hex_to_str(hex, room.out(), size), bytes == nullptr ? nullptr : room.out()) << hex;
        if (bytes != nullptr) {
            EXPECT_STREQ(room.out(), bytes);
        }
    }
    Room two(2);
    EXPECT_EQ(hex_to_str("615", two.out(), 2), two.out());
    EXPECT_EQ(two.written(2), "aP");
    Room odd_digit(3);
    hex_to_str("g0z", odd_digit.out(), 3);
    EXPECT_EQ(odd_digit.written(3), std::string("\0\x30\0", 3));
}

TEST(Hash, AddsSignedBytesInThirtyTwoBits) {
    const std::pair<const char *, unsigned int> cases[] = {
        {"", 0},       {"\xC3", 4294967235U},    {"\xff\xff", 4294967164U},
        {"ab", 12805}, {"netctrl", 3783915032U}, {nullptr, 0}};
    for (const auto &[text, hash] : cases) EXPECT_EQ(bkdr_hash(text), hash);
}

TEST(MacText, GainsItsColonsInPlace) {
    const std::pair<const char *, std::string> cases[] = {
        {"0011aabbccdd", "00:11:aa:bb:cc:dd"},
        {"0011aabbcc", "00:11:aa:bb:cc:"},
        {"0011a", "00:11:a"},
        {"", ""},
        {"0011aabbccdd-and-some-more-of-it", "00:11:aa:bb:cc:dd-and-some-more"}};
    for (const auto &[text, colons] : cases) {
        char mac[40];
        std::strcpy(mac, text);
        EXPECT_EQ(mac_str_32(mac), 1);
        EXPECT_EQ(mac, colons);
    }
    EXPECT_EQ(mac_str_32(nullptr), 0);
}

TEST(ProdBase64, StopsDigitsAtTheSizeButNotThePadding) {
    const struct {
        const char *text;
        int size, room;
        const char *encoded;
    } cases[] = {{"", 1, 1, ""},         {"a", 5, 5, "YQ=="}, {"ab", 5, 5, "YWI="},
                 {"abc", 5, 5, "YWJj"},  {"abc", 2, 3, "YW"}, {"abcd", 8, 9, "YWJjZA=="},
                 {"abcd", 2, 5, "YW=="}, {"a", 1, 4, "Y=="},  {"\xff\xfe", 5, 5, "//4="}};
    for (const auto &c : cases) {
        Room room(c.room);
        EXPECT_EQ(prod_encode64(room.out(), c.text, c.size), 0);
        EXPECT_STREQ(room.out(), c.encoded);
    }
}

TEST(ProdBase64, DecodesUpToPaddingAndKeepsAByteForTheNul) {
    const std::tuple<const char *, int, int, const char *> cases[] = {
        {"YWJj", 4, 0, "abc"},    {"YWJj", 3, -1, nullptr},     {"YQ==", 2, 0, "a"},
        {"YQ==", 1, -1, nullptr}, {"YWI", 3, 0, "ab"},          {"", 1, 0, ""},
        {"=", 1, 0, ""},          {"YWJjZ", 5, 0, "abc"},       {"YW Jj", 9, -1, nullptr},
        {"YWJj=x", 4, 0, "abc"},  {"\xc3\xa4", 9, -1, nullptr}, {"YWJjYWJj", 6, -1, nullptr}};
    for (const auto &[text, size, result, decoded] : cases) {
        SCOPED_TRACE(text);
        Room room(size);
        EXPECT_EQ(prod_decode64(room.out(), text, size), result);
        if (decoded != nullptr) {
            EXPECT_STREQ(room.out(), decoded);
        }
    }
}

TEST(KivraBase64, NeedsRoomForEachGroupAndTheNul) {
    const struct {
        std::string bytes;
        int size, result;
        const char *encoded;
    } cases[] = {{"", 1, 0, ""},          {"", 0, -1, nullptr},
                 {"a", 5, 4, "YQ=="},     {"a", 4, -1, nullptr},
                 {"ab", 5, 4, "YWI="},    {"abc", 5, 4, "YWJj"},
                 {"abc", 4, -1, nullptr}, {std::string("\0\0\0\0", 4), 9, 8, "AAAAAA=="},
                 {"abcd", 8, -1, nullptr}};
    for (const auto &c : cases) {
        Room room(c.size);
        EXPECT_EQ(kivra_base64_encode(c.bytes.data(), static_cast<int>(c.bytes.size()), room.out(), c.size), c.result);
        if (c.encoded != nullptr) {
            EXPECT_STREQ(room.out(), c.encoded);
        }
    }
    Room room(9);
    EXPECT_EQ(kivra_base64_encode("a", -1, room.out(), 9), -1);
}

TEST(KivraBase64, DecodesAsAResolverDoes) {
    const std::tuple<const char *, int, int, const char *> cases[] = {
        {"YWJj", 3, 3, "abc"}, {"YWJj", 2, -1, ""},  {"Y\nW\tJ j\r", 3, 3, "abc"}, {" Y Q = = ", 1, 1, "a"},
        {"YWI=", 2, 2, "ab"},  {"YQ==", 1, 1, "a"},  {"YQ==", 0, -1, ""},          {"", 0, 0, ""},
        {"YQ=", 9, -1, ""},    {"YQ", 9, -1, ""},    {"YWI", 9, -1, ""},           {"Y===", 9, -1, ""},
        {"=", 9, -1, ""},      {"YWJj=", 9, -1, ""}, {"YWI==", 9, -1, ""},         {"YQ==YQ==", 9, -1, ""},
        {"YR==", 9, -1, ""},   {"YWJ=", 9, -1, ""},  {"YW\x0eJj", 9, -1, ""},      {"YW-j", 9, -1, ""}};
    for (const auto &[text, size, result, decoded] : cases) {
        SCOPED_TRACE(text);
        Room room(size);
        EXPECT_EQ(kivra_base64_decode(text, room.out(), size), result);
        if (result > 0) {
            EXPECT_EQ(room.written(result), decoded);
        }
    }
    EXPECT_EQ(kivra_base64_decode("Y W J j Y Q==", nullptr, 0), 4);
    EXPECT_EQ(kivra_base64_decode("YW", nullptr, 0), -1);
}

TEST(KivraBase64, ReturnsEveryByteOfEveryShortLength) {
    std::string bytes;
    for (int length = 0; length <= 260; bytes.push_back(static_cast<char>(length++ * 7))) {
        char encoded[400], decoded[300];
        const int written = kivra_base64_encode(bytes.data(), length, encoded, sizeof encoded);
        EXPECT_EQ(written, (length + 2) / 3 * 4);
        EXPECT_EQ(kivra_base64_decode(encoded, nullptr, 0), length);
        ASSERT_EQ(kivra_base64_decode(encoded, decoded, length), length);
        EXPECT_EQ(std::string(decoded, static_cast<size_t>(length)), bytes);
    }
}
