// client_record.h: copies a client record field by field.
#pragma once

#include "apsupport/wireless.h"

namespace ap {

// Everything but stat_d, which keeps what it held.
void copy_client(const WifiClientInfo &from, WifiClientInfo &to);

}  // namespace ap
