// address.h: IPv4 addresses as dotted text and as the 32-bit words that `inet_addr` gives (network byte order in a
// native integer), and the move of a host from one network to another.
#pragma once

#include <arpa/inet.h>
#include <cstddef>
#include <netinet/in.h>
#include <string_view>

#include "foundation/text.h"

namespace ap {

inline constexpr size_t address_text_size = INET_ADDRSTRLEN;  // with the NUL
static_assert(address_text_size == 16);

inline constexpr char no_address[] = "0.0.0.0";

// False, and `address` unchanged, when the text is no address.
inline bool read_address(const char *text, in_addr_t &address) {
    in_addr parsed;
    if (inet_aton(text, &parsed) == 0) return false;
    address = parsed.s_addr;
    return true;
}
inline bool read_address(std::string_view text, in_addr_t &address) {
    char terminated[2 * address_text_size];
    return text.size() < sizeof terminated && (copy_text(terminated, text), read_address(terminated, address));
}

// The address `steps` behind (or, negative, before) this one, counted in host order.
inline in_addr_t step_address(in_addr_t address, int steps) {
    return htonl(ntohl(address) + static_cast<uint32_t>(steps));
}

class AddressText {
public:
    explicit AddressText(in_addr_t address) { inet_ntop(AF_INET, &address, text_, sizeof text_); }
    const char *c_str() const { return text_; }
    std::string_view view() const { return text_; }

private:
    char text_[address_text_size] = {};
};

// A change of the LAN's network: every host keeps its host part and takes the new network part.
struct NetworkMove {
    in_addr_t new_ip, new_mask, old_mask;

    // The parts are added, not joined bit by bit: where a host part is wider than the new network leaves room for, the
    // sum carries.
    in_addr_t moved(in_addr_t host) const { return (host & ~old_mask) + (new_ip & new_mask); }
    bool is_outside(in_addr_t host) const { return ((new_ip ^ host) & new_mask) != 0; }
};

}  // namespace ap
