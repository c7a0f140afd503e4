// ap_messages.h: what a controller and the agents of access points say to each other, one question and one answer at a
// time over the message server.
//
// A question is a byte that says what is wanted, and the argument of the library's entry point behind it. An answer is
// a byte of AgentAnswer, and the record behind it where one was asked for. Records travel as the library makes them.
#pragma once

#include <cstdint>

namespace ap_messages {

enum Question : uint8_t {
    start_channel_survey = 'C',  // mode, delay in seconds
    start_power_survey = 'P',    // mode, delay in seconds
    fetch_channels = 'f',        // the record of the last channel survey
    fetch_power = 'g',           // and of the last power survey
    apply_channels = 'c',        // mode, 2.4 GHz channel, bandwidth, 5 GHz channel, bandwidth
    fetch_result = 'r',          // the last result of applying channels
    apply_power = 'p',           // 2.4 GHz power, 5 GHz power
    apply_scene = 's',           // the scene message
};

enum AgentAnswer : uint8_t { done = 0, refused = 1, not_yet = 2 };

inline constexpr int agent_port = 7001;
inline constexpr int largest_message = 16384;

}  // namespace ap_messages
