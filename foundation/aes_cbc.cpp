// aes_cbc.cpp: AES in CBC mode over whole blocks, and over padded buffers with the fixed key.

#include "foundation/aes_block.h"
#include "foundation/aes_buffer.h"
#include "foundation/aes_material.h"
#include "foundation/console.h"

using ap::aes::Block;
using ap::aes::block_size;

// Both work in place as well; bytes behind the last whole block stay as they are.
void aes_cbc_encrypt(const struct aes_context *ctx, unsigned char iv[16], const unsigned char *in, unsigned char *out,
                     unsigned int length) {
    Block chain = Block::load(iv);
    for (; length >= block_size; length -= block_size, in += block_size, out += block_size) {
        chain = ap::aes::encipher(*ctx, chain ^ Block::load(in));
        chain.store(out);
    }
    chain.store(iv);
}

void aes_cbc_decrypt(const struct aes_context *ctx, unsigned char iv[16], const unsigned char *in, unsigned char *out,
                     unsigned int length) {
    Block chain = Block::load(iv);
    for (; length >= block_size; length -= block_size, in += block_size, out += block_size) {
        const Block cipher = Block::load(in);
        (ap::aes::decipher(*ctx, cipher) ^ chain).store(out);
        chain = cipher;
    }
    chain.store(iv);
}

namespace ap::aes {

namespace {

// The expanded fixed key and a fresh copy of the initialisation vector, wiped when done with.
struct Session {
    aes_context context;
    unsigned char iv[block_size];

    Session() {
        aes_set_key(&context, fixed_key, 128);
        std::memcpy(iv, fixed_iv, sizeof iv);
    }
    ~Session() { explicit_bzero(this, sizeof *this); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
};

}  // namespace

void copy_padded(unsigned char *out, const unsigned char *plain, size_t length) {
    const size_t pad = pad_of(length);
    if (length != 0) std::memcpy(out, plain, length);
    std::memset(out + length, static_cast<int>(pad), pad);
}

void encipher_whole(const unsigned char *in, unsigned char *out, size_t length) {
    Session session;
    aes_cbc_encrypt(&session.context, session.iv, in, out, static_cast<unsigned int>(length));
}

void decipher_whole(const unsigned char *in, unsigned char *out, size_t length) {
    Session session;
    aes_cbc_decrypt(&session.context, session.iv, in, out, static_cast<unsigned int>(length));
}

int strip_pad(unsigned char *plain, size_t length) {
    if (length == 0) return 0;
    const size_t pad = plain[length - 1];
    const size_t zeroed = pad < length ? pad : length;
    std::memset(plain + length - zeroed, 0, zeroed);
    return static_cast<int>(length) - static_cast<int>(pad);
}

}  // namespace ap::aes

int aes_cbc128_encrypt(const unsigned char *in, int length, unsigned char *out) {
    if (length < 0 || (in == nullptr && length > 0) || out == nullptr) return -1;
    const auto plain_length = static_cast<size_t>(length);
    const size_t cipher_length = plain_length + ap::aes::pad_of(plain_length);
    ap::aes::SecretBlock padded(cipher_length);
    if (!padded) {
        AP_ERROR("prod", "malloc failed");
        return -1;
    }
    ap::aes::copy_padded(padded.get(), in, plain_length);
    ap::aes::encipher_whole(padded.get(), out, cipher_length);
    return static_cast<int>(cipher_length);
}

// Bytes behind the last whole block cannot be deciphered and come out as zeros, which announce no pad.
int aes_cbc128_decrypt(const unsigned char *in, int length, unsigned char *out) {
    if (length < 1 || in == nullptr || out == nullptr) return 0;
    const auto cipher_length = static_cast<size_t>(length);
    const size_t rest = cipher_length % block_size;
    ap::aes::decipher_whole(in, out, cipher_length);
    std::memset(out + cipher_length - rest, 0, rest);
    return ap::aes::strip_pad(out, cipher_length);
}
