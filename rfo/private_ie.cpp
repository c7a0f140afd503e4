// private_ie.cpp: sets up the driver's private information element with this access point's line.
//
// Port 98 carries the lines of neighbours, port 99 switches their collection on. Each write to the driver's files is
// tried twice.

#include "rfo/private_ie.h"

#include <cstdio>
#include <unistd.h>

#include "applatform/interfaces.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"
#include "foundation/file_io.h"
#include "rfo/log.h"
#include "rfo/radio.h"

namespace ap {

namespace {

constexpr char control_file[] = "/proc/kv_wlan/private_ie/private_ie";
constexpr char payload_name[] = "nbAP";
constexpr int line_port = 98, switch_port = line_port + 1;
constexpr uint32_t port_max_length = 128;
constexpr uint8_t port_type = 17;
constexpr useconds_t retry_wait_us = 200 * 1000;
constexpr size_t os_name_size = 64;
constexpr size_t line_size = 256 + 1;

// A full list fills the driver's field without a NUL.
using InterfaceList = char[sizeof(WifiPrivateIe::interfaces) + 1];

bool write_private_ie_file(const char *path, const char *text) {
    const UniqueFd file = open_fd(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file) return RFO_ERROR("open %s failed\n", path), false;
    return write_full(file.get(), text, std::strlen(text));
}

template <typename Step> bool try_twice(Step step) {
    if (step()) return true;
    usleep(retry_wait_us);
    return step();
}

// The OS interfaces of both bands' working interfaces, joined with ","; what does not fit is left out.
bool collect_os_names(InterfaceList &joined) {
    for (const int band : bands) {
        WorkingInterface working;
        char os_name[os_name_size] = {};
        if (!find_working_interface(band, working) || wifi_get_osifname(working.name, os_name) != 0) continue;
        const std::string_view name = field_text(os_name);
        const size_t length = std::strlen(joined), separator_length = length == 0 ? 0 : 1;
        if (name.empty() || length + separator_length + name.size() >= sizeof joined) continue;
        copy_text(joined + length, sizeof joined - length, ",");
        copy_text(joined + length + separator_length, sizeof joined - length - separator_length, name);
    }
    return joined[0] != '\0';
}

bool create_port(int port, const char *name, const InterfaceList &interfaces) {
    WifiPrivateIe description = {};
    description.port = static_cast<uint8_t>(port);
    description.type = port_type;
    std::memcpy(description.interfaces, interfaces, sizeof description.interfaces);
    description.one = 1;
    description.max_length = port_max_length;
    copy_text(description.payload_name, name);
    return wifi_interface_create_private_ie(&description) == 0;
}

bool rfo_neighbour_private_ie_port_init() {
    InterfaceList interfaces = {};
    if (!collect_os_names(interfaces)) return RFO_ERROR("get ifname fail\n"), false;
    if (!create_port(switch_port, "", interfaces)) return RFO_ERROR("create port[%d] fail\n", switch_port), false;

    char path[sizeof control_file + 16];
    std::snprintf(path, sizeof path, "/proc/kv_wlan/private_ie/private_ie_%d", switch_port);
    if (!try_twice([&] { return write_private_ie_file(path, "enable"); })) return RFO_ERROR("`\n"), false;
    if (!try_twice([&] { return create_port(line_port, payload_name, interfaces); }))
        return RFO_ERROR("create port[%d] fail\n", line_port), false;
    return true;
}

// What the line tells of one radio; what cannot be found out stays zero.
struct RadioLine {
    unsigned char mac[mac_size];
    char ssid[config_value_size];
    int channel;
};

void describe_radio(int band, RadioLine &radio) {
    WorkingInterface working;
    ChannelInfo info;
    if (!find_working_interface(band, working)) {
        RFO_ERROR("%d get ifname fail\n", band);
        return;
    }
    if (ifaddrs_get_if_netmac(working.name, radio.mac) != 0) RFO_ERROR("%d get mac fail\n", band);
    common_get_value_rate_type_bss_by_ssid_idx(band, working.ssid_index, "bss_ssid", radio.ssid);
    if (read_channel_info(working.name, info))
        radio.channel = info.channel;
    else
        RFO_ERROR("%d get chan_info fail\n", band);
}

bool rfo_neighbour_private_ie_rule_init() {
    unsigned char lan[mac_size] = {};
    if (!read_lan_mac(lan)) return false;
    RadioLine radio_24g = {}, radio_5g = {};
    describe_radio(band_24g, radio_24g);
    describe_radio(band_5g, radio_5g);

    const auto &mac_24g = radio_24g.mac, &mac_5g = radio_5g.mac;
    char line[line_size];  // what is longer is cut
    const int length = std::snprintf(
        line, sizeof line,
        "%02X:%02X:%02X:%02X:%02X:%02X%s:%s=%02X:%02X:%02X:%02X:%02X:%02X;%s=%s;%s=%d;"
        "%s=%02X:%02X:%02X:%02X:%02X:%02X;%s=%s;%s=%d;\n",
        lan[0], lan[1], lan[2], lan[3], lan[4], lan[5], payload_name, "MAC2G", mac_24g[0], mac_24g[1], mac_24g[2],
        mac_24g[3], mac_24g[4], mac_24g[5], "SSID2G", radio_24g.ssid, "CH2G", radio_24g.channel, "MAC5G", mac_5g[0],
        mac_5g[1], mac_5g[2], mac_5g[3], mac_5g[4], mac_5g[5], "SSID5G", radio_5g.ssid, "CH5G", radio_5g.channel);
    if (length < 0) return false;
    if (!try_twice([&] { return write_private_ie_file(neighbour_file, line); }))
        return RFO_ERROR("write_private_ie_file fail\n"), false;
    return true;
}

bool rfo_neighbour_private_ie_filter_init() {
    char command[32];
    std::snprintf(command, sizeof command, "age %s %s", "98", "120");
    return try_twice([&] { return write_private_ie_file(control_file, command); });
}

bool rfo_neighbour_private_ie_init() {
    rfo_neighbour_private_ie_diable();
    if (wifi_interface_enable_private_ie() != 0) return RFO_ERROR("uwb_private_ie_enable err\n"), false;
    if (!rfo_neighbour_private_ie_port_init() || !rfo_neighbour_private_ie_rule_init()) return false;
    if (!rfo_neighbour_private_ie_filter_init()) return RFO_ERROR("rfo_neighbour_private_ie_filter_init err\n"), false;
    return true;
}

}  // namespace

int rfo_init() {
    if (rfo_neighbour_private_ie_init()) return rfo_success;
    sleep(1);
    if (rfo_neighbour_private_ie_init()) return rfo_success;
    return RFO_ERROR("rfo_neighbour_private_ie_init fail\n"), rfo_failure;
}

}  // namespace ap

using namespace ap;

int rfo_neighbour_private_ie_diable(void) {
    wifi_interface_destory_private_ie(line_port);
    wifi_interface_destory_private_ie(switch_port);
    wifi_interface_disable_private_ie();
    return rfo_success;
}
