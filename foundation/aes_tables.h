// aes_tables.h: the tables of the AES rounds, computed by the compiler.
//
// A column of the state is one little-endian word, row 0 in its lowest byte. Each round table holds, for a byte in one
// row, the byte's substitute multiplied into the whole column; the four tables of a direction are one table, rotated by
// a row.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace ap::aes {

using ByteTable = std::array<uint8_t, 256>;
using RoundTable = std::array<uint32_t, 256>;
using RoundTables = std::array<RoundTable, 4>;

// Multiplication in AES's field of 256 elements.
constexpr uint8_t multiply(uint8_t a, uint8_t b) {
    unsigned int factor = a, product = 0;
    for (; b != 0; b = static_cast<uint8_t>(b >> 1)) {
        if ((b & 1) != 0) product ^= factor;
        factor = factor << 1 ^ ((factor & 0x80) != 0 ? 0x11bU : 0);
    }
    return static_cast<uint8_t>(product);
}

constexpr uint8_t affine(uint8_t inverse) {
    return static_cast<uint8_t>(inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^ std::rotl(inverse, 3) ^
                                std::rotl(inverse, 4) ^ 0x63);
}

// Walks all non-zero elements as powers of 3, with the inverse beside: 3 * 0xf6 is 1.
constexpr ByteTable make_substitutes() {
    ByteTable table{};
    table[0] = affine(0);
    uint8_t element = 1, inverse = 1;
    for (int i = 0; i < 255; ++i) {
        table[element] = affine(inverse);
        element = multiply(element, 3);
        inverse = multiply(inverse, 0xf6);
    }
    return table;
}

constexpr ByteTable invert(const ByteTable &table) {
    ByteTable inverse{};
    for (size_t i = 0; i < table.size(); ++i) inverse[table[i]] = static_cast<uint8_t>(i);
    return inverse;
}

// `factors` are the column's multipliers for a byte in row 0, row 0 first.
constexpr RoundTables make_round_tables(const ByteTable &substitutes, std::array<uint8_t, 4> factors) {
    RoundTables tables{};
    for (size_t i = 0; i < substitutes.size(); ++i) {
        uint32_t column = 0;
        for (unsigned int row = 0; row < 4; ++row) {
            column |= static_cast<uint32_t>(multiply(substitutes[i], factors[row])) << (8 * row);
        }
        for (int row = 0; row < 4; ++row) tables[static_cast<size_t>(row)][i] = std::rotl(column, 8 * row);
    }
    return tables;
}

inline constexpr ByteTable substitutes = make_substitutes();
inline constexpr ByteTable inverse_substitutes = invert(substitutes);
inline constexpr RoundTables encrypt_tables = make_round_tables(substitutes, {2, 1, 1, 3});
inline constexpr RoundTables decrypt_tables = make_round_tables(inverse_substitutes, {14, 9, 13, 11});

}  // namespace ap::aes
