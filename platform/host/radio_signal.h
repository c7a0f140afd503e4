// radio_signal.h: how strongly one place hears another, and how much of a channel's time is taken.
//
// Strength follows the log-distance model: received = sent - loss at 1 m - 10 * exponent * log10(distance in metres).
// Pure computation over a scenario; docs/scenario.md states the formulas.
#pragma once

#include <vector>

#include "platform/host/scenario.h"

namespace ap::host {

// In dBm. Places nearer than a metre count as one metre apart.
double received_strength(const Scenario &scenario, int band, double power_dbm, Position from, Position to);

// A stretch of the spectrum, in MHz.
struct Span {
    double low = 0, high = 0;
};

Span channel_span(int band, const ChannelSetting &setting);  // of the whole bandwidth
double overlap(Span part, Span whole);                       // the share of `part` that lies in `whole`, 0 to 1

// What a link of this bandwidth carries at best, and at a strength above the noise, in Mbit/s.
double link_capacity(int bandwidth);
int link_rate(int bandwidth, double above_noise_db);

// A network that some place hears.
struct HeardNetwork {
    const Network *network;
    int band;
    ChannelSetting setting;
    double strength_dbm;
    double load;  // the share of time that it is on the air, 0 to 1
};

// The share of a 20 MHz channel's time that the networks take together, 0 to 1.
double channel_load(int band, int channel, const std::vector<HeardNetwork> &heard);

}  // namespace ap::host
