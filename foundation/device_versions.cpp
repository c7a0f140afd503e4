// device_versions.cpp: versions of the firmware, of the hardware and of the policy file.
//
// "/etc/prodversion.cfg" holds the firmware's version text, with the source revision in parentheses; a line of
// "/etc/policy_bak.cfg" that contains "ver" holds the policy's version in its second ";" field.

#include <cstdio>
#include <cstring>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "foundation/config_value.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr char firmware_version_file[] = "/etc/prodversion.cfg";
constexpr char policy_file[] = "/etc/policy_bak.cfg";

}  // namespace

}  // namespace ap

int get_prod_version(char *buf, int size) {
    if (buf == nullptr || size < 1) return 0;
    char *content = nullptr;
    if (get_file_content(ap::firmware_version_file, &content, nullptr) == 0) return 0;
    const ap::HeapPtr<char> owner(content);
    ap::copy_text(buf, static_cast<size_t>(size), content);
    str_trim_right(buf, '\n');
    return 1;
}

// At least one character must stand before the parenthesis.
int get_svn_version(void) {
    const ap::UniqueFile file = ap::open_file(ap::firmware_version_file);
    int revision = 0;
    if (!file || std::fscanf(file.get(), "%*[^(](%d)", &revision) != 1) return 0;  // NOLINT(cert-err34-c)
    return revision;
}

// Only the first 15 characters of the value count.
int get_hard_version(char *buf, int size) {
    char version[16];
    ap::copy_config("sys.hwver", version);
    if (buf != nullptr && size > 0 && version[0] != '\0') ap::copy_text(buf, static_cast<size_t>(size), version);
    return 0;
}

// The size is not looked at: a field of a 256-byte line fits into 256 bytes, and the caller gives that room.
int get_policy_version(char *buf, [[maybe_unused]] int size) {
    ap::LineReader<256> lines(ap::policy_file);
    if (buf == nullptr || !lines) return 1;
    while (lines.next()) {
        if (std::strstr(lines.line(), "ver") == nullptr) continue;
        if (std::sscanf(lines.line(), "%*[^;];%255[^;]", buf) == 1) string_str_trim(buf);
        break;
    }
    return 0;
}
