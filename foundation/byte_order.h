// byte_order.h: words in byte buffers, little- and big-endian, at any alignment.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace ap {

static_assert(std::endian::native == std::endian::little, "the device and the hosts are little-endian");

template <typename T> T load_le(const void *bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}
template <typename T> void store_le(void *bytes, T value) { std::memcpy(bytes, &value, sizeof value); }

inline uint16_t le16(const void *bytes) { return load_le<uint16_t>(bytes); }
inline uint32_t le32(const void *bytes) { return load_le<uint32_t>(bytes); }
inline uint64_t le64(const void *bytes) { return load_le<uint64_t>(bytes); }
inline uint16_t be16(const void *bytes) { return __builtin_bswap16(le16(bytes)); }
inline uint32_t be32(const void *bytes) { return __builtin_bswap32(le32(bytes)); }
inline void store_be16(void *bytes, uint16_t value) { store_le(bytes, __builtin_bswap16(value)); }
inline void store_be32(void *bytes, uint32_t value) { store_le(bytes, __builtin_bswap32(value)); }

}  // namespace ap
