// wifi_radio.cpp: `apctl wifi info|set|switch|power|mac`: radios and their settings.

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "foundation/text.h"
#include "tools/apctl/wifi.h"

namespace apctl::wifi {

namespace {

struct Ssid {
    int index;
    std::string interface, name;
    int clients;
};

struct Radio {
    const Band *band;
    std::string interface;
    bool enabled = false;
    int channel_info[4] = {};
    int power = 0;
    std::vector<Ssid> ssids;
};

Radio look_at(const Band &band) {
    constexpr int most_ssids = 64;
    Radio radio;
    radio.band = &band;
    radio.interface = prefix_of(band.radio_name);
    radio.enabled = common_get_int_rate_type_radio(band.code, "enable") != 0;
    wifi_get_interface_chaninfo(radio.interface.c_str(), radio.channel_info);
    radio.power = get_web_curpower(prefix_of(band.radio_keys).c_str());
    const int count = std::min(common_get_int_rate_type_radio(band.code, "web_maxbss"), most_ssids);
    for (int index = 0; index < count; ++index) {
        if (common_get_int_rate_type_bss_by_ssid_idx(band.code, index, "bss_enable") == 0) continue;
        const std::string interface = prefix_of(band.ssid_names, index);
        radio.ssids.push_back({index, interface, setting(prefix_of(band.ssid_keys, index), "bss_ssid"),
                               wifi_get_interface_client_num(interface.c_str())});
    }
    return radio;
}

const char *state_text(const Radio &radio) {
    if (!radio.enabled) return "off";
    return radio.channel_info[0] == 1 ? "up" : "down";
}

cJSON *to_json(const Radio &radio) {
    cJSON *object = cJSON_CreateObject();
    add_text(object, "band", radio.band->text);
    add_text(object, "interface", radio.interface);
    add_text(object, "state", state_text(radio));
    cJSON_AddNumberToObject(object, "channel", radio.channel_info[1]);
    cJSON_AddNumberToObject(object, "bandwidth", radio.channel_info[2]);
    cJSON_AddNumberToObject(object, "extension_channel", radio.channel_info[3]);
    cJSON_AddNumberToObject(object, "power", radio.power);
    cJSON *ssids = cJSON_AddArrayToObject(object, "ssids");
    for (const Ssid &ssid : radio.ssids) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddNumberToObject(item, "index", ssid.index);
        add_text(item, "interface", ssid.interface);
        add_text(item, "ssid", ssid.name);
        cJSON_AddNumberToObject(item, "clients", ssid.clients);
        cJSON_AddItemToArray(ssids, item);
    }
    return object;
}

void print_radio(const Radio &radio) {
    std::printf("%s  %s  %s  channel %d, %d MHz", radio.band->text, radio.interface.c_str(), state_text(radio),
                radio.channel_info[1], radio.channel_info[2]);
    if (radio.channel_info[3] != 0) std::printf(", second channel %d", radio.channel_info[3]);
    std::printf("  power %d\n", radio.power);
    std::vector<std::vector<std::string>> rows = {{"  SSID", "NAME", "INTERFACE", "CLIENTS"}};
    for (const Ssid &ssid : radio.ssids)
        rows.push_back({"  " + std::to_string(ssid.index), for_screen(ssid.name, ""), ssid.interface,
                        std::to_string(ssid.clients)});
    print_table(rows);
}

int commit() {
    if (prod_cfm_is_change() == 0) return std::puts("unchanged"), exit_ok;
    if (prod_cfm_commit() == 0)
        return std::fputs("apctl wifi: the change could not be committed\n", stderr), exit_failed;
    return std::puts("committed"), exit_ok;
}

// "BAND" or "BAND:SSID" as the prefix of its keys; empty when it is neither.
std::string keys_of(const std::string &place) {
    const size_t colon = place.find(':');
    const Band *band = find_band(place.substr(0, colon));
    if (band == nullptr) return {};
    if (colon == std::string::npos) return prefix_of(band->radio_keys);
    const std::string index = place.substr(colon + 1);
    return is_number(index) ? prefix_of(band->ssid_keys, ap::to_int(index.c_str())) : std::string();
}

int switch_to_high_power() {
    if (prod_cfm_get_int_val("netcheck.adjust_power") == 0)
        return std::puts("the high-power mode is not pending"), exit_ok;
    const int result = wifi_switch_high_power();
    const bool done = result == 0 && is_all_switch_to_highpower() == 1;
    std::puts(done ? "both radios at their greatest power" : "the high-power mode could not be switched on");
    return done ? exit_ok : exit_failed;
}

int set_power(const Band &band, int requested) {
    prod_cfm_init();
    const int power = adjust_radio_power(band.code, requested);
    common_set_int_rate_type_radio_value(band.code, "curpower", power);
    const std::string prefix = prefix_of(band.radio_keys), interface = prefix_of(band.radio_name);
    const unsigned char request[2] = {static_cast<unsigned char>(wifi_get_int_value(prefix.c_str(), "maxpower")),
                                      static_cast<unsigned char>(power)};
    wifi_interface_set_txpower(interface.c_str(), request);
    std::printf("%s power %d\n", band.text, get_web_curpower(prefix.c_str()));
    return commit();
}

}  // namespace

int run_info(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (!words.empty()) return usage_error("wifi", "info takes no argument");
    LibraryLines lines;
    std::vector<Radio> radios;
    for (const Band &band : bands) radios.push_back(look_at(band));
    lines.restore();
    const ap::UniqueJson document(cJSON_CreateArray());
    for (const Radio &radio : radios) {
        if (json) {
            cJSON_AddItemToArray(document.get(), to_json(radio));
        } else {
            print_radio(radio);
        }
    }
    if (json) print_json(document.get());
    return exit_ok;
}

int run_set(const Words &given) {
    Words words = given;
    const bool unset = take_flag(words, "--unset");
    if (words.size() < 2 || words.size() > 3 || (unset && words.size() != 2))
        return usage_error("wifi", "set takes BAND[:SSID], NAME and VALUE");
    const std::string prefix = keys_of(words[0]);
    if (prefix.empty()) return usage_error("wifi", "\"" + words[0] + "\" is neither BAND nor BAND:SSID");
    const std::string key = prefix + words[1];
    prod_cfm_init();
    if (unset) {
        prod_cfm_unset_val(key.c_str());
        return commit();
    }
    if (words.size() == 2) return std::printf("%s=%s\n", key.c_str(), setting(prefix, words[1]).c_str()), exit_ok;
    if (words[2].empty()) return usage_error("wifi", "an empty value is not stored; --unset removes the setting");
    wifi_set_value(prefix.c_str(), words[1].c_str(), words[2].c_str());
    if (setting(prefix, words[1]) != words[2])
        return std::fprintf(stderr, "apctl wifi: the store refused %s\n", key.c_str()), exit_failed;
    return commit();
}

int run_switch(const Words &given) {
    Words words = given;
    if (words.size() == 2) words.emplace_back("20");
    if (words.size() != 3 || !is_number(words[1]) || !is_number(words[2]))
        return usage_error("wifi", "switch takes INTERFACE, CHANNEL and BANDWIDTH");
    const char *interface = words[0].c_str();
    const int request[2] = {ap::to_int(words[1].c_str()), ap::to_int(words[2].c_str())};
    int now[4] = {};
    if (wifi_interface_switch_chan(interface, request) != 0 || wifi_get_interface_chaninfo(interface, now) != 0) {
        std::fprintf(stderr, "apctl wifi: %s cannot switch to channel %d at %d MHz\n", interface, request[0],
                     request[1]);
        return exit_failed;
    }
    std::printf("%s is on channel %d, %d MHz\n", interface, now[1], now[2]);
    return exit_ok;
}

int run_power(const Words &words) {
    if (words == Words{"high"}) return switch_to_high_power();
    const Band *band = words.empty() ? nullptr : find_band(words[0]);
    if (band == nullptr || words.size() > 2 || (words.size() == 2 && !is_number(words[1])))
        return usage_error("wifi", "power takes BAND and POWER, or \"high\"");
    if (words.size() == 2) return set_power(*band, ap::to_int(words[1].c_str()));
    const std::string prefix = prefix_of(band->radio_keys);
    std::printf("%s power %d, from %d to %d\n", band->text, get_web_curpower(prefix.c_str()),
                get_web_minpower(prefix.c_str()), get_web_maxpower(prefix.c_str()));
    return exit_ok;
}

int run_mac(const Words &words) {
    if (words == Words{"save"}) return std::puts(saveWlanDefaultMac() == 1 ? "saved" : "saved already"), exit_ok;
    if (words == Words{"restore"})
        return std::puts(setWlanDefaultMac() == 1 ? "restored" : "nothing to restore"), exit_ok;
    if (words != Words{"show"}) return usage_error("wifi", "mac takes show, save or restore");
    char mac[ap::config_value_size] = {};
    LibraryLines lines;
    getWlanDefaultMac(mac);
    lines.restore();
    return std::puts(mac), exit_ok;
}

}  // namespace apctl::wifi
