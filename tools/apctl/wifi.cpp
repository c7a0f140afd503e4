// wifi.cpp: `apctl wifi`: what it is asked for, and what its parts share.

#include "tools/apctl/wifi.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "apsupport/foundation.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"

namespace apctl::wifi {

namespace {

constexpr char help[] =
    "usage: apctl wifi info [--json]\n"
    "       apctl wifi clients [INTERFACE | 2.4G | 5G] [--rates SECONDS] [--json]\n"
    "       apctl wifi scan INTERFACE [--ssid SSID] [--last] [--json]\n"
    "       apctl wifi spectrum INTERFACE [--json]\n"
    "       apctl wifi set BAND[:SSID] NAME [VALUE | --unset]\n"
    "       apctl wifi switch INTERFACE CHANNEL [BANDWIDTH]\n"
    "       apctl wifi power BAND [POWER] | high\n"
    "       apctl wifi mac show | save | restore\n\n"
    "info      the radios, their channels, powers and SSIDs\n"
    "clients   who is associated, with addresses; --rates measures twice, SECONDS apart\n"
    "scan      the networks that a radio hears; --last shows the last results without a new scan\n"
    "spectrum  how busy each channel is\n"
    "set       a setting of a radio, or of its SSID number SSID; without VALUE it is shown. Changes are committed.\n"
    "switch    moves a radio to another channel at once, 20 MHz wide unless BANDWIDTH says otherwise\n"
    "power     a radio's power as people see it, within its limits; \"high\" switches to the high-power mode where it "
    "is\n"
    "          pending (netcheck.adjust_power)\n"
    "mac       the 5 GHz radio's factory MAC: save it aside, or restore it\n\n"
    "BAND is 2.4G or 5G. A scan takes five seconds, channel by channel three seconds a channel.\n";

const struct {
    const char *name;
    int (*run)(const Words &words);
} parts[] = {
    {"info", run_info}, {"clients", run_clients}, {"scan", run_scan},   {"spectrum", run_spectrum},
    {"set", run_set},   {"switch", run_switch},   {"power", run_power}, {"mac", run_mac},
};

int run_wifi(const Words &words) {
    if (words.empty())
        return usage_error("wifi", "says what to do: info, clients, scan, spectrum, set, switch, power, mac");
    for (const auto &part : parts)
        if (words.front() == part.name) return part.run(Words(words.begin() + 1, words.end()));
    return usage_error("wifi", "there is no \"" + words.front() + "\"");
}

const Verb verb{"wifi", "radios, clients, scans, channels and powers", help, run_wifi};

}  // namespace

const Band *find_band(const std::string &text) {
    const auto found = std::ranges::find_if(bands, [&](const Band &band) { return text == band.text; });
    return found == std::end(bands) ? nullptr : found;
}

std::string prefix_of(unsigned int kind, int index) {
    char prefix[64] = {};
    get_mib_prefix(prefix, kind, index);
    return prefix;
}

std::string setting(const std::string &prefix, const std::string &name) {
    ap::ConfigValue value;
    wifi_get_value(prefix.c_str(), name.c_str(), value.c_str());
    return value.c_str();
}

bool is_number(const std::string &text) {
    return !text.empty() && text.size() <= 6 &&
           std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c); });
}

std::string for_screen(const std::string &text, const std::string &encoding) {
    std::string shown = text;
    if (encoding == "gb2312") {
        const ap::HeapPtr<char> converted(encode_str_to_utf8(text.c_str()));
        if (converted) shown = converted.get();
    }
    for (char &c : shown)
        if (std::iscntrl(static_cast<unsigned char>(c)) != 0) c = '?';
    return shown;
}

std::string bar(double value, double most) {
    constexpr double columns = 30;
    const double share = most <= 0 ? 0 : std::clamp(value / most, 0.0, 1.0);
    return std::string(static_cast<size_t>(std::lround(share * columns)), '#');
}

}  // namespace apctl::wifi
