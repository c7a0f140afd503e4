// upgrade_partition_table_fuzz.cpp: any text in the place of "/proc/mtd". The whole flash's size and the firmware
// partition's name must be what a plain second reading of the lines says.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <strings.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/upgrade.h"
#include "fuzz/support/quiet.h"

namespace {

std::string table;  // the file in its place
int root = 0;

FILE *real_fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen64"));
    return real(path, mode);
}

// As fgets cuts them; a NUL ends a piece early for those who read it as text.
std::vector<std::string> pieces_of(const std::string &text) {
    std::vector<std::string> pieces;
    for (size_t at = 0; at < text.size();) {
        const size_t feed = text.find('\n', at);
        const size_t length = std::min<size_t>(feed == std::string::npos ? text.size() - at : feed + 1 - at, 127);
        pieces.push_back(text.substr(at, length).c_str());
        at += length;
    }
    return pieces;
}

// The size of the first partition whose name, without its last character, begins "ALL".
int plain_size(const std::vector<std::string> &pieces) {
    constexpr char blanks[] = " \t\n\v\f\r";
    for (const std::string &piece : pieces) {
        const char *at = piece.c_str() + std::strspn(piece.c_str(), blanks);
        at += std::strcspn(at, blanks);
        at += std::strspn(at, blanks);
        const size_t digits = std::min<size_t>(std::strspn(at, "0123456789abcdefABCDEF"), 8);
        const std::string number(at, digits);
        at += digits;
        at += std::strspn(at, blanks);
        at += std::strcspn(at, blanks);
        at += std::strspn(at, blanks);
        if (number.empty() || *at != '"') continue;
        at += 1 + std::strspn(at + 1, blanks);
        const std::string name(at, std::strcspn(at, blanks));
        if (name.empty() || strncasecmp(name.c_str(), "ALL", name.size() - 1) != 0) continue;
        return static_cast<int>(std::strtoul(number.c_str(), nullptr, 16));
    }
    return 0;
}

std::string plain_name(const std::vector<std::string> &pieces) {
    for (size_t i = 1; i < pieces.size(); ++i) {
        const size_t quote = pieces[i].find('"');
        if (quote == 0 || quote == std::string::npos) continue;
        std::string name = pieces[i].substr(quote + 1, pieces[i].find('"', quote + 1) - quote - 1);
        if (name == "image" || name == "firmware") return name;
    }
    return "default";
}

}  // namespace

// The library's ways to the table and to the root's link.
extern "C" FILE *fopen(const char *path, const char *mode) {
    return real_fopen(std::strcmp(path, "/proc/mtd") == 0 ? table.c_str() : path, mode);
}
extern "C" FILE *popen(const char *, const char *) { return real_fopen(table.c_str(), "r"); }
extern "C" int pclose(FILE *stream) { return std::fclose(stream); }
extern "C" ssize_t readlink(const char *path, char *out, size_t size) noexcept {
    if (std::strcmp(path, "/dev/root") != 0) return syscall(SYS_readlinkat, AT_FDCWD, path, out, size);
    return std::snprintf(out, size, "mtdblock%d", root);
}
extern "C" int GetValue(const char *, char *) { return 0; }
extern "C" int doSystemCmd(const char *, ...) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 20000) return 0;
    root = data[0];
    const std::vector<uint8_t> text(data + 1, data + size);
    table = fuzz::quiet_file("table", text);
    const auto pieces = pieces_of(std::string(text.begin(), text.end()));

    if (get_flash_size_ap() != plain_size(pieces)) std::abort();
    if (plain_name(pieces) != get_fw_mtd_name()) std::abort();
    if (check_mtd_size_ap(9, nullptr, 64) != 1) std::abort();
    flash_upgradefw_ap(nullptr, 0, 0, FW_TYPE_KERNEL_IMAGE);
    return 0;
}
