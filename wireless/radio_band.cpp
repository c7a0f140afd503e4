// radio_band.cpp: looks bands up, and reads which radios and SSIDs are switched on.

#include "wireless/radio_band.h"

#include <algorithm>

#include "apsupport/wireless.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr int most_ssids = 64;  // bounds the walk over the SSIDs, whatever number is configured

}  // namespace

const RadioBand *radio_band_of(int code) {
    for (const RadioBand *band : radio_bands)
        if (band->code == code) return band;
    return nullptr;
}

const RadioBand *radio_band_of(const char *text) {
    for (const RadioBand *band : radio_bands)
        if (text != nullptr && std::strcmp(band->text, text) == 0) return band;
    return nullptr;
}

KeyPrefix::KeyPrefix(unsigned int kind, int index) { get_mib_prefix(text_, kind, index); }

bool radio_is_enabled(const RadioBand &band) {
    return wifi_get_int_value(KeyPrefix(band.radio_kind).c_str(), "enable") != 0;
}

int radio_ssid_count(const RadioBand &band) {
    return std::min(wifi_get_int_value(KeyPrefix(band.radio_kind).c_str(), "web_maxbss"), most_ssids);
}

bool ssid_is_enabled(const RadioBand &band, int index) {
    return wifi_get_int_value(KeyPrefix(band.ssid_kind, index).c_str(), "bss_enable") != 0;
}

int first_enabled_ssid(const RadioBand &band) {
    if (!radio_is_enabled(band)) return -1;
    const int count = radio_ssid_count(band);
    for (int index = 0; index < count; ++index)
        if (ssid_is_enabled(band, index)) return index;
    return -1;
}

}  // namespace ap
