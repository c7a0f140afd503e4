// measure.h: measures every channel of the access point's radios, and keeps the result for whoever asked.
#pragma once

namespace wifi_measure {

inline constexpr char result_file[] = "/etc/wm_config/all_chan_measure.json";

// Measures all channels, a tenth of a second each, and replaces the result's file whole. False, and the reason printed
// on standard error, when it could not be written; a radio that does not answer is left out of it.
bool measure_all();

}  // namespace wifi_measure
