// aes_file.cpp: enciphers and deciphers a whole file in place, through a shared mapping, with the fixed key.
//
// Enciphering lengthens the file by its pad; when that fails later on, the file gets its old length back. Deciphering
// leaves the length: the plain text is followed by zeros, and the result says where it ends. A step that fails is
// logged in the name of the exported function.

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "foundation/aes_buffer.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/text.h"

namespace ap::aes {

namespace {

constexpr off_t longest_file = INT_MAX;  // what a result can tell

void log_failure(const char *function, int line, const char *format) {
    prod_debug(function, line, error_level, "prod", format, errno, std::strerror(errno));
}

UniqueFd open_measured(const char *function, const char *path, off_t &length) {
    UniqueFd file = open_fd(path, O_RDWR);
    if (!file) {
        prod_debug(function, __LINE__, error_level, "prod", "Failed(%d) to open file: %s, %s.", errno, printable(path),
                   std::strerror(errno));
        return file;
    }
    struct stat status = {};
    if (fstat(file.get(), &status) != 0) {
        log_failure(function, __LINE__, "Failed(%d) to fstat failed, %s.");
        return UniqueFd();
    }
    length = status.st_size;
    return file;
}

bool set_length(int fd, off_t length) {
    if (length > longest_file) return errno = EFBIG, false;
    return ftruncate(fd, length) == 0;
}

// A full disk would otherwise show as a fault in the mapping.
bool take_blocks(int fd, off_t length) {
    return fallocate(fd, 0, 0, length) == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

bool lengthen(int fd, off_t from, off_t to) {
    if (!set_length(fd, to)) return false;
    if (take_blocks(fd, to)) return true;
    const KeepErrno keep;
    set_length(fd, from);
    return false;
}

// A file mapped whole, shared and writable, and a working copy of it. Nothing is changed when either cannot be had.
class Workspace {
public:
    Workspace(const char *function, int fd, off_t length)
        : length_(static_cast<size_t>(length)), map_(map(fd, length)), copy_(map_ != nullptr ? length_ : 0) {
        if (map_ == nullptr) {
            log_failure(function, __LINE__, "Failed(%d) to mmap failed, %s.");
        } else if (!copy_) {
            prod_debug(function, __LINE__, error_level, "prod", "malloc failed");
        }
    }
    ~Workspace() {
        if (map_ != nullptr) munmap(map_, length_);
    }
    Workspace(const Workspace &) = delete;
    Workspace &operator=(const Workspace &) = delete;

    explicit operator bool() const { return map_ != nullptr && copy_; }
    unsigned char *file() { return map_; }
    unsigned char *copy() { return copy_.get(); }
    size_t length() const { return length_; }

private:
    static unsigned char *map(int fd, off_t length) {
        if (length > longest_file) return errno = EFBIG, nullptr;
        void *bytes = mmap(nullptr, static_cast<size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        return bytes == MAP_FAILED ? nullptr : static_cast<unsigned char *>(bytes);
    }

    size_t length_;
    unsigned char *map_;
    SecretBlock copy_;
};

// False when the file still holds what it held.
bool encipher_in_place(const char *function, int fd, off_t plain_length, off_t cipher_length) {
    Workspace work(function, fd, cipher_length);
    if (!work) return false;
    copy_padded(work.copy(), work.file(), static_cast<size_t>(plain_length));
    std::memset(work.file(), 0, work.length());
    encipher_whole(work.copy(), work.file(), work.length());
    std::printf("aes encrypted: plain_len=%lu, cipher_len:%lu\n", static_cast<unsigned long>(plain_length),
                static_cast<unsigned long>(cipher_length));
    return true;
}

}  // namespace

}  // namespace ap::aes

int aes_cbc128_encrypt_file(const char *path) {
    off_t plain_length = 0;
    const ap::UniqueFd file = ap::aes::open_measured(__func__, path, plain_length);
    if (!file) return 0;
    const off_t cipher_length = plain_length + 16 - plain_length % 16;
    if (!ap::aes::lengthen(file.get(), plain_length, cipher_length)) {
        return AP_ERROR("prod", "Failed(%d) to ftruncate error, %s.", errno, std::strerror(errno));
    }
    if (!ap::aes::encipher_in_place(__func__, file.get(), plain_length, cipher_length)) {
        ap::aes::set_length(file.get(), plain_length);
        return 0;
    }
    return static_cast<int>(cipher_length);
}

int aes_cbc128_decrypt_file(const char *path) {
    off_t length = 0;
    const ap::UniqueFd file = ap::aes::open_measured(__func__, path, length);
    if (!file) return 0;
    ap::aes::Workspace work(__func__, file.get(), length);
    if (!work) return 0;
    std::memcpy(work.copy(), work.file(), work.length());
    std::memset(work.file(), 0, work.length());
    ap::aes::decipher_whole(work.copy(), work.file(), work.length());
    return ap::aes::strip_pad(work.file(), work.length());
}
