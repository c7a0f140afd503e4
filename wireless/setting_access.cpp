// setting_access.cpp: reads and writes one radio or SSID setting, whose key is a prefix directly followed by a name.
//
// Keys are cut to 127 characters before they reach the store.

#include <algorithm>
#include <cstdio>
#include <initializer_list>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "foundation/console.h"

namespace ap {

namespace {

class SettingKey {
public:
    SettingKey(const char *prefix, const char *name) { std::snprintf(text_, sizeof text_, "%s%s", prefix, name); }
    const char *c_str() const { return text_; }

private:
    char text_[128];
};

// True when none is null; otherwise the function's console line is printed.
bool has_arguments(const char *function, int line, std::initializer_list<const void *> arguments) {
    if (std::ranges::find(arguments, nullptr) == arguments.end()) return true;
    print_prod_line(Colour::red, 20, function, line, "bad argument");
    return false;
}

}  // namespace

}  // namespace ap

#define HAS_ARGUMENTS(...) ap::has_arguments(__func__, __LINE__, {__VA_ARGS__})

char *wifi_get_mibname(const char *prefix, const char *name, char *out) {
    if (prefix == nullptr || name == nullptr || out == nullptr) {
        AP_ERROR("prod", "wifi mib error!");
        return nullptr;
    }
    const std::string_view front(prefix), back(name);
    ap::copy_text(out, front.size() + 1, front);
    ap::copy_text(out + front.size(), back.size() + 1, back);
    return out;
}

// An empty value is not written: a setting is cleared with wifi_unset_value only.
int wifi_set_value(const char *prefix, const char *name, const char *value) {
    if (!HAS_ARGUMENTS(prefix, name)) return -1;
    if (ap::is_empty(value)) return 0;
    return prod_cfm_set_val(ap::SettingKey(prefix, name).c_str(), value);
}

int wifi_set_int_value(const char *prefix, const char *name, int value) {
    if (!HAS_ARGUMENTS(prefix, name)) return -1;
    return prod_cfm_set_int_val(ap::SettingKey(prefix, name).c_str(), value);
}

char *wifi_get_value(const char *prefix, const char *name, char *out) {
    if (!HAS_ARGUMENTS(prefix, name, out)) return out;
    GetValue(ap::SettingKey(prefix, name).c_str(), out);
    return out;
}

int wifi_get_int_value(const char *prefix, const char *name) {
    if (!HAS_ARGUMENTS(prefix, name)) return -1;
    return prod_cfm_get_int_val("%s", ap::SettingKey(prefix, name).c_str());
}

int wifi_unset_value(const char *prefix, const char *name) {
    if (!HAS_ARGUMENTS(prefix, name)) return -1;
    return UnSetValue(ap::SettingKey(prefix, name).c_str());
}
