// radio_rules.cpp: small rules about radios: platform indexes, interface lists, antenna chains, sidebands, country
// codes, and one steering threshold.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/text.h"

namespace ap {

namespace {

// Channels of the 5 GHz band. One at an even position, counted from 0, has its second channel above, the others below.
constexpr int sideband_channels[] = {36,  40,  44,  48,  52,  56,  60,  64,  149, 153, 157, 161, 100, 104,
                                     108, 112, 116, 120, 124, 128, 132, 136, 140, 165, 179, 181, 188, 248};

constexpr int last_24g_channel = 13;

const char *sideband_of_24g_channel(int channel) {
    if (channel < 5) return "upper";
    return channel < 10 ? nullptr : "lower";
}

const char *sideband_of_5g_channel(int channel) {
    const auto *found = std::ranges::find(sideband_channels, channel);
    if (found == std::end(sideband_channels)) return "none";
    return (found - std::begin(sideband_channels)) % 2 == 0 ? "upper" : "lower";
}

const char *chains_of_mask(int mask) {
    switch (mask) {
    case 1:
    case 2:
    case 4: return "1X1";
    case 3:
    case 5:
    case 6: return "2X2";
    case 7: return "3X3";
    default: return nullptr;
    }
}

void write_text(char *out, std::string_view text) { copy_text(out, text.size() + 1, text); }

// Two spellings of a country's code.
struct CountrySpellings {
    const char *first, *second;
};
constexpr CountrySpellings country_spellings[] = {
    {"AUT", "AT"}, {"CHL", "CL"}, {"GC", "GR"}, {"LT", "RS"}, {"NW", "NO"},
};

}  // namespace

}  // namespace ap

int get_wlan_index(int band) {
    if (band == 24) return prod_cfm_get_int_val("wl2g.wlan_index");
    if (band == 5) return prod_cfm_get_int_val("wl5g.wlan_index");
    std::printf("%s,%d : wifi_type is error\n", __func__, __LINE__);
    return 0;
}

// A name that stands anywhere in the list, even inside a longer one, is not added.
int wifi_list_add_ifname(char *list, const char *name) {
    if (list == nullptr || name == nullptr) return -1;
    if (std::strstr(list, name) != nullptr) return 0;
    char *end = list + std::strlen(list);
    if (end != list) *end++ = ' ';
    ap::write_text(end, name);
    return 0;
}

char *getTxRxChainByMask(const char *mask_text, char *out) {
    const char *chains = mask_text == nullptr ? nullptr : ap::chains_of_mask(ap::to_int(mask_text));
    if (chains == nullptr) {
        std::puts("erro, Not find valid Mask");
        return nullptr;
    }
    ap::write_text(out, chains);
    return out;
}

// The channels 5 to 9 may go either way: they leave `out` as it is.
void get_wifi_sideband_flag_by_channel(int channel, char *out) {
    const char *sideband =
        channel <= ap::last_24g_channel ? ap::sideband_of_24g_channel(channel) : ap::sideband_of_5g_channel(channel);
    if (sideband != nullptr) ap::write_text(out, sideband);
}

void get_wifi_sideband_flag_by_exchannel(const char *exchannel_text, const char *bandwidth_text, char *out) {
    if (exchannel_text == nullptr || bandwidth_text == nullptr) return;
    const std::string_view bandwidth(bandwidth_text), extension(exchannel_text);
    if (bandwidth != "40" && bandwidth != "0") return;
    if (extension == "null" || extension == "0") return;
    ap::write_text(out, extension);
}

const char *wifi_driver_yondar_countrycode_convert(const char *code) {
    if (code == nullptr) return nullptr;
    for (const auto &[first, second] : ap::country_spellings) {
        if (std::strcmp(code, first) == 0) return second;
        if (std::strcmp(code, second) == 0) return first;
    }
    return code;
}

int ap_comm_set_steerd_lrssi_5(int dbm) { return prod_cfm_set_int_val("steerd.lrssi_5", dbm); }
