// text.h: bounded copies into fixed text fields, reads that stop at a field's end, and splitting of separated lists.
#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace ap {

// Copies what fits into `out_size` bytes with the NUL; returns the copied length. Nothing happens when there is no
// room.
inline size_t copy_text(char *out, size_t out_size, std::string_view text) {
    if (out_size == 0) return 0;
    const size_t length = std::min(text.size(), out_size - 1);
    if (length != 0) std::memmove(out, text.data(), length);
    out[length] = '\0';
    return length;
}
template <size_t N> size_t copy_text(char (&field)[N], std::string_view text) { return copy_text(field, N, text); }

// The text of a fixed field, which may fill it without a NUL.
template <size_t N> std::string_view field_text(const char (&field)[N]) { return {field, strnlen(field, N)}; }

// A text for a line of a log, where it may be missing.
inline const char *printable(const char *text) { return text != nullptr ? text : "(null)"; }

inline bool is_empty(const char *text) { return text == nullptr || *text == '\0'; }

// The integer that a text begins with, as `atoi` reads it: 0 where there is none. What no int can hold becomes the
// nearest that can, on every machine.
inline int to_int(const char *text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

// Splits `text` at every `separator` into at most N fields; the last takes the rest. Returns the number of fields, at
// least 1; fields beyond it are empty.
template <size_t N>
size_t split_fields(std::string_view text, char separator, std::array<std::string_view, N> &fields) {
    static_assert(N > 0);
    fields.fill({});
    size_t count = 0;
    while (count + 1 < N) {
        const size_t end = text.find(separator);
        if (end == std::string_view::npos) break;
        fields[count++] = text.substr(0, end);
        text.remove_prefix(end + 1);
    }
    fields[count++] = text;
    return count;
}

}  // namespace ap
