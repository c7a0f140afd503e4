// image_layout.h: the two records of a firmware image that leave the process.
//
// The image header stands in front of every image; its integers are big-endian. The dual-bank head stands at the start
// of a kernel image's payload and, once flashed, at the start of its bank; its words are in the processor's byte order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ap {

struct ImageHeader {
    uint8_t magic[4];  // selects the kind of image
    uint8_t header_crc[4], time[4], data_size[4], load_address[4], entry_point[4];
    uint8_t data_crc[4];  // CRC-32 of all bytes behind the header
    uint8_t system, architecture, image_type, compression;
    uint8_t firmware_class;  // the name field starts here; two parts of it have a meaning of their own
    uint8_t name_start[3];
    uint8_t product_id[4];
    uint8_t name_rest[24];
};
static_assert(sizeof(ImageHeader) == 7 * 4 + 4 + (1 + 3 + 4 + 24));
static_assert(offsetof(ImageHeader, data_crc) == 24 && offsetof(ImageHeader, firmware_class) == 32 &&
              offsetof(ImageHeader, product_id) == 36);

inline constexpr uint32_t kernel_magic = 0x27051956;
inline constexpr uint32_t policy_magic = 0x27051958;
inline constexpr uint32_t flash_magic = 0x03000008;

// The short header of a web file system image: only its product id is looked at, big-endian.
struct WebHeader {
    uint8_t unused[24];
    uint8_t product_id[4];
    uint8_t unused_end[4];
};
static_assert(sizeof(WebHeader) == 24 + 4 + 4);

struct DualHead {
    uint32_t word_0;
    uint32_t sequence;  // the top bit marks a valid head; the boot loader takes the bank with the highest
    uint32_t length;    // bytes behind the head
    uint32_t checksum;  // CRC-32 of the bytes behind the head
};
static_assert(sizeof(DualHead) == 4 + 4 + 4 + 4 && offsetof(DualHead, sequence) == 4);

inline constexpr uint32_t valid_head_bit = 0x80000000;

}  // namespace ap
