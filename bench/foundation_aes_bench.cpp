// foundation_aes_bench.cpp: AES-128 in CBC mode, against the same chaining over Mbed TLS's portable block functions.
// OpenSSL, which uses the processor's own AES where it has it, stands beside them as the limit.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <mbedtls/aes.h>
#include <openssl/evp.h>
#include <vector>

#include "apsupport/foundation.h"
#include "bench/support/compare.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr unsigned char key[] = "0123456789abcdef", first_iv[] = "fedcba9876543210";

struct Ours {
    aes_context context;
    Ours() { aes_set_key(&context, key, 128); }
    void encrypt(unsigned char *iv, const Bytes &in, Bytes &out) {
        aes_cbc_encrypt(&context, iv, in.data(), out.data(), static_cast<unsigned int>(in.size()));
    }
    void decrypt(unsigned char *iv, const Bytes &in, Bytes &out) {
        aes_cbc_decrypt(&context, iv, in.data(), out.data(), static_cast<unsigned int>(in.size()));
    }
};

// mbedtls_aes_crypt_cbc would use the processor's AES.
struct MbedTls {
    mbedtls_aes_context encrypt_context, decrypt_context;
    MbedTls() {
        mbedtls_aes_setkey_enc(&encrypt_context, key, 128);
        mbedtls_aes_setkey_dec(&decrypt_context, key, 128);
    }
    static void add(unsigned char *block, const unsigned char *other) {
        uint64_t a[2], b[2];
        std::memcpy(a, block, 16), std::memcpy(b, other, 16);
        a[0] ^= b[0], a[1] ^= b[1];
        std::memcpy(block, a, 16);
    }
    void encrypt(unsigned char *iv, const Bytes &in, Bytes &out) {
        for (size_t at = 0; at < in.size(); at += 16) {
            add(iv, &in[at]);
            mbedtls_internal_aes_encrypt(&encrypt_context, iv, iv);
            std::memcpy(&out[at], iv, 16);
        }
    }
    void decrypt(unsigned char *iv, const Bytes &in, Bytes &out) {
        for (size_t at = 0; at < in.size(); at += 16) {
            mbedtls_internal_aes_decrypt(&decrypt_context, &in[at], &out[at]);
            add(&out[at], iv);
            std::memcpy(iv, &in[at], 16);
        }
    }
};

struct OpenSsl {
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    ~OpenSsl() { EVP_CIPHER_CTX_free(context); }
    void run(unsigned char *iv, const Bytes &in, Bytes &out, int encrypts) {
        int length = 0;
        EVP_CipherInit_ex(context, EVP_aes_128_cbc(), nullptr, key, iv, encrypts);
        EVP_CIPHER_CTX_set_padding(context, 0);
        EVP_CipherUpdate(context, out.data(), &length, in.data(), static_cast<int>(in.size()));
    }
    void encrypt(unsigned char *iv, const Bytes &in, Bytes &out) { run(iv, in, out, 1); }
    void decrypt(unsigned char *iv, const Bytes &in, Bytes &out) { run(iv, in, out, 0); }
};

Bytes sample(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 37 + (i >> 8));
    return bytes;
}

template <typename Cipher, auto run> void cipher_blocks(benchmark::State &state) {
    Cipher cipher;
    const Bytes in = sample(static_cast<size_t>(state.range(0)));
    Bytes out(in.size());
    for (auto _ : state) {
        unsigned char iv[16];
        std::copy_n(first_iv, 16, iv);
        (cipher.*run)(iv, in, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

constexpr int mebibyte = 1 << 20;
BENCHMARK(cipher_blocks<Ours, &Ours::encrypt>)->Name("Encrypt")->Arg(16)->Arg(4096)->Arg(mebibyte);
BENCHMARK(cipher_blocks<MbedTls, &MbedTls::encrypt>)->Name("MbedTlsEncrypt")->Arg(16)->Arg(4096)->Arg(mebibyte);
BENCHMARK(cipher_blocks<OpenSsl, &OpenSsl::encrypt>)->Name("OpenSslEncrypt")->Arg(mebibyte);
BENCHMARK(cipher_blocks<Ours, &Ours::decrypt>)->Name("Decrypt")->Arg(16)->Arg(4096)->Arg(mebibyte);
BENCHMARK(cipher_blocks<MbedTls, &MbedTls::decrypt>)->Name("MbedTlsDecrypt")->Arg(16)->Arg(4096)->Arg(mebibyte);
BENCHMARK(cipher_blocks<OpenSsl, &OpenSsl::decrypt>)->Name("OpenSslDecrypt")->Arg(mebibyte);

// All three must do the same work.
template <typename Cipher> Bytes there_and_back() {
    Cipher cipher;
    Bytes in = sample(4096), out(in.size()), back(in.size());
    unsigned char iv[2][16];
    for (auto &each : iv) std::copy_n(first_iv, 16, each);
    cipher.encrypt(iv[0], in, out);
    cipher.decrypt(iv[1], out, back);
    return back == in ? out : Bytes();
}

}  // namespace

int main(int argc, char **argv) {
    const Bytes ours = there_and_back<Ours>();
    if (ours.empty() || ours != there_and_back<MbedTls>() || ours != there_and_back<OpenSsl>()) {
        return std::fputs("the ciphers disagree\n", stderr), 1;
    }
    return bench::run_and_compare(
        argc, argv,
        {{"AES-CBC encipher 1 MiB : Mbed TLS portable", "Encrypt/1048576", "MbedTlsEncrypt/1048576", 1.0},
         {"AES-CBC decipher 1 MiB : Mbed TLS portable", "Decrypt/1048576", "MbedTlsDecrypt/1048576", 1.0},
         {"AES-CBC encipher 1 MiB : OpenSSL, the limit", "Encrypt/1048576", "OpenSslEncrypt/1048576", 0},
         {"AES-CBC decipher 1 MiB : OpenSSL, the limit", "Decrypt/1048576", "OpenSslDecrypt/1048576", 0}});
}
