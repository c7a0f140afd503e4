// files.cpp: whole files read into memory, sizes, empty files created, and bytes written over a file's start.
//
// What goes wrong is logged for module "prod": a file that is missing or is no file is worth a level-3 line when it is
// read whole, everything else an error line.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/text.h"

int get_file_content(const char *path, char **text, size_t *size) {
    if (path == nullptr || text == nullptr) return 0;
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return AP_DEBUG(3, "prod", "Failed(%d) to stat file %s, %s.", errno, path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) return AP_DEBUG(3, "prod", "%s is not a file.", path);
    const ap::UniqueFile file = ap::open_file(path, "rbe");
    if (!file) return AP_ERROR("prod", "Failed(%d) to fopen %s, %s.", errno, path, std::strerror(errno));
    const auto file_size = static_cast<uint64_t>(status.st_size);
    const auto length = static_cast<size_t>(file_size);
    ap::HeapPtr<char> content(file_size < SIZE_MAX ? static_cast<char *>(std::malloc(length + 1)) : nullptr);
    if (!content) return AP_ERROR("prod", "Out of memory.");

    const size_t got = std::fread(content.get(), 1, length, file.get());
    if (got < length) AP_DEBUG(3, "prod", "fread %s %d!=1", path, 0);
    std::memset(content.get() + got, 0, length + 1 - got);
    *text = content.release();
    if (size != nullptr) *size = length;
    return 1;
}

int get_file_size(const char *path, size_t *size) {
    if (path == nullptr) return 0;
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return AP_ERROR("prod", "Failed(%d) to stat file '%s', %s.", errno, path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) return AP_ERROR("prod", "'%s' is not a file.", path);
    if (size != nullptr) *size = static_cast<size_t>(status.st_size);
    return 1;
}

int touch_file(const char *path) {
    ap::UniqueFd file = ap::open_fd(path, O_RDWR | O_CREAT);
    if (!file) return AP_ERROR("prod", "Failed(%d) to open %s, %s.", errno, ap::printable(path), std::strerror(errno));
    return close(file.take());
}

// An existing longer file keeps what stands behind the new bytes.
int write_file(const char *path, const void *data, size_t length) {
    if (path == nullptr || data == nullptr || length == 0) return 0;
    const ap::UniqueFd file = ap::open_fd(path, O_WRONLY | O_CREAT);
    if (!file) return AP_ERROR("prod", "Failed(%d) to open %s, %s.", errno, path, std::strerror(errno));
    if (!ap::write_full(file.get(), data, length)) {
        return AP_ERROR("prod", "Failed(%d) to write %s, %s.", errno, path, std::strerror(errno));
    }
    return 1;
}
