// scenario.h: the surroundings of the access points, as the file "/apbox/scenario.json" gives them: access points with
// their radios and networks, neighbours, clients, and failures that the driver is told to have.
//
// Distances are in metres, powers and strengths in dBm, traffic in bytes a second, frequencies in MHz. docs/scenario.md
// describes the file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ap::host {

using MacAddress = std::array<uint8_t, 6>;

struct Position {
    double x = 0, y = 0;
};

struct ChannelSetting {
    int channel = 0, bandwidth = 20, extension = 0;  // extension 0: 20 MHz wide, no second channel
};

struct Network {
    std::string interface, os_name, ssid, encoding, security, cipher;
    MacAddress bssid{};
    bool enabled = true;
};

struct Radio {
    std::string interface;
    int band = 24;  // 24 or 5
    bool enabled = true;
    ChannelSetting setting;
    int power_dbm = 20;
    int extend_state = 0;
    std::vector<int> channels;  // that it can be switched to
    std::vector<int> dfs;       // of these, the ones on which radar may be
    std::vector<int> radar;     // of those, the ones on which radar is
    std::vector<Network> networks;

    bool can_use(int channel) const;
};

struct AccessPoint {
    std::string name;
    Position position;
    std::vector<Radio> radios;
};

// A network of somebody else.
struct Neighbour {
    Position position;
    int band = 24;
    ChannelSetting setting;
    int power_dbm = 20;
    double load = 0;  // the share of time that it is on the air, 0 to 1
    Network network;
};

enum class AddressPlace { table, file, nowhere };  // where a client's address can be read

struct Client {
    MacAddress mac{};
    std::string ip, access_point, interface, mode;
    Position position;
    double received_per_second = 0, sent_per_second = 0;  // by the access point, from and to the client
    uint32_t received_before = 0, sent_before = 0;        // the counters when the world started
    double connected_before = 0;                          // seconds
    int power_dbm = 15;
    AddressPlace address_place = AddressPlace::table;
};

// Makes calls of the driver fail, or answer nonsense.
struct Fault {
    std::string call, access_point, interface;  // empty access point or interface: any
    int after = 0, times = -1;                  // the calls that go well before, and the ones that go wrong; -1: all
    int result = -1;
    bool nonsense = false;  // answers 0 and fills the record with bytes that mean nothing
};

struct PortLink {
    int port = 0;
    std::string interface;  // empty: the link is as given below
    int link = 0, speed = 1000, duplex = 1;
};

struct InterfaceName {
    int id = 0;
    std::string name;
};

struct Scenario {
    double path_loss_exponent = 3.0;
    double reference_loss_24 = 40.0, reference_loss_5 = 47.0;  // dB at one metre
    double noise_dbm = -95, sensitivity_dbm = -90;
    std::vector<AccessPoint> access_points;
    std::vector<Neighbour> neighbours;
    std::vector<Client> clients;
    std::vector<Fault> faults;
    std::vector<PortLink> ports;
    std::vector<InterfaceName> interfaces;
};

// Nothing, and a line in `error`, when the text describes no world.
std::optional<Scenario> parse_scenario(const std::string &text, std::string &error);

// The second channel of a bandwidth, and 0 for 20 MHz.
int extension_channel(int band, int channel, int bandwidth);

}  // namespace ap::host
