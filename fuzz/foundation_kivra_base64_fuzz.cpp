// foundation_kivra_base64_fuzz.cpp: any text decodes into just the room that was counted, and what it decodes to comes
// back from its own encoding.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "apsupport/foundation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), std::min<size_t>(size, 4096));
    const int count = kivra_base64_decode(text.c_str(), nullptr, 0);
    if (count < 0) return 0;
    const auto length = static_cast<size_t>(count);
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[length]), again(new unsigned char[length]);
    if (count > 0 && kivra_base64_decode(text.c_str(), bytes.get(), count - 1) != -1) std::abort();
    if (kivra_base64_decode(text.c_str(), bytes.get(), count) != count) return 0;  // bits were left over

    std::vector<char> encoded((length + 2) / 3 * 4 + 1);
    if (kivra_base64_encode(bytes.get(), count, encoded.data(), static_cast<int>(encoded.size()) - 1) != -1)
        std::abort();
    kivra_base64_encode(bytes.get(), count, encoded.data(), static_cast<int>(encoded.size()));
    if (kivra_base64_decode(encoded.data(), again.get(), count) != count) std::abort();
    if (std::memcmp(bytes.get(), again.get(), length) != 0) std::abort();
    return 0;
}
