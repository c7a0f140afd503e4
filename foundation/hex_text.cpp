// hex_text.cpp: bytes as pairs of lower-case hexadecimal digits and back, the MAC colon form, and a text hash.

#include <cctype>
#include <cstring>

#include "apsupport/foundation.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr char hex_digits[] = "0123456789abcdef";

// What is no digit is not refused: it counts as its lower-case code minus 87.
int hex_value(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    return std::tolower(static_cast<unsigned char>(digit)) - 87;
}

bool has_room(int size, size_t needed) { return size > 0 && static_cast<size_t>(size) >= needed; }

}  // namespace

}  // namespace ap

char *str_to_hex(const char *text, char *out, int size) {
    if (text == nullptr || out == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (!ap::has_room(size, 2 * length + 1)) return nullptr;
    char *at = out;
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        *at++ = ap::hex_digits[byte >> 4];
        *at++ = ap::hex_digits[byte & 15];
    }
    *at = '\0';
    return out;
}

// An odd last digit becomes the high nibble of one more byte; where that byte takes the last of the room, no NUL
// follows.
char *hex_to_str(const char *hex, char *out, int size) {
    if (hex == nullptr || out == nullptr) return nullptr;
    const size_t length = std::strlen(hex);
    if (!ap::has_room(size, length / 2 + 1)) return nullptr;
    size_t written = 0;
    for (size_t i = 0; i < length; i += 2) {
        const int low = i + 1 < length ? ap::hex_value(hex[i + 1]) : 0;
        out[written++] = static_cast<char>(ap::hex_value(hex[i]) << 4 | low);
    }
    if (written < static_cast<size_t>(size)) out[written] = '\0';
    return out;
}

// Bytes of 128 and above add a negative value.
unsigned int bkdr_hash(const char *text) {
    uint32_t hash = 0;
    if (text == nullptr) return hash;
    for (; *text != '\0'; ++text) hash = hash * 131 + static_cast<uint32_t>(static_cast<signed char>(*text));
    return hash;
}

// A text that ends before its five pairs are complete ends the result there.
int mac_str_32(char *mac) {
    if (mac == nullptr) return 0;
    char colons[32];
    size_t length = 0;
    const char *rest = mac;
    for (int pair = 0; pair < 5 && rest[0] != '\0' && rest[1] != '\0'; ++pair, rest += 2) {
        colons[length++] = rest[0];
        colons[length++] = rest[1];
        colons[length++] = ':';
    }
    length += ap::copy_text(colons + length, sizeof colons - length, rest);
    std::memcpy(mac, colons, length + 1);
    return 1;
}
