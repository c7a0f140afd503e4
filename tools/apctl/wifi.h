// wifi.h: what the parts of `apctl wifi` share: bands and their interfaces, SSIDs for the screen, charts.
#pragma once

#include <string>
#include <vector>

#include "tools/apctl/network.h"

namespace apctl::wifi {

// A band with the kinds of its prefixes: of radio keys, SSID keys, SSID interfaces, and of the radio's own name.
struct Band {
    int code;
    const char *text;
    unsigned int radio_keys, ssid_keys, ssid_names, radio_name;
};
inline constexpr Band bands[] = {{24, "2.4G", 2, 3, 12, 14}, {5, "5G", 4, 5, 13, 15}};

// Null when the text names no band.
const Band *find_band(const std::string &text);

std::string prefix_of(unsigned int kind, int index = 0);
std::string setting(const std::string &prefix, const std::string &name);
bool is_number(const std::string &text);

// An SSID or another text from the air, in UTF-8 and without control characters.
std::string for_screen(const std::string &text, const std::string &encoding);

// A bar of up to 30 columns for a share of `most`.
std::string bar(double value, double most);

int run_info(const Words &given);
int run_clients(const Words &given);
int run_scan(const Words &given);
int run_spectrum(const Words &given);
int run_set(const Words &given);
int run_switch(const Words &given);
int run_power(const Words &words);
int run_mac(const Words &words);

}  // namespace apctl::wifi
