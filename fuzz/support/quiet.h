// quiet.h: what fuzz targets share: files for the library to read, and silence.
#pragma once

#include <cstdint>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "foundation/file_io.h"

namespace fuzz {

// The library prints on standard output; libFuzzer reports on standard error.
inline void be_quiet() {
    static const bool quiet = dup2(ap::open_fd("/dev/null", O_WRONLY).get(), STDOUT_FILENO) >= 0;
    (void)quiet;
}

// Puts the bytes into a file of this process; its path.
inline std::string quiet_file(const char *name, const std::vector<uint8_t> &bytes) {
    be_quiet();
    std::string path = "/tmp/fuzz-" + std::string(name) + "-" + std::to_string(getpid());
    const ap::UniqueFd file = ap::open_fd(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    ap::write_full(file.get(), bytes.data(), bytes.size());
    return path;
}

inline std::vector<uint8_t> content_of(const std::string &path) {
    const ap::UniqueFd file = ap::open_fd(path.c_str(), O_RDONLY);
    std::vector<uint8_t> bytes(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)));
    lseek(file.get(), 0, SEEK_SET);
    ap::read_full(file.get(), bytes.data(), bytes.size());
    return bytes;
}

}  // namespace fuzz
