// radio_power.cpp: the power figures of a radio, how a requested power is clamped, and the high-power mode.
//
// Powers are integers in the store's unit. What the web page shows is the stored figure plus "power_compensate".

#include <algorithm>

#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "wireless/radio_band.h"

namespace ap {

namespace {

// Sums wrap instead of overflowing, since the figures come from the store as they are.
int plus(int a, int b) { return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b)); }
int minus(int a, int b) { return static_cast<int>(static_cast<unsigned int>(a) - static_cast<unsigned int>(b)); }

int compensated(const char *prefix, const char *name) {
    const int value = wifi_get_int_value(prefix, name);
    return plus(value, wifi_get_int_value(prefix, "power_compensate"));
}

bool is_at_high_power(const RadioBand &band) {
    const KeyPrefix prefix(band.radio_kind);
    return get_web_maxpower(prefix.c_str()) == compensated(prefix.c_str(), "maxpower");
}

struct PowerRequest {
    unsigned char bytes[2];
};

// Configures the radio for its greatest power; the request that tells the driver.
PowerRequest raise_configured_power(const RadioBand &band) {
    const KeyPrefix prefix(band.radio_kind);
    const int highest = wifi_get_int_value(prefix.c_str(), "maxpower");
    wifi_set_value(prefix.c_str(), "power", "high");
    wifi_set_int_value(prefix.c_str(), "curpower", highest);
    wifi_set_int_value(prefix.c_str(), "default_power", highest);
    wifi_set_int_value(prefix.c_str(), "web_max_power", compensated(prefix.c_str(), "maxpower"));
    const auto power = static_cast<unsigned char>(highest);
    return {{power, power}};
}

// Hands a request to the first SSID interface of the radio that is switched on; `result` is kept where there is none.
void apply_power(const RadioBand &band, const PowerRequest &request, int &result) {
    const int index = first_enabled_ssid(band);
    if (index < 0) return;
    result = wifi_interface_set_txpower(KeyPrefix(band.interface_kind, index).c_str(), request.bytes);
}

}  // namespace

}  // namespace ap

int get_web_minpower(const char *prefix) { return ap::compensated(prefix, "minpower"); }

int get_web_curpower(const char *prefix) { return ap::compensated(prefix, "curpower"); }

int get_web_maxpower(const char *prefix) { return wifi_get_int_value(prefix, "web_max_power"); }

// Where the limits contradict each other, the lower limit wins.
int adjust_radio_power(int band, int requested) {
    char prefix[64];
    if (get_prefix_radio_by_type(band, prefix, sizeof prefix) != 0) return -1;
    if (requested == 0) return wifi_get_int_value(prefix, "curpower");
    const int wanted = ap::minus(requested, wifi_get_int_value(prefix, "power_compensate"));
    const int limited = std::min(wanted, wifi_get_int_value(prefix, "maxpower"));
    return std::max(limited, wifi_get_int_value(prefix, "minpower"));
}

int is_all_switch_to_highpower(void) {
    return std::ranges::all_of(ap::radio_bands, [](const ap::RadioBand *band) { return ap::is_at_high_power(*band); });
}

int wifi_switch_high_power(void) {
    if (prod_cfm_get_int_val("netcheck.adjust_power") == 0) return 0;
    const ap::PowerRequest request_24g = ap::raise_configured_power(ap::band_24g);
    const ap::PowerRequest request_5g = ap::raise_configured_power(ap::band_5g);
    prod_cfm_set_int_val("netcheck.adjust_power", 0);
    if (CommitCfm() == 0) return 0;

    int result = 0;
    ap::apply_power(ap::band_24g, request_24g, result);
    ap::apply_power(ap::band_5g, request_5g, result);
    return result;
}
