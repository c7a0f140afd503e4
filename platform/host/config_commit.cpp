// config_commit.cpp: the committed copy, written so that a power cut, a full disk or a flipped bit leaves the old or
// the new set, never a mixture or nothing.
//
// The order, each step checked: take the commit lock; read a snapshot under it, so that a later commit never writes an
// earlier state; write the image to "next" and sync it; link the committed copy as "before"; rename "next" to the
// committed copy; sync the folder. A damaged committed copy is not linked, since the one before it is then the only
// good one. A committed copy that already says the same is not written again: flash wears out.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "applatform/commands.h"
#include "foundation/file_io.h"
#include "platform/host/process_lock.h"
#include "platform/host/safe_file.h"
#include "platform/host/working_set.h"

namespace ap::host {

namespace {

constexpr int level_error = 2;

bool log_failure(const char *what, const char *path) {
    log_debug_print(__func__, __LINE__, level_error, "cfm", "%s %s: %s", what, path, std::strerror(errno));
    return false;
}

size_t length_of(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 ? static_cast<size_t>(status.st_size) : 0;
}

bool snapshot(WorkingSet &set, std::string &image) {
    constexpr size_t room_to_grow = 4096;
    ImageWriter writer(std::min(length_of(set.files().committed) + room_to_grow, largest_file));
    if (!set.visit([&](std::string_view key, std::string_view value) { writer.add(key, value); })) return false;
    image = writer.take();
    errno = EFBIG;
    return image.size() <= largest_file || log_failure("cannot write", set.files().next);
}

enum class Committed { unusable, older, same };

// Compares the committed copy with the new image, in pieces.
Committed state_of(const char *committed, std::string_view image) {
    const ap::UniqueFd file = ap::open_fd(committed, O_RDONLY);
    if (!file) return Committed::unusable;
    ImageCheck check;
    bool is_same = true;
    char piece[16 * 1024];
    ssize_t length;
    while ((length = ap::read_full(file.get(), piece, sizeof piece)) > 0) {
        const std::string_view text(piece, static_cast<size_t>(length));
        check.add(text);
        is_same = is_same && image.starts_with(text);
        image.remove_prefix(std::min(text.size(), image.size()));
    }
    if (length < 0 || !check.is_whole()) return Committed::unusable;
    return is_same && image.empty() ? Committed::same : Committed::older;
}

// A file system without hard links keeps no copy before; its commits are as safe without it.
bool keep_copy_before(const StoreFiles &files) {
    if (unlink(files.before) != 0 && errno != ENOENT) return false;
    return link(files.committed, files.before) == 0 || errno == EPERM || errno == EOPNOTSUPP;
}

bool replace_committed(const StoreFiles &files, bool keep_before, const std::string &image) {
    if (!write_synced_file(files.next, image)) return log_failure("cannot write", files.next);
    if (keep_before && !keep_copy_before(files)) return log_failure("cannot keep", files.before);
    return std::rename(files.next, files.committed) == 0 || log_failure("cannot replace", files.committed);
}

}  // namespace

bool WorkingSet::commit() {
    if (opened() == nullptr) return false;
    const ProcessLock lock(commit_mutex_, files_.commit_lock);
    if (!lock) return log_failure("cannot lock", files_.commit_lock);

    std::string image;
    if (!snapshot(*this, image)) return false;
    const Committed state = state_of(files_.committed, image);
    if (state != Committed::same && !replace_committed(files_, state == Committed::older, image)) {
        unlink(files_.next);
        return false;
    }
    return sync_folder_of(files_.committed) || log_failure("cannot sync the folder of", files_.committed);
}

}  // namespace ap::host
