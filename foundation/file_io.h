// file_io.h: files opened close-on-exec, calls repeated when a signal interrupts them, and walking a text file by
// lines.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include "foundation/owned.h"

namespace ap {

template <typename Call> auto retry_interrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

// No path gives no file, with EFAULT.
inline UniqueFd open_fd(const char *path, int flags, mode_t mode = 0644) {
    if (path == nullptr) return errno = EFAULT, UniqueFd();
    return UniqueFd(retry_interrupted([&] { return open(path, flags | O_CLOEXEC, mode); }));
}
inline UniqueFile open_file(const char *path, const char *mode = "re") { return UniqueFile(std::fopen(path, mode)); }

// Reads until `size` bytes, the end of the file or an error; the bytes read, or -1 when the first read fails.
inline ssize_t read_full(int fd, void *buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            retry_interrupted([&] { return read(fd, static_cast<char *>(buffer) + done, size - done); });
        if (got < 0 && done == 0) return -1;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

// Writes all `size` bytes; false, with errno set, when it could not.
inline bool write_full(int fd, const void *data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t put =
            retry_interrupted([&] { return write(fd, static_cast<const char *>(data) + done, size - done); });
        if (put < 0) return false;
        if (put == 0) return errno = EIO, false;
        done += static_cast<size_t>(put);
    }
    return true;
}

// Walks a text file in pieces of at most Size - 1 bytes, as `fgets` cuts them: a longer line comes in several pieces.
// The piece keeps its line feed.
template <size_t Size> class LineReader {
public:
    explicit LineReader(const char *path) : file_(open_file(path)) {}

    explicit operator bool() const { return file_ != nullptr; }  // the file could be opened
    bool next() { return file_ && std::fgets(line_, Size, file_.get()) != nullptr; }
    char *line() { return line_; }
    const char *line() const { return line_; }

private:
    UniqueFile file_;
    char line_[Size] = {};
};

}  // namespace ap
