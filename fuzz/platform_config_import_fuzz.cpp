// platform_config_import_fuzz.cpp: reads any bytes as a configuration file. What is taken in must be what SetValue
// would take, must come back unchanged from the lines and from the image that it is written to, and every line that
// says something must be taken in or named.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/owned.h"
#include "platform/host/config_text.h"

using namespace ap::host;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > size_t{64} << 10) return 0;
    const ap::HeapPtr<char> exact(static_cast<char *>(std::malloc(size)));
    if (size != 0) std::memcpy(exact.get(), data, size);
    const std::string_view text(exact.get(), size);

    const ParsedText parsed = parse_config_text(text);
    ImageWriter writer(0);
    for (const auto &[key, value] : parsed.entries) {
        if (refusal_of(key, value) != nullptr) std::abort();
        writer.add(key, value);
    }
    const std::string image = writer.take();
    ImageCheck check;
    check.add(std::string_view(image).substr(0, size % image.size()));
    check.add(std::string_view(image).substr(size % image.size()));
    const ParsedText again = parse_config_text(image);
    if (!check.is_whole() || again.entries != parsed.entries || !again.bad_lines.empty()) std::abort();

    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    if (parsed.entries.size() + parsed.bad_lines.size() > lines) std::abort();
    if (!parsed.bad_lines.empty() && parsed.bad_lines.back().number > lines) std::abort();
    return 0;
}
