// aes_block.cpp: AES key expansion, and enciphering and deciphering of one block, from tables at word width.
//
// The context holds the round keys of both directions in the order of their use; deciphering uses the equivalent
// inverse cipher, so its middle round keys have passed the inverse column mixing.

#include "foundation/aes_block.h"

#include <bit>
#include <cstddef>
#include <cstring>

#include "foundation/aes_tables.h"

static_assert(sizeof(aes_context) == 4 + 60 * 4 + 60 * 4 && offsetof(aes_context, decrypt_keys) == 4 + 60 * 4);

namespace ap::aes {

namespace {

constexpr uint32_t row(uint32_t column, int number) { return column >> (8 * number) & 255; }

// One column of a round: byte `n` comes from row n of column `cn`.
uint32_t mixed_column(const RoundTables &tables, uint32_t c0, uint32_t c1, uint32_t c2, uint32_t c3) {
    return tables[0][row(c0, 0)] ^ tables[1][row(c1, 1)] ^ tables[2][row(c2, 2)] ^ tables[3][row(c3, 3)];
}
uint32_t plain_column(const ByteTable &table, uint32_t c0, uint32_t c1, uint32_t c2, uint32_t c3) {
    return static_cast<uint32_t>(table[row(c0, 0)]) | static_cast<uint32_t>(table[row(c1, 1)]) << 8 |
           static_cast<uint32_t>(table[row(c2, 2)]) << 16 | static_cast<uint32_t>(table[row(c3, 3)]) << 24;
}

uint32_t substitute(uint32_t column) { return plain_column(substitutes, column, column, column, column); }

// Undoes the column mixing; the substitution that the tables begin with is taken back first.
uint32_t unmix(uint32_t column) {
    const uint32_t substituted = substitute(column);
    return mixed_column(decrypt_tables, substituted, substituted, substituted, substituted);
}

// A round with its rows shifted: columns to the right for enciphering, to the left for deciphering.
template <typename Column> Block encrypt_round(const Block &block, const uint32_t *keys, Column column) {
    const auto &[c0, c1, c2, c3] = block.columns;
    return {{column(c0, c1, c2, c3) ^ keys[0], column(c1, c2, c3, c0) ^ keys[1], column(c2, c3, c0, c1) ^ keys[2],
             column(c3, c0, c1, c2) ^ keys[3]}};
}
template <typename Column> Block decrypt_round(const Block &block, const uint32_t *keys, Column column) {
    const auto &[c0, c1, c2, c3] = block.columns;
    return {{column(c0, c3, c2, c1) ^ keys[0], column(c1, c0, c3, c2) ^ keys[1], column(c2, c1, c0, c3) ^ keys[2],
             column(c3, c2, c1, c0) ^ keys[3]}};
}

bool has_key(const aes_context &context) {
    return context.rounds == 10 || context.rounds == 12 || context.rounds == 14;
}

Block with_keys(const Block &block, const uint32_t *keys) {
    return block ^ Block {
        { keys[0], keys[1], keys[2], keys[3] }
    };
}

void expand_key(aes_context &context, const unsigned char *key, size_t key_words) {
    uint32_t *keys = context.encrypt_keys;
    std::memcpy(keys, key, key_words * sizeof *keys);
    uint8_t round_constant = 1;
    for (size_t i = key_words; i < 4 * (size_t{context.rounds} + 1); ++i) {
        uint32_t word = keys[i - 1];
        if (i % key_words == 0) {
            word = substitute(std::rotr(word, 8)) ^ round_constant;
            round_constant = multiply(round_constant, 2);
        } else if (key_words > 6 && i % key_words == 4) {
            word = substitute(word);
        }
        keys[i] = keys[i - key_words] ^ word;
    }
}

void derive_decrypt_keys(aes_context &context) {
    const uint32_t last = context.rounds;
    for (uint32_t round = 0; round <= last; ++round) {
        for (uint32_t i = 0; i < 4; ++i) {
            const uint32_t word = context.encrypt_keys[4 * (last - round) + i];
            context.decrypt_keys[4 * round + i] = round == 0 || round == last ? word : unmix(word);
        }
    }
}

}  // namespace

Block encipher(const aes_context &context, const Block &plain) {
    if (!has_key(context)) return {};
    const uint32_t *keys = context.encrypt_keys;
    Block block = with_keys(plain, keys);
    for (uint32_t round = 1; round < context.rounds; ++round) {
        block =
            encrypt_round(block, keys += 4, [](auto... columns) { return mixed_column(encrypt_tables, columns...); });
    }
    return encrypt_round(block, keys + 4, [](auto... columns) { return plain_column(substitutes, columns...); });
}

Block decipher(const aes_context &context, const Block &cipher) {
    if (!has_key(context)) return {};
    const uint32_t *keys = context.decrypt_keys;
    Block block = with_keys(cipher, keys);
    for (uint32_t round = 1; round < context.rounds; ++round) {
        block =
            decrypt_round(block, keys += 4, [](auto... columns) { return mixed_column(decrypt_tables, columns...); });
    }
    return decrypt_round(block, keys + 4,
                         [](auto... columns) { return plain_column(inverse_substitutes, columns...); });
}

}  // namespace ap::aes

// Keys of 128, 192 and 256 bits; any other size leaves a context without a key.
void aes_set_key(struct aes_context *ctx, const unsigned char *key, int bits) {
    *ctx = {};
    if (bits != 128 && bits != 192 && bits != 256) return;
    const auto key_words = static_cast<uint32_t>(bits / 32);
    ctx->rounds = key_words + 6;
    ap::aes::expand_key(*ctx, key, key_words);
    ap::aes::derive_decrypt_keys(*ctx);
}

void aes_encrypt(const struct aes_context *ctx, const unsigned char in[16], unsigned char out[16]) {
    ap::aes::encipher(*ctx, ap::aes::Block::load(in)).store(out);
}

void aes_decrypt(const struct aes_context *ctx, const unsigned char in[16], unsigned char out[16]) {
    ap::aes::decipher(*ctx, ap::aes::Block::load(in)).store(out);
}
