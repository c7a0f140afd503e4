// aes_block.h: AES on one block of 16 bytes, held as four little-endian words, a column each.
#pragma once

#include <cstdint>

#include "apsupport/foundation.h"
#include "foundation/byte_order.h"

namespace ap::aes {

inline constexpr unsigned int block_size = 16;

struct Block {
    uint32_t columns[4];

    static Block load(const unsigned char *bytes) { return load_le<Block>(bytes); }
    void store(unsigned char *bytes) const { store_le(bytes, *this); }

    friend Block operator^(const Block &a, const Block &b) {
        return {{a.columns[0] ^ b.columns[0], a.columns[1] ^ b.columns[1], a.columns[2] ^ b.columns[2],
                 a.columns[3] ^ b.columns[3]}};
    }
};
static_assert(sizeof(Block) == block_size);

// All zeros for a context that holds no key.
Block encipher(const aes_context &context, const Block &plain);
Block decipher(const aes_context &context, const Block &cipher);

}  // namespace ap::aes
