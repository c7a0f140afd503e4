// scan_records.h: turns the driver's scan results into records of neighbouring access points.
#pragma once

#include "wireless/driver_records.h"

namespace ap {

// Writes the count and the records, straight into the caller's list.
void convert_scan_results(const ScanBuffer &results, WifiScanList &out);

}  // namespace ap
