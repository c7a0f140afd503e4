// character_sets.cpp: tells ASCII, GB2312 and UTF-8 apart and converts between the two, with the C library's iconv.
//
// A text that is well-formed UTF-8 is taken for UTF-8, whatever else it might be; anything else with a high bit set is
// taken for GB2312. Nothing keeps state; every function may run on any thread.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iconv.h>
#include <string>
#include <string_view>
#include <strings.h>

#include "applatform/system.h"

namespace {

enum Format : int { ascii = 0, gb2312 = 1, utf8 = 2, unknown = -1 };

struct Utf8Length {
    uint32_t mask, lead;
    size_t followers;
    size_t least;  // the smallest character that needs this length
};
constexpr Utf8Length utf8_lengths[] = {
    {0x80, 0x00, 0, 0}, {0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}};

// The bytes of the character that `text` begins with; 0 when it is no UTF-8.
size_t utf8_character(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto *length =
        std::ranges::find_if(utf8_lengths, [&](const Utf8Length &l) { return (byte(0) & l.mask) == l.lead; });
    if (length == std::end(utf8_lengths) || text.size() <= length->followers) return 0;
    uint32_t character = byte(0) & ~length->mask;
    for (size_t i = 1; i <= length->followers; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        character = character << 6 | (byte(i) & 0x3Fu);
    }
    const bool is_surrogate = character >= 0xD800 && character <= 0xDFFF;
    return character < length->least || character > 0x10FFFF || is_surrogate ? 0 : length->followers + 1;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = utf8_character(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

Format format_of(std::string_view text) {
    if (std::ranges::none_of(text, [](char c) { return (c & 0x80) != 0; })) return ascii;
    return is_utf8(text) ? utf8 : gb2312;
}

Format format_named(const char *name) {
    constexpr struct {
        const char *name;
        Format format;
    } names[] = {{"gb2312", gb2312}, {"utf8", utf8}, {"utf-8", utf8}};
    const auto *found = std::ranges::find_if(names, [&](const auto &n) { return strcasecmp(n.name, name) == 0; });
    return found == std::end(names) ? unknown : found->format;
}

class Converter {
public:
    Converter(const char *to, const char *from) : handle_(iconv_open(to, from)) {}
    ~Converter() {
        if (is_open()) iconv_close(handle_);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    // False when the text does not belong to its character set, or the other set lacks one of its characters.
    bool convert(std::string_view text, std::string &out) {
        constexpr size_t most_growth = 3;  // two bytes of GB2312 become three of UTF-8
        if (!is_open()) return false;
        out.resize(text.size() * most_growth);
        char *in = const_cast<char *>(text.data()), *end = out.data();
        size_t in_left = text.size(), out_left = out.size();
        if (iconv(handle_, &in, &in_left, &end, &out_left) != 0) return false;
        out.resize(out.size() - out_left);
        return true;
    }

private:
    bool is_open() const { return reinterpret_cast<intptr_t>(handle_) != -1; }
    iconv_t handle_;
};

int convert(std::string_view text, Format target, char *out, size_t size) {
    std::string converted(text);
    const Format source = format_of(text);
    if (source != ascii && source != target) {
        Converter converter(target == utf8 ? "UTF-8" : "GB2312", target == utf8 ? "GB2312" : "UTF-8");
        if (!converter.convert(text, converted)) return -1;
    }
    if (converted.size() >= size) return -1;
    memcpy(out, converted.c_str(), converted.size() + 1);
    return 0;
}

}  // namespace

int system_get_code_format(const char *text) { return text == nullptr ? ascii : format_of(text); }

int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size) {
    if (text == nullptr || target == nullptr || out == nullptr) return -1;
    const Format format = format_named(target);
    if (format == unknown) return -1;
    try {
        return convert(text, format, out, size);
    } catch (const std::exception &) {
        return -1;
    }
}
