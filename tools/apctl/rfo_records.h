// rfo_records.h: the records of the radio optimiser's surveys, taken apart. A record that is not exactly as long as its
// own counts say is refused.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "apsupport/rfo.h"
#include "foundation/text.h"

namespace rfo_records {

using Bytes = std::span<const uint8_t>;

struct ChannelSurvey {
    ap_rf_chan_info head{};
    std::array<std::vector<ChannelRecord>, 2> channels;  // 2.4 GHz, 5 GHz; none: the radio is off or was not measured
    std::vector<NeighbourRecord> neighbours;
};

struct PowerSurvey {
    ap_rf_power_info head{};
    std::vector<NeighbourRecord> neighbours;
};

template <size_t N> std::string text_of(const char (&field)[N]) { return std::string(ap::field_text(field)); }

// Takes a part off the front of the bytes; false when there are fewer.
template <typename Part> bool take(Bytes &bytes, Part &part) {
    if (bytes.size() < sizeof part) return false;
    std::memcpy(&part, bytes.data(), sizeof part);
    return bytes = bytes.subspan(sizeof part), true;
}
template <typename Part> bool take_all(Bytes &bytes, size_t count, std::vector<Part> &parts) {
    parts.resize(count);
    return std::ranges::all_of(parts, [&](Part &part) { return take(bytes, part); });
}

inline bool decode(Bytes bytes, ChannelSurvey &survey) {
    return take(bytes, survey.head) && take_all(bytes, survey.head.channels_24g, survey.channels[0]) &&
           take_all(bytes, survey.head.channels_5g, survey.channels[1]) &&
           take_all(bytes, survey.head.neighbours, survey.neighbours) && bytes.empty();
}

inline bool decode(Bytes bytes, PowerSurvey &survey) {
    return take(bytes, survey.head) && take_all(bytes, survey.head.neighbours, survey.neighbours) && bytes.empty();
}

inline bool decode(Bytes bytes, ChannelSwitchResult &result) { return take(bytes, result) && bytes.empty(); }

}  // namespace rfo_records
