// scenario.cpp: reads a scenario. What a member leaves out has a plain value; what makes no sense is named and refused.

#include "platform/host/scenario.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <cmath>
#include <cstdio>

#include "applatform/system.h"
#include "foundation/owned.h"
#include "platform/host/json_read.h"

namespace ap::host {

namespace {

// Reads one scenario and remembers the first thing that is wrong with it.
class Reader {
public:
    explicit Reader(std::string &error) : error_(error) {}

    Scenario read(const cJSON *root) {
        Scenario scenario;
        const cJSON *radio = cJSON_GetObjectItem(root, "propagation");
        scenario.path_loss_exponent = number_member(radio, "exponent", scenario.path_loss_exponent);
        scenario.reference_loss_24 = number_member(radio, "loss_at_1m_24", scenario.reference_loss_24);
        scenario.reference_loss_5 = number_member(radio, "loss_at_1m_5", scenario.reference_loss_5);
        scenario.noise_dbm = number_member(radio, "noise_dbm", scenario.noise_dbm);
        scenario.sensitivity_dbm = number_member(radio, "sensitivity_dbm", scenario.sensitivity_dbm);
        each(root, "access_points", [&](const cJSON *item) { scenario.access_points.push_back(access_point(item)); });
        each(root, "neighbours", [&](const cJSON *item) { scenario.neighbours.push_back(neighbour(item)); });
        each(root, "clients", [&](const cJSON *item) { scenario.clients.push_back(client(item)); });
        each(root, "faults", [&](const cJSON *item) { scenario.faults.push_back(fault(item)); });
        each(root, "ports", [&](const cJSON *item) { scenario.ports.push_back(port(item)); });
        each(root, "interfaces", [&](const cJSON *item) {
            scenario.interfaces.push_back({int_member(item, "id", 0), text_member(item, "name")});
        });
        return scenario;
    }

private:
    template <typename Action> static void each(const cJSON *object, const char *name, Action action) {
        const cJSON *item = nullptr;
        cJSON_ArrayForEach(item, cJSON_GetObjectItem(object, name)) { action(item); }
    }

    void complain(const std::string &what) {
        if (error_.empty()) error_ = what;
    }

    static Position position(const cJSON *object) {
        const cJSON *pair = cJSON_GetObjectItem(object, "position");
        const cJSON *x = cJSON_GetArrayItem(pair, 0), *y = cJSON_GetArrayItem(pair, 1);
        return {cJSON_IsNumber(x) ? x->valuedouble : 0, cJSON_IsNumber(y) ? y->valuedouble : 0};
    }

    MacAddress mac(const cJSON *object, const char *name) {
        const std::string text = text_member(object, name);
        MacAddress address{};
        int length = 0;
        // NOLINTNEXTLINE(cert-err34-c): two digits always fit a byte, and the fields are counted
        const int fields = std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &address[0], &address[1],
                                       &address[2], &address[3], &address[4], &address[5], &length);
        if (fields != 6 || static_cast<size_t>(length) != text.size())
            complain(std::string(name) + " \"" + text + "\" is no MAC address");
        return address;
    }

    int band(const cJSON *object) {
        const std::string text = text_member(object, "band", "2.4G");
        if (text != "2.4G" && text != "5G") complain("band \"" + text + "\" is neither \"2.4G\" nor \"5G\"");
        return text == "5G" ? 5 : 24;
    }

    static std::vector<int> numbers(const cJSON *object, const char *name, std::vector<int> otherwise) {
        const cJSON *list = cJSON_GetObjectItem(object, name);
        if (!cJSON_IsArray(list)) return otherwise;
        std::vector<int> result;
        const cJSON *item = nullptr;
        cJSON_ArrayForEach(item, list) { result.push_back(item->valueint); }
        return result;
    }

    static ChannelSetting setting(const cJSON *object, int band) {
        ChannelSetting setting;
        setting.channel = int_member(object, "channel", band == 24 ? 6 : 36);
        setting.bandwidth = int_member(object, "bandwidth", 20);
        const int usual = extension_channel(band, setting.channel, setting.bandwidth);
        setting.extension = int_member(object, "extension", usual);
        return setting;
    }

    // The scenario is UTF-8; a network that names GB2312 sends its SSID in that.
    std::string encoded(const std::string &ssid, const std::string &encoding) {
        if (encoding != "gb2312") return ssid;
        char converted[4 * 48 + 1] = {};
        if (system_convert_code_format(ssid.c_str(), "gb2312", converted, sizeof converted) == 0) return converted;
        complain("\"" + ssid + "\" has no GB2312 form");
        return ssid;
    }

    Network network(const cJSON *object, const std::string &interface) {
        Network network;
        network.interface = text_member(object, "interface", interface);
        network.os_name = text_member(object, "os_name", network.interface);
        network.encoding = text_member(object, "encoding", "utf-8");
        network.ssid = encoded(text_member(object, "ssid"), network.encoding);
        network.security = text_member(object, "security", "none");
        network.cipher = text_member(object, "cipher", "aes");
        network.bssid = mac(object, "bssid");
        network.enabled = flag_member(object, "enabled", true);
        return network;
    }

    Radio radio(const cJSON *object, size_t index) {
        static const std::vector<int> channels_24 = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
        static const std::vector<int> channels_5 = {36,  40,  44,  48,  52,  56,  60,  64,  100, 104, 108, 112,
                                                    116, 120, 124, 128, 132, 136, 140, 149, 153, 157, 161, 165};
        Radio radio;
        radio.band = band(object);
        radio.interface = text_member(object, "interface", "wlan" + std::to_string(index));
        radio.enabled = flag_member(object, "enabled", true);
        radio.setting = setting(object, radio.band);
        radio.power_dbm = int_member(object, "power_dbm", radio.power_dbm);
        radio.extend_state = int_member(object, "extend_state", 0);
        radio.channels = numbers(object, "channels", radio.band == 24 ? channels_24 : channels_5);
        std::vector<int> usual_dfs;
        if (radio.band == 5)
            std::ranges::copy_if(radio.channels, std::back_inserter(usual_dfs),
                                 [](int c) { return c >= 52 && c <= 144; });
        radio.dfs = numbers(object, "dfs", usual_dfs);
        radio.radar = numbers(object, "radar", {});
        each(object, "networks", [&](const cJSON *item) {
            const std::string interface = radio.interface + "." + std::to_string(radio.networks.size());
            radio.networks.push_back(network(item, interface));
        });
        if (!radio.can_use(radio.setting.channel))
            complain(radio.interface + " starts on channel " + std::to_string(radio.setting.channel) +
                     ", which it lacks");
        return radio;
    }

    AccessPoint access_point(const cJSON *object) {
        AccessPoint point;
        point.name = text_member(object, "name");
        point.position = position(object);
        each(object, "radios", [&](const cJSON *item) { point.radios.push_back(radio(item, point.radios.size())); });
        if (point.name.empty()) complain("an access point has no name");
        return point;
    }

    Neighbour neighbour(const cJSON *object) {
        Neighbour neighbour;
        neighbour.position = position(object);
        neighbour.band = band(object);
        neighbour.setting = setting(object, neighbour.band);
        neighbour.power_dbm = int_member(object, "power_dbm", neighbour.power_dbm);
        neighbour.load = std::clamp(number_member(object, "load", 0), 0.0, 1.0);
        neighbour.network = network(object, "");
        return neighbour;
    }

    Client client(const cJSON *object) {
        Client client;
        client.mac = mac(object, "mac");
        client.ip = text_member(object, "ip");
        client.access_point = text_member(object, "access_point");
        client.interface = text_member(object, "interface");
        client.mode = text_member(object, "mode", "11ax");
        client.position = position(object);
        client.received_per_second = number_member(object, "received_per_second", 0);
        client.sent_per_second = number_member(object, "sent_per_second", 0);
        client.connected_before = std::max(0.0, number_member(object, "connected_before", 60));
        client.received_before =
            counter(object, "received_before", client.received_per_second * client.connected_before);
        client.sent_before = counter(object, "sent_before", client.sent_per_second * client.connected_before);
        client.power_dbm = int_member(object, "power_dbm", client.power_dbm);
        const std::string place = text_member(object, "address_in", "table");
        if (place != "table" && place != "file" && place != "nowhere")
            complain("address_in \"" + place + "\" is neither \"table\", \"file\" nor \"nowhere\"");
        client.address_place = place == "table"  ? AddressPlace::table
                               : place == "file" ? AddressPlace::file
                                                 : AddressPlace::nowhere;
        return client;
    }

    // Counters wrap as the driver's do; without a value, the traffic has been flowing since the client associated.
    static uint32_t counter(const cJSON *object, const char *name, double otherwise) {
        const double value = std::max(0.0, number_member(object, name, otherwise));
        return static_cast<uint32_t>(std::fmod(std::floor(value), 4294967296.0));
    }

    Fault fault(const cJSON *object) {
        Fault fault;
        fault.call = text_member(object, "call");
        fault.access_point = text_member(object, "access_point");
        fault.interface = text_member(object, "interface");
        fault.after = int_member(object, "after", 0);
        fault.times = int_member(object, "times", -1);
        fault.result = int_member(object, "result", -1);
        fault.nonsense = flag_member(object, "nonsense", false);
        if (fault.call.empty()) complain("a fault names no call");
        return fault;
    }

    static PortLink port(const cJSON *object) {
        PortLink port;
        port.port = int_member(object, "port", 0);
        port.interface = text_member(object, "interface");
        port.link = int_member(object, "link", 0);
        port.speed = int_member(object, "speed", port.speed);
        port.duplex = int_member(object, "duplex", port.duplex);
        return port;
    }

    std::string &error_;
};

// The position of the 40 MHz pair that a 5 GHz channel belongs to: pairs start at 36 and, above, at 149.
bool is_lower_of_pair(int channel) { return (channel - (channel >= 149 ? 149 : 36)) / 4 % 2 == 0; }

}  // namespace

bool Radio::can_use(int channel) const { return std::ranges::find(channels, channel) != channels.end(); }

int extension_channel(int band, int channel, int bandwidth) {
    if (bandwidth <= 20) return 0;
    const bool above = band == 24 ? channel <= 7 : is_lower_of_pair(channel);
    return above ? channel + 4 : channel - 4;
}

std::optional<Scenario> parse_scenario(const std::string &text, std::string &error) {
    error.clear();
    const char *stopped_at = nullptr;
    const ap::UniqueJson root(cJSON_ParseWithOpts(text.c_str(), &stopped_at, 0));
    if (!cJSON_IsObject(root.get())) {
        const auto line = root ? 1 : std::count(text.c_str(), stopped_at, '\n') + 1;
        error = "no JSON object, line " + std::to_string(line);
        return std::nullopt;
    }
    Scenario scenario = Reader(error).read(root.get());
    if (!error.empty()) return std::nullopt;
    return scenario;
}

}  // namespace ap::host
