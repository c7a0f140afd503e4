// config_value.h: one read of a configuration value. The store may write 2308 bytes into any buffer, so every read
// lands in a buffer of that size first, and callers with a narrower field get a bounded copy.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "applatform/config_store.h"
#include "foundation/text.h"

namespace ap {

inline constexpr size_t config_value_size = 2308;  // with the NUL
inline constexpr size_t config_key_size = 512;     // with the NUL

// A key given as a format; one of 512 characters or more is cut.
class ConfigKey {
public:
    ConfigKey(const char *format, va_list arguments);
    const char *c_str() const { return text_; }

private:
    char text_[config_key_size];
};

class ConfigValue {
public:
    ConfigValue() { text_[0] = '\0'; }
    explicit ConfigValue(const char *key) { read(key); }

    // True when the key exists; otherwise the text is empty.
    bool read(const char *key) {
        std::memset(text_, 0, sizeof text_);
        const bool found = GetValue(key, text_) != 0;
        text_[sizeof text_ - 1] = '\0';
        return found;
    }
    // As above, with the key given as a format.
    bool read_format(const char *format, ...) __attribute__((format(printf, 2, 3)));

    char *c_str() { return text_; }
    const char *c_str() const { return text_; }
    std::string_view view() const { return text_; }
    bool empty() const { return text_[0] == '\0'; }
    bool is(std::string_view expected) const { return view() == expected; }
    int number() const { return to_int(text_); }  // as the typed getters convert: 0 for what is no number

private:
    char text_[config_value_size];
};

// Copies as much of a key's value as fits; a missing key gives the empty text. True when the key exists.
inline bool copy_config(const char *key, char *out, size_t out_size) {
    ConfigValue value;
    const bool found = value.read(key);
    copy_text(out, out_size, value.view());
    return found;
}
template <size_t N> bool copy_config(const char *key, char (&field)[N]) { return copy_config(key, field, N); }

inline int config_number(const char *key) { return ConfigValue(key).number(); }

}  // namespace ap
