// files.cpp: see files.h. Reads and writes go on after interruptions and short counts.

#include "tools/apbox/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/apbox/failure.h"

namespace box {

long must(long result, const std::string &what) {
    if (result < 0) throw Failure(exit_failed, what + ": " + std::strerror(errno));
    return result;
}

void Descriptor::reset() {
    const int saved = errno;
    if (fd_ >= 0) close(take());
    errno = saved;
}

Descriptor open_file(const fs::path &path, int flags, mode_t mode) {
    return Descriptor(static_cast<int>(must(open(path.c_str(), flags | O_CLOEXEC, mode), path.string())));
}

std::string read_all(int fd) {
    std::string text;
    char block[65536];
    for (off_t at = 0;;) {
        const ssize_t got = pread(fd, block, sizeof block, at);
        if (got < 0 && errno == EINTR) continue;
        if (must(got, "read") == 0) return text;
        text.append(block, static_cast<size_t>(got));
        at += got;
    }
}

std::string read_file(const fs::path &path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.ok() ? read_all(file.get()) : std::string();
}

void write_all(int fd, std::string_view bytes, const std::string &what) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        bytes.remove_prefix(static_cast<size_t>(must(written, what)));
    }
}

void write_file(const fs::path &path, std::string_view text, mode_t mode) {
    const Descriptor file = open_file(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    write_all(file.get(), text, path.string());
}

void place_file(const fs::path &from, const fs::path &to) {
    const Descriptor source = open_file(from, O_RDONLY);
    struct stat info {};
    must(fstat(source.get(), &info), from.string());
    unlink(to.c_str());
    write_file(to, read_all(source.get()), info.st_mode & 07777);
}

void copy_tree(const fs::path &from, const fs::path &to) {
    make_folder(to);
    for (const auto &entry : fs::directory_iterator(from)) {
        const fs::path place = to / entry.path().filename();
        if (entry.is_symlink()) {
            link_to(fs::read_symlink(entry.path()), place);
        } else if (entry.is_directory()) {
            copy_tree(entry.path(), place);
        } else {
            place_file(entry.path(), place);
        }
    }
}

void link_to(const fs::path &target, const fs::path &link) {
    if (symlink(target.c_str(), link.c_str()) == 0) return;
    unlink(link.c_str());
    must(symlink(target.c_str(), link.c_str()), link.string());
}

void make_folder(const fs::path &path, mode_t mode) {
    if (mkdir(path.c_str(), mode) == 0) {
        must(chmod(path.c_str(), mode), path.string());
        return;
    }
    if (errno == ENOENT) {
        make_folder(path.parent_path());
        must(mkdir(path.c_str(), mode), path.string());
    } else if (errno != EEXIST) {
        must(-1, path.string());
    }
}

}  // namespace box
