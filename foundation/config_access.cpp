// config_access.cpp: typed access to the configuration store under formatted keys, with a count of effective changes.
//
// A write of the value that a key already holds reaches the store nowhere. All writes of the library pass the gate
// `__wrap_SetValue`: the library is linked with --wrap=SetValue. Nothing is locked; the count is one relaxed atomic.

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "foundation/config_value.h"
#include "foundation/console.h"

// The key that `format` and the function's variadic arguments make.
#define AP_FORMATTED_KEY(key, format)                                                                                  \
    va_list arguments;                                                                                                 \
    va_start(arguments, format);                                                                                       \
    const ap::ConfigKey key(format, arguments);                                                                        \
    va_end(arguments)

extern "C" int __real_SetValue(const char *key, const char *value);

namespace ap {

namespace {

constexpr size_t int_text_size = 21;
constexpr size_t uint64_text_size = 43;
constexpr size_t double_text_size = 21;  // a longer rendering is cut

unsigned int change_count = 0;

void count_change() {
    __atomic_store_n(&change_count, __atomic_load_n(&change_count, __ATOMIC_RELAXED) + 1, __ATOMIC_RELAXED);
}

int set_and_count(const char *key, const char *value) {
    __wrap_SetValue(key, value);
    count_change();
    return 1;
}

int set_if_different(const char *key, const char *value, const char *current) {
    if (std::strcmp(current, value) == 0) return 0;
    prod_cfm_set_val(key, value);
    return 1;
}

}  // namespace

}  // namespace ap

void prod_cfm_init(void) { __atomic_store_n(&ap::change_count, 0U, __ATOMIC_RELAXED); }

int prod_cfm_is_change(void) { return __atomic_load_n(&ap::change_count, __ATOMIC_RELAXED) != 0 ? 1 : 0; }

int prod_cfm_get_val(const char *key, char *value) {
    if (key == nullptr || value == nullptr) return 0;
    return GetValue(key, value);
}

int __prod_cfm_get_fmt_val(char *value, const char *format, ...) {
    if (value == nullptr || format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    return prod_cfm_get_val(key.c_str(), value);
}

int prod_cfm_get_int_val(const char *format, ...) {
    if (format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    return ap::config_number(key.c_str());
}

// Only the first 20 characters of the value count, and what is above the signed range reads as its maximum.
unsigned long long prod_cfm_get_uint_val(const char *format, ...) {
    if (format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    char text[21];
    ap::copy_config(key.c_str(), text);
    return static_cast<unsigned long long>(std::strtoll(text, nullptr, 10));
}

// Only the first 42 characters of the value count.
double prod_cfm_get_double_val(const char *format, ...) {
    if (format == nullptr) return 0.0;
    AP_FORMATTED_KEY(key, format);
    char text[43];
    ap::copy_config(key.c_str(), text);
    return std::strtod(text, nullptr);
}

int prod_cfm_set_val(const char *key, const char *value) {
    if (key == nullptr || value == nullptr) return 0;
    const ap::ConfigValue current(key);
    if (std::strcmp(current.c_str(), value) == 0) return 0;
    return ap::set_and_count(key, value);
}

int prod_cfm_set_val_check(const char *key, const char *value) {
    if (ap::is_empty(value)) return 0;
    return prod_cfm_set_val(key, value);
}

// The first n bytes of the new value are laid over the old one: a new value of n bytes or more leaves the old value's
// rest behind them, a shorter one is followed by zeros up to n.
int prod_cfm_n_set_val(const char *key, const char *value, unsigned int n) {
    if (n > ap::config_value_size || key == nullptr || value == nullptr) return 0;
    char text[ap::config_value_size + 1] = {};
    GetValue(key, text);
    if (std::strcmp(text, value) == 0) return 0;
    const size_t length = strnlen(value, n);
    std::memcpy(text, value, length);
    std::memset(text + length, 0, n - length);
    return ap::set_and_count(key, text);
}

int __prod_cfm_set_fmt_val(const char *value, const char *format, ...) {
    if (value == nullptr || format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    return prod_cfm_set_val(key.c_str(), value);
}

int prod_cfm_set_int_val(const char *key, int value) {
    char text[ap::int_text_size];
    std::snprintf(text, sizeof text, "%d", value);
    return prod_cfm_set_val(key, text);
}

int prod_cfm_set_double_val(const char *key, double value) {
    char text[ap::double_text_size];
    if (std::snprintf(text, sizeof text, "%f", value) < 0) return 0;
    return prod_cfm_set_val(key, text);
}

int prod_cfm_set_uint64_val(const char *key, uint64_t value) {
    char text[ap::uint64_text_size];
    std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value));
    return prod_cfm_set_val(key, text);
}

int __prod_cfm_set_fmt_int_val(int value, const char *format, ...) {
    if (format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    return prod_cfm_set_int_val(key.c_str(), value);
}

int prod_cfm_unset_val(const char *key) {
    if (key == nullptr || ap::ConfigValue(key).empty()) return 0;
    ap::count_change();
    UnSetValue(key);
    return 1;
}

int prod_cfm_commit(void) { return CommitCfm(); }

// A missing key reads as the empty text, whatever the scratch buffer held.
int set_if_changed(const char *key, const char *value, char *scratch) {
    if (key == nullptr || value == nullptr || scratch == nullptr) return -1;
    scratch[0] = '\0';
    GetValue(key, scratch);
    return ap::set_if_different(key, value, scratch);
}

int __set_fmt_val_if_changed(const char *value, const char *format, ...) {
    if (value == nullptr || format == nullptr) return 0;
    AP_FORMATTED_KEY(key, format);
    return ap::set_if_different(key.c_str(), value, ap::ConfigValue(key.c_str()).c_str());
}

int __wrap_SetValue(const char *key, const char *value) {
    if (key == nullptr || value == nullptr) return 0;
    const ap::ConfigValue current(key);
    if (std::strcmp(current.c_str(), value) == 0) return 1;
    if (get_dbg_level("cfm") >= 4) {
        std::printf("\033[1;%d;%dm#### [SET] %s: %s -> %s\n\033[0m", 40, static_cast<int>(ap::Colour::blue), key,
                    current.c_str(), value);
        std::fflush(stdout);
    }
    return __real_SetValue(key, value);
}
