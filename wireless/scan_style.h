// scan_style.h: what every survey starts with: which style of scan the radio's channel calls for, and a result buffer.
#pragma once

#include <cstdlib>

#include "foundation/owned.h"
#include "wireless/driver_records.h"

namespace ap {

// In this family the driver has failed only when it answers -1.
constexpr bool driver_failed(int result) { return result == -1; }

enum class ScanStyle { unknown, full, channel_by_channel };

// `unknown` when the driver does not tell its channel; `function` is then named on the console.
ScanStyle choose_scan_style(const char *function, const char *ifname);

inline HeapPtr<void> new_scan_buffer() { return HeapPtr<void>(std::calloc(1, ScanBuffer::size)); }

}  // namespace ap
