// dual_band.cpp: whether an SSID of the 2.4 GHz radio and the one of the 5 GHz radio are configured as one network.
//
// Settings are compared as exact texts, in order, up to the first that differs.

#include <span>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "wireless/radio_band.h"

namespace ap {

namespace {

struct ComparedSetting {
    const char *name;
    const char *trace;  // of the two values; null: compared without a trace
};

constexpr ComparedSetting wep_settings[] = {
    {"bss_wep_type", "wepType[%s][%s]\n"},
    {"bss_wep_key", nullptr},
    {"bss_wep_key1", nullptr},
    {"bss_wep_key2", nullptr},
    {"bss_wep_key3", nullptr},
    {"bss_wep_key4", nullptr},
    {"bss_wep_key1_format", nullptr},
    {"bss_wep_key2_format", nullptr},
    {"bss_wep_key3_format", nullptr},
    {"bss_wep_key4_format", nullptr},
};
constexpr ComparedSetting wpapsk_settings[] = {
    {"bss_wpapsk_type", "WPAPSKType[%s][%s]\n"},
    {"bss_wpapsk_crypto", "CRYPTO[%s][%s]\n"},
    {"bss_wpapsk_key", "KEY[%s][%s]\n"},
    {"bss_wpapsk_rekey_time", "REKEY_TIME[%s][%s]\n"},
};
constexpr ComparedSetting wpa_settings[] = {
    {"bss_wpa_type", "WPA_TYPE[%s][%s]\n"},
    {"bss_radius_ip", nullptr},
    {"bss_radius_port", nullptr},
    {"bss_radius_key", nullptr},
    {"bss_wpa_crypto", nullptr},
    {"bss_radius_time", nullptr},
};

struct SecuritySettings {
    std::string_view security;
    std::span<const ComparedSetting> settings;
};
constexpr SecuritySettings security_settings[] = {
    {"wep", wep_settings}, {"wpapsk", wpapsk_settings}, {"wpa", wpa_settings}};

// The same SSID of both radios.
struct SsidPair {
    explicit SsidPair(int index) : prefix_24g(band_24g.ssid_kind, index), prefix_5g(band_5g.ssid_kind, index) {}
    KeyPrefix prefix_24g, prefix_5g;
};

// `value` gets the 2.4 GHz radio's setting.
bool is_equal(const char *function, const SsidPair &pair, const ComparedSetting &setting, ConfigValue &value) {
    ConfigValue other;
    value = ConfigValue();
    wifi_get_value(pair.prefix_24g.c_str(), setting.name, value.c_str());
    wifi_get_value(pair.prefix_5g.c_str(), setting.name, other.c_str());
    if (setting.trace != nullptr)
        prod_debug(function, __LINE__, 3, "netctrl", setting.trace, value.c_str(), other.c_str());
    return value.view() == other.view();
}

bool are_equal(const char *function, const SsidPair &pair, std::span<const ComparedSetting> settings) {
    ConfigValue ignored;
    for (const ComparedSetting &setting : settings)
        if (!is_equal(function, pair, setting, ignored)) return false;
    return true;
}

bool is_one_network(const char *function, const SsidPair &pair) {
    ConfigValue ssid, security;
    if (!is_equal(function, pair, {"bss_ssid", "ssid[%s][%s]\n"}, ssid)) return false;
    if (!is_equal(function, pair, {"bss_security", "secType[%s][%s]\n"}, security)) return false;
    if (security.is("none")) return true;
    for (const SecuritySettings &kind : security_settings)
        if (security.is(kind.security) && !are_equal(function, pair, kind.settings)) return false;
    prod_debug(function, __LINE__, 3, "netctrl", "is dual_band_ssid!\n");
    return true;
}

}  // namespace

}  // namespace ap

int check_wifi_dual_band_ssid_cfg(int ssid_index) {
    AP_DEBUG(5, "netctrl", "ENTER >>> %s", __func__);
    if (!ap::is_one_network(__func__, ap::SsidPair(ssid_index))) return 0;
    AP_DEBUG(5, "netctrl", "LEAVE <<< %s", __func__);
    return 1;
}
