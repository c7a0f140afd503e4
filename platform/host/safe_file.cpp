// safe_file.cpp: the steps by which a file is replaced so that a power cut leaves the old or the new one.

#include "platform/host/safe_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "foundation/file_io.h"

namespace ap::host {

namespace {

bool read_content(const char *path, std::string &content) {
    const ap::UniqueFd file = ap::open_fd(path, O_RDONLY);
    if (!file) return false;
    struct stat status;
    if (fstat(file.get(), &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) return errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL, false;
    if (status.st_size > static_cast<off_t>(largest_file)) return errno = EFBIG, false;
    content.resize(static_cast<size_t>(status.st_size));
    const ssize_t length = ap::read_full(file.get(), content.data(), content.size());
    if (length < 0) return false;
    content.resize(static_cast<size_t>(length));
    return true;
}

bool sync_and_close(ap::UniqueFd file) {
    if (ap::retry_interrupted([&] { return fsync(file.get()); }) != 0) return false;
    return close(file.take()) == 0;
}

}  // namespace

bool read_whole_file(const char *path, std::string &content, std::string &error) {
    if (read_content(path, content)) return true;
    error = std::strerror(errno);
    return false;
}

bool write_synced_file(const char *path, std::string_view content) {
    ap::UniqueFd file = ap::open_fd(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (!file || !ap::write_full(file.get(), content.data(), content.size())) return false;
    return sync_and_close(std::move(file));
}

bool sync_folder_of(const std::string &path) {
    ap::UniqueFd folder = ap::open_fd(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY);
    return folder && sync_and_close(std::move(folder));
}

bool replace_file(const std::string &path, const std::string &temporary, std::string_view content) {
    if (write_synced_file(temporary.c_str(), content) && std::rename(temporary.c_str(), path.c_str()) == 0)
        return sync_folder_of(path);
    const ap::KeepErrno keep;
    unlink(temporary.c_str());
    return false;
}

}  // namespace ap::host
