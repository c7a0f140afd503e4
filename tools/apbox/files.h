// files.h: descriptors, small files and copies of folders; failures are thrown as `Failure`.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace box {

namespace fs = std::filesystem;

// Owns a descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(other.take()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    int take() { return std::exchange(fd_, -1); }
    void reset();

private:
    int fd_;
};

Descriptor open_file(const fs::path &path, int flags, mode_t mode = 0644);

std::string read_file(const fs::path &path);  // empty when it cannot be read
std::string read_all(int fd);                 // from the start of a file to its end; throws when a read fails
void write_file(const fs::path &path, std::string_view text, mode_t mode = 0644);
void write_all(int fd, std::string_view bytes, const std::string &what);

// Copies a file's bytes and mode, replacing what is there.
void place_file(const fs::path &from, const fs::path &to);

// Copies what lies below `from` (folders, files, symbolic links) over `to`; replaces single files, keeps the rest.
void copy_tree(const fs::path &from, const fs::path &to);

// Makes a symbolic link, replacing what is there.
void link_to(const fs::path &target, const fs::path &link);

void make_folder(const fs::path &path, mode_t mode = 0755);

}  // namespace box
