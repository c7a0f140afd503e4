// channel_measure.h: what the measurement service found out about every channel.
#pragma once

#include "apsupport/rfo.h"
#include "rfo/growing_array.h"

namespace ap {

struct ChannelLists {
    GrowingArray<ChannelRecord> band_24g, band_5g;  // in the order of the measurement file
};

// Has all channels measured and reads the result. A status code; the lists hold what could be read.
int rfo_ch_rf_info_collect(ChannelLists &lists);

}  // namespace ap
