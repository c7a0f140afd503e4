// radio_signal.cpp: the radio model's formulas.

#include "platform/host/radio_signal.h"

#include <algorithm>
#include <cmath>

namespace ap::host {

namespace {

double centre_of(int band, int channel) {
    if (band != 24) return 5000 + 5.0 * channel;
    return channel == 14 ? 2484 : 2407 + 5.0 * channel;
}

// The first channel of the wide block that a 5 GHz channel belongs to.
int first_of_block(int channel, int channels_in_block) {
    const int first = channel >= 149 ? 149 : channel >= 100 ? 100 : 36;
    const int index = (channel - first) / 4;
    return first + index / channels_in_block * channels_in_block * 4;
}

struct Capacity {
    int bandwidth;
    double mbit_per_second;
};
constexpr Capacity capacities[] = {{20, 144}, {40, 300}, {80, 650}, {160, 1300}};

constexpr double best_above_noise_db = 40;

}  // namespace

double received_strength(const Scenario &scenario, int band, double power_dbm, Position from, Position to) {
    const double distance = std::max(1.0, std::hypot(from.x - to.x, from.y - to.y));
    const double reference = band == 24 ? scenario.reference_loss_24 : scenario.reference_loss_5;
    return power_dbm - reference - 10 * scenario.path_loss_exponent * std::log10(distance);
}

Span channel_span(int band, const ChannelSetting &setting) {
    const double primary = centre_of(band, setting.channel);
    if (setting.bandwidth >= 80 && band != 24) {
        const double first = centre_of(band, first_of_block(setting.channel, setting.bandwidth / 20));
        return {first - 10, first - 10 + setting.bandwidth};
    }
    if (setting.bandwidth < 40 || setting.extension == 0) return {primary - 10, primary + 10};
    const double second = centre_of(band, setting.extension);
    return {std::min(primary, second) - 10, std::max(primary, second) + 10};
}

double overlap(Span part, Span whole) {
    const double shared = std::min(part.high, whole.high) - std::max(part.low, whole.low);
    return std::max(0.0, shared) / (part.high - part.low);
}

double link_capacity(int bandwidth) {
    double best = capacities[0].mbit_per_second;
    for (const Capacity &capacity : capacities)
        if (bandwidth >= capacity.bandwidth) best = capacity.mbit_per_second;
    return best;
}

int link_rate(int bandwidth, double above_noise_db) {
    const double quality = std::clamp(above_noise_db / best_above_noise_db, 0.02, 1.0);
    return static_cast<int>(std::lround(link_capacity(bandwidth) * quality));
}

double channel_load(int band, int channel, const std::vector<HeardNetwork> &heard) {
    const Span measured = channel_span(band, {channel, 20, 0});
    double idle = 1;
    for (const HeardNetwork &network : heard)
        if (network.band == band) idle *= 1 - network.load * overlap(measured, channel_span(band, network.setting));
    return 1 - idle;
}

}  // namespace ap::host
