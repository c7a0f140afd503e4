// foundation_decipher_fuzz.cpp: deciphering any bytes stays within them and obeys the pad, and enciphered bytes come
// back.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "apsupport/foundation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const size_t length = std::min<size_t>(size, 4096), padded = length + 16 - length % 16;
    const std::unique_ptr<unsigned char[]> in(new unsigned char[length]), out(new unsigned char[length]);
    std::memcpy(in.get(), data, length);
    const int result = aes_cbc128_decrypt(in.get(), static_cast<int>(length), out.get());
    const int pad = static_cast<int>(length) - result;
    if (pad < 0 || pad > 255) std::abort();
    for (size_t i = 0; i < std::min(length, static_cast<size_t>(pad)); ++i) {
        if (out[length - 1 - i] != 0) std::abort();
    }

    const std::unique_ptr<unsigned char[]> cipher(new unsigned char[padded]), back(new unsigned char[padded]);
    if (aes_cbc128_encrypt(in.get(), static_cast<int>(length), cipher.get()) != static_cast<int>(padded)) std::abort();
    const int plain = aes_cbc128_decrypt(cipher.get(), static_cast<int>(padded), back.get());
    if (plain != static_cast<int>(length) || std::memcmp(back.get(), in.get(), length) != 0) std::abort();
    return 0;
}
