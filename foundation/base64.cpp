// base64.cpp: two pairs of Base64 functions with different contracts, both with the standard alphabet and "=" padding.
//
// The `prod_` pair works on texts and returns 0 or -1; the `kivra_` pair works on bytes, skips white space when it
// decodes, and returns lengths.

#include <array>
#include <cstdint>
#include <cstring>

#include "apsupport/foundation.h"

namespace ap {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char padding = '=';
constexpr uint8_t no_digit = 255;

constexpr std::array<uint8_t, 256> digit_values = [] {
    std::array<uint8_t, 256> values{};
    values.fill(no_digit);
    for (uint8_t i = 0; i < 64; ++i) values[static_cast<uint8_t>(alphabet[i])] = i;
    return values;
}();

uint8_t digit_value(char c) { return digit_values[static_cast<uint8_t>(c)]; }
bool is_white_space(char c) { return c == ' ' || (c >= 9 && c <= 13); }

// The four digits of up to three bytes; missing bytes count as zero.
struct Group {
    char digits[4];

    Group(const unsigned char *bytes, size_t count) {
        const uint32_t second = count > 1 ? bytes[1] : 0, third = count > 2 ? bytes[2] : 0;
        const uint32_t word = static_cast<uint32_t>(bytes[0]) << 16 | second << 8 | third;
        for (unsigned int i = 0; i < 4; ++i) digits[i] = alphabet[word >> (18 - 6 * i) & 63];
    }
};

}  // namespace

}  // namespace ap

// Alphabet characters stop at `size`; the padding and the NUL are written behind them in any case, up to 3 bytes.
int prod_encode64(char *out, const char *text, int size) {
    if (out == nullptr || text == nullptr) return -1;
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    const size_t length = std::strlen(text), room = size > 0 ? static_cast<size_t>(size) : 0;
    size_t written = 0;
    for (size_t i = 0; i < length && written < room; i += 3) {
        const size_t count = length - i < 3 ? length - i : 3;
        const ap::Group group(bytes + i, count);
        for (size_t digit = 0; digit < count + 1 && written < room; ++digit) out[written++] = group.digits[digit];
    }
    for (size_t i = length; i % 3 != 0; ++i) out[written++] = ap::padding;
    out[written] = '\0';
    return 0;
}

// Each group of up to four characters must leave a byte of the room behind its own bytes, for the NUL.
int prod_decode64(char *out, const char *text, int size) {
    if (out == nullptr || text == nullptr) return -1;
    const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
    size_t written = 0;
    while (*text != '\0' && *text != ap::padding) {
        uint32_t word = 0;
        size_t digits = 0;
        for (; digits < 4 && *text != '\0' && *text != ap::padding; ++digits, ++text) {
            const uint8_t value = ap::digit_value(*text);
            if (value == ap::no_digit) return -1;
            word |= static_cast<uint32_t>(value) << (18 - 6 * digits);
        }
        if (written + digits - 1 >= room) return -1;
        for (size_t i = 0; i < digits - 1; ++i) out[written++] = static_cast<char>(word >> (16 - 8 * i));
        out[written] = '\0';
    }
    if (written == 0 && room > 0) *out = '\0';
    return 0;
}

int kivra_base64_encode(const void *source, int length, char *out, int size) {
    if (length < 0 || (source == nullptr && length > 0) || out == nullptr) return -1;
    const auto *bytes = static_cast<const unsigned char *>(source);
    int written = 0;
    for (int i = 0; i < length; i += 3) {
        const auto count = static_cast<size_t>(length - i < 3 ? length - i : 3);
        if (size - written < 4) return -1;
        ap::Group group(bytes + i, count);
        std::memset(group.digits + count + 1, ap::padding, 3 - count);
        std::memcpy(out + written, group.digits, sizeof group.digits);
        written += 4;
    }
    if (written >= size) return -1;
    out[written] = '\0';
    return written;
}

namespace ap {

namespace {

const char *skip_white_space(const char *text) {
    while (is_white_space(*text)) ++text;
    return text;
}

// What may stand from the first "=" on, behind `digits` digits of a last group: white space, and a second "=" after two
// digits.
bool is_valid_end(const char *text, int digits) {
    if (digits < 2) return false;
    if (digits == 2) {
        text = skip_white_space(text + 1);
        if (*text != padding) return false;
    }
    return *skip_white_space(text + 1) == '\0';
}

// Writes decoded bytes, or only counts them when there is no buffer.
class ByteSink {
public:
    ByteSink(void *out, int size) : out_(static_cast<unsigned char *>(out)), room_(out == nullptr ? INT32_MAX : size) {}

    bool put(uint32_t byte) {
        if (count_ >= room_) return false;
        if (out_ != nullptr) out_[count_] = static_cast<unsigned char>(byte);
        ++count_;
        return true;
    }
    bool only_counts() const { return out_ == nullptr; }
    int count() const { return count_; }

private:
    unsigned char *out_;
    int room_, count_ = 0;
};

}  // namespace

}  // namespace ap

// Every digit but a group's first completes a byte. The bits that a last, shorter group leaves over must be zero,
// unless the bytes are only counted.
int kivra_base64_decode(const char *text, void *out, int size) {
    if (text == nullptr) return -1;
    ap::ByteSink sink(out, size);
    uint32_t bits = 0;
    int digits = 0;
    for (text = ap::skip_white_space(text); *text != '\0' && *text != ap::padding;
         text = ap::skip_white_space(text + 1)) {
        const uint8_t value = ap::digit_value(*text);
        if (value == ap::no_digit) return -1;
        bits = bits << 6 | value;
        const int left_over = 6 - 2 * digits;
        if (digits > 0 && !sink.put(bits >> left_over & 255)) return -1;
        digits = (digits + 1) % 4;
    }
    if (*text == '\0') return digits == 0 ? sink.count() : -1;
    if (!ap::is_valid_end(text, digits)) return -1;
    const uint32_t extra = bits & (digits == 2 ? 15 : 3);
    return extra == 0 || sink.only_counts() ? sink.count() : -1;
}
