// radio_band.h: the bands, the prefix kinds that belong to each, and which of a radio's SSIDs are switched on.
#pragma once

namespace ap {

struct RadioBand {
    int code;
    const char *text;
    unsigned int radio_kind, ssid_kind, interface_kind;
};
inline constexpr RadioBand band_24g{24, "2.4G", 2, 3, 12};
inline constexpr RadioBand band_5g{5, "5G", 4, 5, 13};
inline constexpr const RadioBand *radio_bands[] = {&band_24g, &band_5g};

// Null for a band that is not supported.
const RadioBand *radio_band_of(int code);
const RadioBand *radio_band_of(const char *text);

// The prefix of a kind, in a buffer of the size that get_mib_prefix counts on.
class KeyPrefix {
public:
    explicit KeyPrefix(unsigned int kind, int index = 0);
    const char *c_str() const { return text_; }

private:
    char text_[64] = {};
};

bool radio_is_enabled(const RadioBand &band);
int radio_ssid_count(const RadioBand &band);  // at most 64
bool ssid_is_enabled(const RadioBand &band, int index);

// The index of the first SSID that is switched on, on a radio that is switched on; -1 when there is none.
int first_enabled_ssid(const RadioBand &band);

}  // namespace ap
