// kernel_link.h: the request channel to the portal's kernel module, for the files that send it commands of their own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ap {

inline constexpr char portal_source[] = "src/ap_portal/ap_portal.c";  // as the portal's log lines name it

enum class PortalType : uint16_t {
    start = 20,
    client = 21,
    lists = 22,
    settings = 23,
    client_state = 24,
    node_info = 27,
    client_rule = 28,
    online_user = 29,
};

// Sends `length` bytes to the module in a datagram of the channel's whole size and does not wait for an answer.
void send_to_portal(PortalType type, const void *data, size_t length);

}  // namespace ap
