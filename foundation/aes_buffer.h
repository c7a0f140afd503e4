// aes_buffer.h: the fixed key and initialisation vector, padding, and heap blocks that are wiped before they are freed.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "apsupport/foundation.h"

namespace ap::aes {

// From 1 to 16 bytes: a length that is a multiple of 16 gains a whole block.
constexpr size_t pad_of(size_t length) { return 16 - length % 16; }

// A heap block for plain text; false when there is no memory, and beyond what a result could tell the length of.
class SecretBlock {
public:
    explicit SecretBlock(size_t size)
        : bytes_(size > 0 && size <= INT_MAX ? static_cast<unsigned char *>(std::malloc(size)) : nullptr),
          size_(size) {}
    ~SecretBlock() {
        if (bytes_ != nullptr) explicit_bzero(bytes_, size_);
        std::free(bytes_);
    }
    SecretBlock(const SecretBlock &) = delete;
    SecretBlock &operator=(const SecretBlock &) = delete;

    explicit operator bool() const { return bytes_ != nullptr; }
    unsigned char *get() { return bytes_; }

private:
    unsigned char *bytes_;
    size_t size_;
};

// Copies `length` bytes of plain text to `out` and puts the pad behind them.
void copy_padded(unsigned char *out, const unsigned char *plain, size_t length);

// With the fixed key, from a fresh initialisation vector: whole blocks of `length` bytes; keys are wiped afterwards.
void encipher_whole(const unsigned char *in, unsigned char *out, size_t length);
void decipher_whole(const unsigned char *in, unsigned char *out, size_t length);

// Zeroes the pad that the last of `length` deciphered bytes announces, never more than the bytes that there are.
// Returns the length without the pad as it is announced, so a wrong pad may leave it negative.
int strip_pad(unsigned char *plain, size_t length);

}  // namespace ap::aes
