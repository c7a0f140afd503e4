// rate_type.cpp: settings of a radio or SSID that is named by its band code.
//
// The eight accessors answer an unsupported band and success with different values; their callers count on each.

#include <cstdio>
#include <optional>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/console.h"
#include "foundation/text.h"
#include "wireless/radio_band.h"

namespace ap {

namespace {

// The key prefix of a band's radio, or of one of its SSIDs; nothing for a band that is not supported.
std::optional<KeyPrefix> radio_prefix(int band_code) {
    const RadioBand *band = radio_band_of(band_code);
    if (band == nullptr) return std::nullopt;
    return KeyPrefix(band->radio_kind);
}

std::optional<KeyPrefix> ssid_prefix(int band_code, int ssid_index) {
    const RadioBand *band = radio_band_of(band_code);
    if (band == nullptr) return std::nullopt;
    return KeyPrefix(band->ssid_kind, ssid_index);
}

}  // namespace

}  // namespace ap

int get_prefix_radio_by_type(int band, char *out, int size) {
    if (out == nullptr || size <= 0) return -1;
    std::memset(out, 0, static_cast<size_t>(size));
    const ap::RadioBand *known = ap::radio_band_of(band);
    if (known == nullptr) {
        AP_DEBUG(3, "prod", "%d not support.\n", band);
        return -1;
    }
    const ap::KeyPrefix prefix(known->radio_kind);
    ap::copy_text(out, static_cast<size_t>(size), prefix.c_str());
    AP_DEBUG(4, "prod", "wifi_type:[%s], str:[%s].\n", known->text, prefix.c_str());
    return 0;
}

int common_get_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name) {
    const auto prefix = ap::ssid_prefix(band, ssid_index);
    if (!prefix) return -1;
    const int value = wifi_get_int_value(prefix->c_str(), name);
    AP_DEBUG(3, "rfo", "debug:prefix_bss[%s] wifi_type[%d] str[%s] ret[%d] ssid_idx[%d].\n", prefix->c_str(), band,
             ap::printable(name), value, ssid_index);
    return value;
}

int common_get_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, char *out) {
    const auto prefix = ap::ssid_prefix(band, ssid_index);
    if (!prefix) return 0;
    wifi_get_value(prefix->c_str(), name, out);
    AP_DEBUG(3, "rfo", "debug:prefix_bss[%s] wifi_type[%d] str[%s] ret[%d] ssid_idx[%d] value[%s].\n", prefix->c_str(),
             band, ap::printable(name), 0, ssid_index, ap::printable(out));
    return 1;
}

int common_set_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, const char *value) {
    const auto prefix = ap::ssid_prefix(band, ssid_index);
    if (!prefix) return 0;
    wifi_set_value(prefix->c_str(), name, value);
    AP_DEBUG(3, "rfo", "debug:prefix_bss[%s] wifi_type[%d] str[%s] ret[%d] ssid_idx[%d] value[%s].\n", prefix->c_str(),
             band, ap::printable(name), 0, ssid_index, ap::printable(value));
    return 1;
}

int common_set_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, int value) {
    const auto prefix = ap::ssid_prefix(band, ssid_index);
    if (!prefix) return 0;
    wifi_set_int_value(prefix->c_str(), name, value);
    AP_DEBUG(3, "rfo", "debug:prefix_bss[%s] wifi_type[%d] str[%s] ret[%d] ssid_idx[%d] value[%d].\n", prefix->c_str(),
             band, ap::printable(name), 0, ssid_index, value);
    return 1;
}

int common_get_int_rate_type_radio(int band, const char *name) {
    const auto prefix = ap::radio_prefix(band);
    if (!prefix) {
        AP_ERROR("rfo", "%d not support.\n", band);
        return 0;
    }
    const int value = wifi_get_int_value(prefix->c_str(), name);
    AP_DEBUG(3, "rfo", "debug:prefix_radio[%s] wifi_type[%d] str[%s] ret[%d].\n", prefix->c_str(), band,
             ap::printable(name), value);
    return value;
}

int common_get_rate_type_radio_value(int band, const char *name, char *out) {
    const auto prefix = ap::radio_prefix(band);
    if (!prefix) return -1;
    wifi_get_value(prefix->c_str(), name, out);
    AP_DEBUG(3, "rfo", "debug:prefix_radio[%s] wifi_type[%d] str[%s] value[%s].\n", prefix->c_str(), band,
             ap::printable(name), ap::printable(out));
    return 1;
}

int common_set_int_rate_type_radio_value(int band, const char *name, int value) {
    const auto prefix = ap::radio_prefix(band);
    if (!prefix) return 0;
    const int result = wifi_set_int_value(prefix->c_str(), name, value);
    AP_DEBUG(3, "rfo", "debug:prefix_radio[%s] wifi_type[%d] str[%s] value[%d].\n", prefix->c_str(), band,
             ap::printable(name), value);
    return result;
}

int common_set_rate_type_radio_value(int band, const char *name, int value) {
    const auto prefix = ap::radio_prefix(band);
    if (!prefix) return -1;
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    wifi_set_value(prefix->c_str(), name, text);
    AP_DEBUG(3, "rfo", "debug:prefix_radio[%s] wifi_type[%d] str[%s] value[%d].\n", prefix->c_str(), band,
             ap::printable(name), value);
    return 1;
}
