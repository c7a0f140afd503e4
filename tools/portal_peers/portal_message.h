// portal_message.h: the block of 616 bytes that the portal exchanges with its servers: a type (u32) at 0, a 64-bit
// value at 8; words are little-endian.
#pragma once

#include <array>
#include <cstdint>

#include "foundation/byte_order.h"

namespace peers {

using PortalMessage = std::array<uint8_t, 616>;

inline constexpr size_t value_offset = 8;

inline uint32_t type_of(const PortalMessage &message) { return ap::le32(message.data()); }

}  // namespace peers
