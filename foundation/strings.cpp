// strings.cpp: small functions on NUL-terminated texts, most of them in place. A null text is left alone.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/owned.h"

namespace ap {

namespace {

char *map_characters(char *text, int (*map)(int)) {
    if (text == nullptr) return nullptr;
    for (char *at = text; *at != '\0'; ++at) *at = static_cast<char>(map(static_cast<unsigned char>(*at)));
    return text;
}

// Room for `count` pieces of `size` bytes and `extra` more; null when there is none, or no such number.
HeapPtr<char> allocate_pieces(size_t count, size_t size, size_t extra) {
    size_t total = 0;
    if (__builtin_mul_overflow(count, size, &total) || __builtin_add_overflow(total, extra, &total)) return nullptr;
    return HeapPtr<char>(static_cast<char *>(std::malloc(total)));
}

char *append(char *out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

size_t count_occurrences(std::string_view text, std::string_view wanted) {
    size_t count = 0;
    for (size_t at = text.find(wanted); at != std::string_view::npos; at = text.find(wanted, at + wanted.size()))
        ++count;
    return count;
}

}  // namespace

}  // namespace ap

const char *bool_to_string(int b) { return b != 0 ? "true" : "false"; }

char *str_to_upper(char *s) { return ap::map_characters(s, std::toupper); }
char *str_to_lower(char *s) { return ap::map_characters(s, std::tolower); }

int replace_char(char *s, char from, char to) {
    if (s == nullptr) return 0;
    for (; *s != '\0'; ++s) {
        if (*s == from) *s = to;
    }
    return 0;
}

int str_isdigit(const char *s) {
    if (s == nullptr) return 0;
    if (*s == '+' || *s == '-') ++s;
    const size_t digits = std::strspn(s, "0123456789");
    return digits > 0 && s[digits] == '\0' ? 1 : 0;
}

// Bytes of 128 and above are negative here, so they do not count as printable.
int str_is_printable(const char *s) {
    if (s == nullptr) return 0;
    for (; *s != '\0'; ++s) {
        if (static_cast<signed char>(*s) < 32 && *s != '\r' && *s != '\n' && *s != '\t') return 0;
    }
    return 1;
}

char *str_trim_left(char *s, char c) {
    if (s == nullptr || c == '\0') return s;
    const char *start = s;
    while (*start == c) ++start;
    if (start != s) std::memmove(s, start, std::strlen(start) + 1);
    return s;
}

char *str_trim_right(char *s, char c) {
    if (s == nullptr) return nullptr;
    size_t length = std::strlen(s);
    while (length > 0 && s[length - 1] == c) --length;
    s[length] = '\0';
    return s;
}

char *str_trim(char *s, char c) { return str_trim_right(str_trim_left(s, c), c); }

int str_del_chars(char *s, char c) {
    if (s == nullptr) return 0;
    char *kept = s;
    for (; *s != '\0'; ++s) {
        if (*s != c) *kept++ = *s;
    }
    *kept = '\0';
    return 1;
}

char *removeSubstr(char *s, const char *sub) {
    if (s == nullptr || sub == nullptr) return nullptr;
    char *cut = std::strstr(s, sub);
    if (cut != nullptr) *cut = '\0';
    return cut;
}

void removeLastZero(char *s) {
    if (s == nullptr || std::strchr(s, '.') == nullptr) return;
    size_t length = std::strlen(s);
    while (length > 1 && s[length - 1] == '0') --length;
    if (s[length - 1] == '.') --length;
    s[length] = '\0';
}

// The number of fields that `c` separates, but 0 where it does not occur.
int count_section_by_identifier(const char *s, char c) {
    if (s == nullptr) return 0;
    int count = 0;
    for (; *s != '\0'; ++s) count += *s == c ? 1 : 0;
    return count > 0 ? count + 1 : 0;
}

int integer_is_between(int v, int lo, int hi) { return lo <= v && v <= hi ? 1 : 0; }

void str_reverse(char *s) {
    if (s != nullptr) std::reverse(s, s + std::strlen(s));
}

char *strnstr(const char *hay, const char *needle, size_t n) {
    if (hay == nullptr || needle == nullptr || *needle == '\0' || n < 1) return nullptr;
    return static_cast<char *>(memmem(const_cast<char *>(hay), strnlen(hay, n), needle, std::strlen(needle)));
}

char *str_join(const char *s, const char *sep) {
    if (s == nullptr || sep == nullptr) return nullptr;
    const std::string_view text(s), separator(sep);
    ap::HeapPtr<char> joined = ap::allocate_pieces(text.size(), separator.size() + 1, 1);
    if (!joined) {
        AP_ERROR("prod", "Out of memory.");
        return nullptr;
    }
    char *out = joined.get();
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != 0) out = ap::append(out, separator);
        *out++ = text[i];
    }
    *out = '\0';
    return joined.release();
}

// Occurrences are found from left to right and do not overlap; an empty `from` occurs nowhere.
char *str_replace(const char *text, const char *from, const char *to) {
    if (text == nullptr || from == nullptr || to == nullptr) return nullptr;
    std::string_view rest(text);
    const std::string_view old_text(from), new_text(to);
    const size_t count = old_text.empty() ? 0 : ap::count_occurrences(rest, old_text);
    ap::HeapPtr<char> replaced = ap::allocate_pieces(count, new_text.size(), rest.size() - count * old_text.size() + 1);
    if (!replaced) return nullptr;
    char *out = replaced.get();
    for (size_t i = 0; i < count; ++i) {
        const size_t at = rest.find(old_text);
        out = ap::append(ap::append(out, {rest.data(), at}), new_text);
        rest.remove_prefix(at + old_text.size());
    }
    *ap::append(out, rest) = '\0';
    return replaced.release();
}
