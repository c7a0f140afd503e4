// gateway_request.h: the text message with a verification code, and the request that hands it to the message gateway.
#pragma once

#include <cstddef>

#include "apsupport/portal.h"

namespace ap {

using EncodedMessage = char[1024];

// The text message, URL-encoded; the empty text when it does not fit.
void encode_message(const portal_public_info &info, unsigned int code, EncodedMessage &encoded);

// Writes the whole request into `url`, which belongs to the phone request.
void write_gateway_request(const portal_public_info &info, uint64_t phone, const EncodedMessage &content, char *url,
                           size_t url_size);

}  // namespace ap
