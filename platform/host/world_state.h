// world_state.h: what has changed in the world since it began: channels, powers, scans, private elements, GPIO lines,
// and how often each scripted failure has been met.
//
// It is one JSON file in "/apbox/world", which all boxes of a network share. Whoever holds the world's lock may read
// and write it; it is replaced whole, so that a killed process leaves the old or the new one.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/host/scenario.h"

namespace ap::host {

struct RadioState {
    ChannelSetting setting;
    int power_dbm = 20;
};

// The last scan of a radio.
struct ScanState {
    int channel = 0;   // 0: all
    std::string ssid;  // empty: any
};

struct PrivatePort {
    int port = 0, type = 0, max_length = 0;
    std::string interfaces, payload_name;
};

// A neighbour's line, and when its sender was last noticed, by the receiver's clock; 0: not since it arrived.
struct HeardLine {
    std::string text;
    double noticed_at = 0;
};

struct PrivateElements {
    bool on = false;
    std::vector<PrivatePort> ports;
    std::string line;  // that is broadcast; empty: none
    int age_seconds = 120;
    std::map<std::string, HeardLine> heard;  // by the sender's name
};

struct GpioLine {
    int value = 0;
    bool locked = false;
};

// Radios are keyed "ACCESS-POINT/INTERFACE", the rest by the access point's name; faults by their place in the
// scenario.
struct WorldState {
    double started_at = 0;  // seconds since 1970
    std::map<std::string, RadioState> radios;
    std::map<std::string, ScanState> scans;
    std::map<std::string, PrivateElements> private_elements;
    std::map<std::string, std::map<int, GpioLine>> gpio_lines;
    std::map<int, int> fault_calls;
};

// A missing or unreadable file is a world that has just begun.
WorldState read_world_state(const std::string &path);

// False when the file could not be written; then the old one stands.
bool write_world_state(const std::string &path, const WorldState &state);

}  // namespace ap::host
