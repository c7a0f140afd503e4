// foundation_prod_base64_fuzz.cpp: any text decodes within its room, and any text comes back from its own encoding.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "apsupport/foundation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const int room = data[0];
    const std::string bytes(reinterpret_cast<const char *>(data) + 1, std::min<size_t>(size - 1, 4096));
    const std::unique_ptr<char[]> narrow(new char[static_cast<size_t>(room)]);
    prod_decode64(narrow.get(), bytes.c_str(), room);

    const std::string text = bytes.substr(0, bytes.find('\0'));
    const size_t encoded_size = (text.size() + 2) / 3 * 4 + 1;
    const std::unique_ptr<char[]> encoded(new char[encoded_size]), decoded(new char[text.size() + 1]);
    if (prod_encode64(encoded.get(), text.c_str(), static_cast<int>(encoded_size)) != 0) std::abort();
    if (std::strlen(encoded.get()) != encoded_size - 1) std::abort();
    if (prod_decode64(decoded.get(), encoded.get(), static_cast<int>(text.size()) + 1) != 0) std::abort();
    if (text != decoded.get()) std::abort();
    return 0;
}
