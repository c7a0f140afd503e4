// foundation_aes_test.cpp: published vectors, ciphers that another program made, padding, and files in place.

#include <climits>
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

// What the buffer layer makes of a plain text, by the block layer.
Bytes cbc128(Bytes plain) {
    aes_context context;
    aes_set_key(&context, reinterpret_cast<const unsigned char *>("5f3a9c1e7b2d4068"), 128);
    unsigned char iv[] = "c8e1f02b6d4a9735";
    const size_t pad = 16 - plain.size() % 16;
    plain.insert(plain.end(), pad, static_cast<unsigned char>(pad));
    aes_cbc_encrypt(&context, iv, plain.data(), plain.data(), static_cast<unsigned int>(plain.size()));
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

TEST(AesBuffer, GivesTheCipherThatAnotherProgramGives) {
    const std::pair<size_t, const char *> cases[] = {
        {0, "c3a4ab0baeb984e18df24db1d5156f93"},
        {15, "ec7451941eb2ccc4b632f2534d91215c"},
        {16, "9cc2215e90dc6153b2fd97aeb3fb455ea91b8c30bf857be6b3bd6848ac003e69"},
        {4096, "41c745c992d4afb3dc1c9fc34a3c6718f28dac0c6fe6184ed053b86dfb55c4bd"},
    };
    for (const auto &[length, end] : cases) {
        Bytes plain = sample(length), cipher(length + 16), expected = from_hex(end);
        cipher.resize(static_cast<size_t>(aes_cbc128_encrypt(plain.data(), static_cast<int>(length), cipher.data())));
        EXPECT_EQ(Bytes(cipher.end() - static_cast<long>(expected.size()), cipher.end()), expected) << length;
    }
}

TEST(AesBuffer, ComesBackForEveryShortLengthAndAlignment) {
    for (size_t length = 0; length <= 67; ++length) {
        SCOPED_TRACE(length);
        const size_t shift = length % 5;
        const Bytes plain = sample(length), expected = cbc128(plain);
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
        Bytes cipher = cbc128(plain), back(34, 0xee);
        EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), c.length, back.data() + 1), c.result);
        EXPECT_EQ(back[0] + back[33], 2 * 0xee);
        EXPECT_EQ(back[1], c.last < 32 ? plain[0] : 0);
    }
    Bytes cipher = cbc128(sample(32)), back(17, 0xee);
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
        const Bytes plain = sample(length), cipher = cbc128(plain);
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
