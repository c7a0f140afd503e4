// channel_switch.h: moves one band's radio to a channel and bandwidth, as far as its wireless mode allows.
#pragma once

namespace ap {

struct ChannelChoice {
    int channel, bandwidth_mhz;
};

enum SwitchResult { switch_not_handled = 0, switch_failed = 1, switch_applied = 2, switch_applied_changed = 3 };

// `applied` is what was switched to; it is left alone on failure.
int ap_rfo_preferred_csa_notice(int band, const ChannelChoice &requested, ChannelChoice &applied);

}  // namespace ap
