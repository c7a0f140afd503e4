// gateway_request.h: the text message with a verification code, and the request that hands it to the message gateway.
#pragma once

#include <cstddef>

#include "apsupport/portal.h"

namespace ap {

// Writes the whole request into `url`, which belongs to the phone request.
void write_gateway_request(const portal_public_info &info, uint64_t phone, unsigned int code, char *url,
                           size_t url_size);

}  // namespace ap
