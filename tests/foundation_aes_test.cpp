// foundation_aes_test.cpp: published vectors, a plain twin of the cipher, padding, and files in place.

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes from_hex(const std::string &hex) {
    Bytes bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}
std::string to_text(const Bytes &bytes) { return {bytes.begin(), bytes.end()}; }

Bytes sample(size_t length) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(i * 37 + (i >> 8));
    return bytes;
}

// AES-128 as its standard describes it, byte by byte.
class PlainAes {
public:
    explicit PlainAes(const unsigned char *key) {
        for (int i = 0, p = 1, q = 1; i < 255; ++i) {
            substitutes_[p] = static_cast<unsigned char>(q ^ turn(q, 1) ^ turn(q, 2) ^ turn(q, 3) ^ turn(q, 4) ^ 0x63);
            p = times(p, 3), q = times(q, 0xf6);
        }
        substitutes_[0] = 0x63;
        std::memcpy(keys_, key, 16);
        for (int i = 16, constant = 1; i < 176; i += 4) {
            unsigned char word[4];
            std::memcpy(word, keys_ + i - 4, 4);
            if (i % 16 == 0) {
                const unsigned char first = word[0];
                for (int j = 0; j < 4; ++j) word[j] = substitutes_[j < 3 ? word[j + 1] : first];
                word[0] ^= static_cast<unsigned char>(constant);
                constant = times(constant, 2);
            }
            for (int j = 0; j < 4; ++j) keys_[i + j] = keys_[i + j - 16] ^ word[j];
        }
    }
    void encrypt(const unsigned char *in, unsigned char *out) const {
        unsigned char state[16], moved[16];
        for (int i = 0; i < 16; ++i) state[i] = in[i] ^ keys_[i];
        for (int round = 1; round <= 10; ++round) {
            for (int i = 0; i < 16; ++i) moved[i] = substitutes_[state[(i + 4 * (i % 4)) % 16]];
            for (int i = 0; i < 16; ++i) {
                const int c = i - i % 4, mixed = times(moved[i], 2) ^ times(moved[c + (i + 1) % 4], 3) ^
                                                 moved[c + (i + 2) % 4] ^ moved[c + (i + 3) % 4];
                state[i] = static_cast<unsigned char>((round < 10 ? mixed : moved[i]) ^ keys_[16 * round + i]);
            }
        }
        std::memcpy(out, state, 16);
    }

private:
    static int turn(int byte, int by) { return (byte << by | byte >> (8 - by)) & 255; }
    static int times(int a, int b) {
        int product = 0;
        for (; b != 0; b >>= 1, a = (a << 1 ^ (a & 128 ? 0x11b : 0))) product ^= b & 1 ? a : 0;
        return product;
    }
    unsigned char substitutes_[256] = {}, keys_[176];
};

// What the buffer layer makes of a plain text, by the plain twin.
Bytes plain_cbc128(Bytes plain) {
    const PlainAes aes(reinterpret_cast<const unsigned char *>("5f3a9c1e7b2d4068"));
    const size_t pad = 16 - plain.size() % 16;
    plain.insert(plain.end(), pad, static_cast<unsigned char>(pad));
    const unsigned char *chain = reinterpret_cast<const unsigned char *>("c8e1f02b6d4a9735");
    for (size_t at = 0; at < plain.size(); at += 16) {
        for (size_t i = 0; i < 16; ++i) plain[at + i] ^= chain[i];
        aes.encrypt(&plain[at], &plain[at]);
        chain = &plain[at];
    }
    return plain;
}

constexpr char path[] = "/var/aes.file";

std::string logged_by(const std::function<void()> &action) {
    const std::string text = test::printed_by(action);
    const size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2, text.find('\n') - colon - 2);
}

}  // namespace

TEST(AesBlock, MatchesThePublishedVectors) {
    const std::string plain = "00112233445566778899aabbccddeeff",
                      key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    const std::pair<int, const char *> cases[] = {{128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                                                  {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                                                  {256, "8ea2b7ca516745bfeafc49904b496089"},
                                                  {64, "00000000000000000000000000000000"}};
    for (const auto &[bits, cipher] : cases) {
        SCOPED_TRACE(bits);
        aes_context context;
        aes_set_key(&context, from_hex(key).data(), bits);
        Bytes block = from_hex(plain);
        aes_encrypt(&context, block.data(), block.data());
        EXPECT_EQ(block, from_hex(cipher));
        aes_decrypt(&context, block.data(), block.data());
        EXPECT_EQ(block, bits == 64 ? Bytes(16) : from_hex(plain));
    }
}

TEST(AesCbc, MatchesThePublishedVectorsAndGoesOnWhereItStopped) {
    const Bytes plain = from_hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                 "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const Bytes cipher = from_hex("7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
                                  "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");
    aes_context context;
    aes_set_key(&context, from_hex("2b7e151628aed2a6abf7158809cf4f3c").data(), 128);
    const Bytes first_iv = from_hex("000102030405060708090a0b0c0d0e0f");
    for (const unsigned int cut : {0U, 16U, 48U, 64U}) {
        SCOPED_TRACE(cut);
        Bytes buffer = plain, iv = first_iv;
        aes_cbc_encrypt(&context, iv.data(), buffer.data(), buffer.data(), cut);
        aes_cbc_encrypt(&context, iv.data(), &buffer[0] + cut, &buffer[0] + cut, 64 - cut);
        EXPECT_EQ(buffer, cipher);
        iv = first_iv;
        aes_cbc_decrypt(&context, iv.data(), buffer.data(), buffer.data(), cut);
        aes_cbc_decrypt(&context, iv.data(), &buffer[0] + cut, &buffer[0] + cut,
                        64 - cut + 15);  // a rest is left alone
        EXPECT_EQ(buffer, plain);
        EXPECT_EQ(iv, Bytes(cipher.end() - 16, cipher.end()));
    }
}

TEST(AesBuffer, AgreesWithThePlainTwinForEveryShortLengthAndAlignment) {
    for (size_t length = 0; length <= 67; ++length) {
        SCOPED_TRACE(length);
        const size_t shift = length % 5;
        const Bytes plain = sample(length), expected = plain_cbc128(plain);
        Bytes in(shift, 0), out(expected.size() + shift);
        in.insert(in.end(), plain.begin(), plain.end());
        ASSERT_EQ(aes_cbc128_encrypt(in.data() + shift, static_cast<int>(length), out.data() + shift),
                  static_cast<int>(expected.size()));
        EXPECT_EQ(Bytes(out.begin() + static_cast<long>(shift), out.end()), expected);
        Bytes back(expected.size(), 0xee), padded = plain;
        padded.resize(expected.size());
        EXPECT_EQ(aes_cbc128_decrypt(out.data() + shift, static_cast<int>(expected.size()), back.data()),
                  static_cast<int>(length));
        EXPECT_EQ(back, padded);
    }
}

TEST(AesBuffer, TrustsThePadWithinTheBuffer) {
    const struct {
        const char *what;
        unsigned char last;
        int length, result;
    } cases[] = {{"no pad", 0, 32, 32},
                 {"whole buffer", 32, 32, 0},
                 {"beyond its start", 33, 32, -1},
                 {"largest", 255, 32, -223}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes plain = sample(32);
        plain[31] = c.last;
        Bytes cipher = plain_cbc128(plain), back(34, 0xee);
        EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), c.length, back.data() + 1), c.result);
        EXPECT_EQ(back[0] + back[33], 2 * 0xee);
        EXPECT_EQ(back[1], c.last < 32 ? plain[0] : 0);
    }
    Bytes cipher = plain_cbc128(sample(32)), back(17, 0xee);
    EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), 17, back.data()), 17);  // what is no whole block comes out as zeros
    EXPECT_EQ(back[15], sample(16)[15]);
    EXPECT_EQ(back[16], 0);
    EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), 0, nullptr), 0);
}

TEST(AesBuffer, FailsWithoutMemory) {
    unsigned char byte = 0;
    EXPECT_EQ(logged_by([&] { EXPECT_EQ(aes_cbc128_encrypt(&byte, INT_MAX, &byte), -1); }), "malloc failed");
    EXPECT_EQ(aes_cbc128_encrypt(&byte, -1, &byte), -1);
}

TEST(AesFile, IsEncipheredAndDecipheredInPlace) {
    const int before = test::open_descriptors();
    for (const size_t length : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{4096}, size_t{100001}}) {
        SCOPED_TRACE(length);
        const Bytes plain = sample(length), cipher = plain_cbc128(plain);
        test::write_text(path, to_text(plain));
        const std::string sizes =
            "plain_len=" + std::to_string(length) + ", cipher_len:" + std::to_string(cipher.size());
        EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(aes_cbc128_encrypt_file(path), static_cast<int>(cipher.size())); }),
                  "aes encrypted: " + sizes + "\n");
        EXPECT_TRUE(test::read_text(path) == to_text(cipher));
        EXPECT_EQ(aes_cbc128_decrypt_file(path), static_cast<int>(length));
        EXPECT_TRUE(test::read_text(path) == to_text(plain) + std::string(cipher.size() - length, '\0'));
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(AesFile, StaysAsItIsWhenAStepFails) {
    test::write_text("/var/empty", "");
    const auto decrypt = aes_cbc128_decrypt_file, encrypt = aes_cbc128_encrypt_file;
    const struct {
        const char *file;
        int (*call)(const char *);
        const char *logged;
    } cases[] = {
        {"/var/none", encrypt, "Failed(2) to open file: /var/none, No such file or directory."},
        {"/var", decrypt, "Failed(21) to open file: /var, Is a directory."},
        {nullptr, encrypt, "Failed(14) to open file: (null), Bad address."},
        {"/var/empty", decrypt, "Failed(22) to mmap failed, Invalid argument."},
        {"/dev/null", encrypt, "Failed(22) to ftruncate error, Invalid argument."},
        {"/var/huge", encrypt, "Failed(27) to ftruncate error, File too large."},
        {"/var/huge", decrypt, "Failed(27) to mmap failed, File too large."},
    };
    test::write_text("/var/huge", "");
    ASSERT_EQ(truncate("/var/huge", off_t{INT_MAX} + 1), 0);
    for (const auto &c : cases) EXPECT_EQ(logged_by([&] { EXPECT_EQ(c.call(c.file), 0); }), c.logged);
    struct stat status = {};
    stat("/var/huge", &status);
    EXPECT_EQ(status.st_size, off_t{INT_MAX} + 1);
}

TEST(AesFile, GetsItsLengthBackWhenItCannotGrow) {
    const Bytes plain = sample(100000);
    test::write_text(path, to_text(plain));
    EXPECT_EQ(logged_by([] {
                  EXPECT_EQ(test::run_in_child([] {
                                const rlimit limit{100004, 100004};
                                setrlimit(RLIMIT_FSIZE, &limit);
                                signal(SIGXFSZ, SIG_IGN);
                                EXPECT_EQ(aes_cbc128_encrypt_file(path), 0);
                            }),
                            0);
              }),
              "Failed(27) to ftruncate error, File too large.");
    EXPECT_TRUE(test::read_text(path) == to_text(plain));
}
