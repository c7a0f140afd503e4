// log.h: the radio optimiser's lines in the diagnostic log, and the status codes of its steps.
#pragma once

#include "foundation/console.h"

#define RFO_ERROR(...) AP_ERROR("rfo", __VA_ARGS__)
#define RFO_TRACE(...) AP_DEBUG(3, "rfo", __VA_ARGS__)
#define RFO_DETAIL(...) AP_DEBUG(4, "rfo", __VA_ARGS__)

// Lines in the name of the step that called a helper.
#define RFO_ERROR_OF(caller, ...) AP_DEBUG_OF(caller, ap::error_level, "rfo", __VA_ARGS__)
#define RFO_TRACE_OF(caller, ...) AP_DEBUG_OF(caller, 3, "rfo", __VA_ARGS__)

namespace ap {

inline constexpr int rfo_failure = 1, rfo_success = 2;

inline constexpr int band_24g = 24, band_5g = 5, band_6g = 6;
inline constexpr int bands[] = {band_24g, band_5g};

inline constexpr char wifi_update_topic[] = "cloud.wifi.update";

}  // namespace ap
