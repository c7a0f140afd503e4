// mac_text.h: the portal's MAC texts, fields of 18 bytes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "foundation/text.h"

namespace ap {

inline constexpr size_t mac_text_size = 18;

// Compared over the whole field, up to its NUL.
inline bool same_mac(const char *text, const char *other) { return std::strncmp(text, other, mac_text_size) == 0; }

// The six bytes of "AA:BB:CC:DD:EE:FF"; what is no MAC gives zeros.
inline void parse_mac(const char (&text)[mac_text_size], uint8_t (&mac)[6]) {
    char copy[mac_text_size + 1];
    copy_text(copy, field_text(text));
    unsigned int bytes[6];
    std::memset(mac, 0, sizeof mac);
    // NOLINTNEXTLINE(cert-err34-c): two digits always fit a byte, and the fields are counted
    if (std::sscanf(copy, "%2x:%2x:%2x:%2x:%2x:%2x", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                    &bytes[5]) != 6)
        return;
    for (size_t i = 0; i < sizeof mac; ++i) mac[i] = static_cast<uint8_t>(bytes[i]);
}

}  // namespace ap
