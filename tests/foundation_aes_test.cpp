// foundation_aes_test.cpp: published vectors, ciphers that another program made, padding, and files in place.

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

// The blocks that a longer file needs.
static int fallocate_error = 0;
extern "C" int fallocate(int, int, off_t, off_t) { return (errno = fallocate_error) == 0 ? 0 : -1; }

namespace {

using Bytes = std::vector<unsigned char>;

Bytes from_hex(const std::string &hex) {
    Bytes bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}
std::string to_text(const Bytes &bytes) { return {bytes.begin(), bytes.end()}; }

Bytes sample(int length) {
    Bytes bytes;
    for (int i = 0; i < length; ++i) bytes.push_back(static_cast<unsigned char>(i * 37 + (i >> 8)));
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
    return text.substr(text.find(": ") + 2, text.find('\n') - text.find(": ") - 2);
}

}  // namespace

TEST(AesBlock, MatchesThePublishedVectors) {
    const Bytes plain = from_hex("00112233445566778899aabbccddeeff"),
                key = from_hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    using Case = std::pair<int, const char *>;
    const Case cases[] = {{128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                          {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                          {256, "8ea2b7ca516745bfeafc49904b496089"},
                          {64, "00000000000000000000000000000000"}};
    for (const auto &[bits, cipher] : cases) {
        aes_context context;
        aes_set_key(&context, key.data(), bits);
        Bytes block = plain;
        aes_encrypt(&context, block.data(), block.data());
        EXPECT_EQ(block, from_hex(cipher)) << bits;
        aes_decrypt(&context, block.data(), block.data());
        EXPECT_EQ(block, bits == 64 ? Bytes(16) : plain) << bits;
    }
}

TEST(AesCbc, MatchesThePublishedVectorsAndGoesOnWhereItStopped) {
    const Bytes plain = from_hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                 "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710"),
                cipher = from_hex("7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
                                  "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"),
                first_iv = from_hex("000102030405060708090a0b0c0d0e0f");
    aes_context context;
    aes_set_key(&context, from_hex("2b7e151628aed2a6abf7158809cf4f3c").data(), 128);
    Bytes buffer = plain, iv = first_iv;
    aes_cbc_encrypt(&context, iv.data(), buffer.data(), buffer.data(), 16);
    aes_cbc_encrypt(&context, iv.data(), &buffer[16], &buffer[16], 48);
    EXPECT_EQ(buffer, cipher);
    iv = first_iv;
    aes_cbc_decrypt(&context, iv.data(), buffer.data(), buffer.data(), 16);
    aes_cbc_decrypt(&context, iv.data(), &buffer[16], &buffer[16], 48 + 15);  // a rest is left alone
    EXPECT_EQ(buffer, plain);
    EXPECT_EQ(iv, Bytes(cipher.end() - 16, cipher.end()));
}

// Each length also at another alignment, and with the end of the cipher that another program makes where there is one.
TEST(AesBuffer, ComesBackAtEveryPadAndGivesTheCipherOfAnotherProgram) {
    const std::pair<int, const char *> cases[] = {
        {0, "c3a4ab0baeb984e18df24db1d5156f93"},
        {1, ""},
        {15, "ec7451941eb2ccc4b632f2534d91215c"},
        {16, "9cc2215e90dc6153b2fd97aeb3fb455ea91b8c30bf857be6b3bd6848ac003e69"},
        {67, ""},
        {4096, "41c745c992d4afb3dc1c9fc34a3c6718f28dac0c6fe6184ed053b86dfb55c4bd"},
    };
    for (const auto &[length, end] : cases) {
        SCOPED_TRACE(length);
        const Bytes expected = cbc128(sample(length));
        const size_t shift = expected.size() % 5;
        Bytes plain = sample(length), in(shift), out(shift + expected.size()), back(expected.size(), 0xee);
        in.insert(in.end(), plain.begin(), plain.end());
        ASSERT_EQ(aes_cbc128_encrypt(in.data() + shift, length, out.data() + shift), std::ssize(expected));
        EXPECT_EQ(to_text(out).substr(shift), to_text(expected));
        EXPECT_TRUE(to_text(out).ends_with(to_text(from_hex(end))));
        EXPECT_EQ(aes_cbc128_decrypt(out.data() + shift, static_cast<int>(back.size()), back.data()), length);
        plain.resize(expected.size());
        EXPECT_EQ(back, plain);
    }
}

TEST(AesBuffer, TrustsThePadWithinTheBuffer) {
    const std::pair<unsigned char, int> pads[] = {{0, 32}, {32, 0}, {33, -1}, {255, -223}};
    for (const auto &[pad, result] : pads) {
        Bytes plain = sample(32);
        plain[31] = pad;
        Bytes cipher = cbc128(plain), back(34, 0xee);
        EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), 32, back.data() + 1), result);
        EXPECT_EQ(back[0] + back[33], 2 * 0xee);
        EXPECT_EQ(back[1], pad < 32 ? plain[0] : 0);
    }
    Bytes cipher = cbc128(sample(32)), back(17, 0xee);
    EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), 17, back.data()), 17);  // what is no whole block comes out as zeros
    EXPECT_EQ(back[15], sample(16)[15]);
    EXPECT_EQ(back[16], 0);
    EXPECT_EQ(aes_cbc128_decrypt(cipher.data(), 0, nullptr), 0);
    EXPECT_EQ(logged_by([&] { EXPECT_EQ(aes_cbc128_encrypt(back.data(), INT_MAX, back.data()), -1); }),
              "malloc failed");
    EXPECT_EQ(aes_cbc128_encrypt(back.data(), -1, back.data()), -1);
}

TEST(AesFile, IsEncipheredAndDecipheredInPlace) {
    const int before = test::open_descriptors();
    for (const int length : {0, 15, 16, 100001}) {
        SCOPED_TRACE(length);
        const Bytes plain = sample(length), cipher = cbc128(plain);
        test::write_text(path, to_text(plain));
        fallocate_error = length == 16 ? EOPNOTSUPP : 0;  // a file system may not know the call
        const std::string sizes =
            "plain_len=" + std::to_string(length) + ", cipher_len:" + std::to_string(cipher.size());
        EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(aes_cbc128_encrypt_file(path), std::ssize(cipher)); }),
                  "aes encrypted: " + sizes + "\n");
        EXPECT_TRUE(test::read_text(path) == to_text(cipher));
        EXPECT_EQ(aes_cbc128_decrypt_file(path), length);
        EXPECT_TRUE(test::read_text(path) == to_text(plain) + std::string(cipher.size() - plain.size(), '\0'));
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(AesFile, StaysAsItIsWhenAStepFails) {
    const int before = test::open_descriptors();
    test::write_text("/var/empty", "");
    test::write_text("/var/huge", "");
    ASSERT_EQ(truncate("/var/huge", off_t{INT_MAX} + 1), 0);
    test::write_text(path, "plain");
    fallocate_error = ENOSPC;
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
        {path, encrypt, "Failed(28) to ftruncate error, No space left on device."},
    };
    for (const auto &c : cases) EXPECT_EQ(logged_by([&] { EXPECT_EQ(c.call(c.file), 0); }), c.logged);
    struct stat status = {};
    stat("/var/huge", &status);
    EXPECT_EQ(status.st_size, off_t{INT_MAX} + 1);
    EXPECT_EQ(test::read_text(path), "plain");
    EXPECT_EQ(test::open_descriptors(), before);
}
