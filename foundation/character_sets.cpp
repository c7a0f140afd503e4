// character_sets.cpp: texts between GB2312 and UTF-8, through the platform's converter.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/owned.h"

namespace ap {

namespace {

constexpr int code_format_utf8 = 2;

// The platform's name of a character set; null for one that it does not know.
const char *target_of(const char *charset) {
    if (std::strcmp(charset, "gb2312") == 0) return "gb2312";
    if (std::strcmp(charset, "utf8") == 0 || std::strcmp(charset, "utf-8") == 0) return "utf8";
    return nullptr;
}

// No character of either set takes more than three times its bytes in the other.
HeapPtr<char> convert(const char *text, const char *target) {
    const size_t length = std::strlen(text);
    if (length >= UINT32_MAX / 3) return nullptr;
    const size_t size = 3 * length + 1;
    HeapPtr<char> converted(static_cast<char *>(std::malloc(size)));
    if (!converted) return nullptr;
    converted.get()[0] = '\0';
    if (system_convert_code_format(text, target, converted.get(), static_cast<unsigned int>(size)) != 0) return nullptr;
    return converted;
}

}  // namespace

}  // namespace ap

char *encode_chinese(const char *charset, const char *text) {
    const char *target = charset == nullptr || text == nullptr ? nullptr : ap::target_of(charset);
    ap::HeapPtr<char> converted = target == nullptr ? nullptr : ap::convert(text, target);
    if (!converted) AP_ERROR("prod", "Failed to encode chinese string.");
    return converted.release();
}

char *encode_str_to_utf8(const char *text) {
    if (text == nullptr) return nullptr;
    if (system_get_code_format(text) != ap::code_format_utf8) return encode_chinese("utf8", text);
    return strdup(text);
}

int get_gb2312([[maybe_unused]] const char *text) { return 0; }
