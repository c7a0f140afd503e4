// platform_commit_test.cpp: the promise of CommitCfm. A commit runs once to count its steps on the files of /cfg, then once
// a step with the power cut there; each state that a disk may be left in is put back, the device started anew, and its
// values must be the old or the new set.
//
// The disk is a model fed by the calls that this program defines in place of the C library's: content that was not synced
// is lost, kept in half or kept; a name that was made, linked, renamed or removed since the folder was synced may be undone,
// each without the others.

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <set>
#include <sys/syscall.h>
#include <vector>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

namespace {

using test::values_of;
using FileSet = std::map<std::string, std::string>;  // path and content

struct File {
    std::string now, synced;
};
using Folder = std::map<std::string, std::shared_ptr<File>>;

class Disk {
public:
    explicit Disk(int cut_step) : cut_(cut_step) {
        for (const auto &entry : std::filesystem::directory_iterator("/cfg")) {
            const std::string content = test::read_text(entry.path());
            durable_[entry.path()] = now_[entry.path()] = std::make_shared<File>(File{content, content});
        }
    }
    int steps() const { return steps_; }

    // One step on the files of /cfg; false once the power is cut.
    bool step() { return steps_++ < cut_; }

    void opened(int fd, const std::string &path, int flags) {
        files_.erase(fd);
        folder_fds_.erase(fd);
        if (path == "/cfg/") folder_fds_.insert(fd);
        if (!path.starts_with("/cfg/") || path == "/cfg/") return;
        if ((flags & O_CREAT) != 0 && !now_.contains(path)) {
            change([path, file = std::make_shared<File>()](Folder &folder) { folder[path] = file; });
        }
        const auto found = now_.find(path);
        if (found == now_.end()) return;
        files_[fd] = found->second;
        if ((flags & O_TRUNC) != 0) found->second->now.clear();
    }
    bool knows(int fd) const { return files_.contains(fd) || folder_fds_.contains(fd); }
    void written(int fd, const void *data, size_t size) { files_[fd]->now.append(static_cast<const char *>(data), size); }
    void synced(int fd) {
        if (folder_fds_.contains(fd)) return durable_ = now_, changes_.clear();
        files_[fd]->synced = files_[fd]->now;
    }
    void renamed(const std::string &from, const std::string &to) {
        change([from, to](Folder &folder) {
            if (!folder.contains(from)) return;
            folder[to] = folder[from];
            folder.erase(from);
        });
    }
    void linked(const std::string &from, const std::string &to) {
        change([to, file = now_[from]](Folder &folder) { folder[to] = file; });
    }
    void unlinked(const std::string &path) {
        change([path](Folder &folder) { folder.erase(path); });
    }

    // Every state that the power cut may leave.
    std::set<FileSet> states() const {
        std::set<FileSet> all;
        for (size_t kept = 0; kept < size_t{1} << changes_.size(); ++kept) {
            Folder folder = durable_;
            for (size_t i = 0; i < changes_.size(); ++i)
                if ((kept >> i & 1) != 0) changes_[i](folder);
            for (const Kept kept_content : {Kept::synced, Kept::half, Kept::all}) all.insert(content_of(folder, kept_content));
        }
        return all;
    }

private:
    void change(const std::function<void(Folder &)> &action) {
        action(now_);
        changes_.push_back(action);
    }
    enum class Kept { synced, half, all };
    static FileSet content_of(const Folder &folder, Kept kept) {
        FileSet content;
        for (const auto &[path, file] : folder) {
            const bool is_cut = kept == Kept::half && file->now != file->synced;
            content[path] = kept == Kept::synced ? file->synced : file->now.substr(0, file->now.size() / (is_cut ? 2 : 1));
        }
        return content;
    }

    const int cut_;
    int steps_ = 0;
    Folder now_, durable_;
    std::vector<std::function<void(Folder &)>> changes_;  // of names, since the folder was synced
    std::map<int, std::shared_ptr<File>> files_;
    std::set<int> folder_fds_;
};

Disk *disk = nullptr;  // while a commit runs

bool power_is_cut() { return !disk->step() && (errno = EIO, true); }

// Runs `call` and tells the model of it, unless the power is cut.
template <typename Call, typename Note> int on_disk(bool is_on_disk, Call call, Note note) {
    if (!is_on_disk || disk == nullptr) return static_cast<int>(call());
    if (power_is_cut()) return -1;
    const int result = static_cast<int>(call());
    if (result >= 0) note();
    return result;
}
bool in_cfg(const char *path) { return std::strncmp(path, "/cfg/", 5) == 0; }

}  // namespace

extern "C" {
int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned);
    va_end(arguments);
    const bool makes_a_name = in_cfg(path) && (flags & (O_CREAT | O_TRUNC)) != 0;
    const auto call = [&] { return syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode); };
    const int fd = on_disk(makes_a_name, call, [] {});
    if (disk != nullptr && fd >= 0) disk->opened(fd, path, flags);
    return fd;
}
ssize_t write(int fd, const void *data, size_t size) {
    const bool known = disk != nullptr && disk->knows(fd);
    return on_disk(known, [&] { return syscall(SYS_write, fd, data, size); }, [&] { disk->written(fd, data, size); });
}
int fsync(int fd) {
    const bool known = disk != nullptr && disk->knows(fd);
    return on_disk(known, [&] { return syscall(SYS_fsync, fd); }, [&] { disk->synced(fd); });
}
int rename(const char *from, const char *to) noexcept {
    return on_disk(in_cfg(to), [&] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0); },
                   [&] { disk->renamed(from, to); });
}
int link(const char *from, const char *to) noexcept {
    return on_disk(in_cfg(to), [&] { return syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0); },
                   [&] { disk->linked(from, to); });
}
int unlink(const char *path) noexcept {
    return on_disk(in_cfg(path), [&] { return syscall(SYS_unlinkat, AT_FDCWD, path, 0); }, [&] { disk->unlinked(path); });
}
}

namespace {

std::string set_named(const std::string &name) {
    std::string lines;
    for (int i = 100; i < 140; ++i) lines += "key" + std::to_string(i) + "=" + name + std::to_string(i) + "\n";
    return lines;
}
void set_values(const std::string &name) {
    ASSERT_TRUE(ap::host::config_store().replace(ap::host::parse_config_text(set_named(name)).entries));
}
void put_back(const FileSet &files) {
    test::empty_folder("/cfg");
    for (const auto &[path, content] : files) test::write_text(path, content);
}

// What stands in /cfg before the commit that is cut: the name of the set that each file holds, and whether it is damaged.
struct Beginning {
    const char *what, *committed, *before;
    bool damaged;
    const char *old_set;
};

void prepare(const Beginning &beginning) {
    test::empty_folder("/cfg");
    test::empty_folder("/var/run");
    test::write_text("/webroot_ro/default.cfg", set_named("factory"));
    for (const char *name : {beginning.before, beginning.committed}) {
        if (name == nullptr) continue;
        EXPECT_IN_NEW_PROCESS(set_values(name); EXPECT_EQ(CommitCfm(), 1));
    }
    if (beginning.damaged) {
        std::string image = test::read_text("/cfg/cfm.cfg");
        image[image.size() / 2] ^= 1;
        test::write_text("/cfg/cfm.cfg", image);
    }
    test::empty_folder("/var/run");
}

class Commit : public test::StoreWorld {
protected:
    // Commits the set "new" with the power cut at that step, and checks all that may be found afterwards. The number of
    // steps, or -1.
    static int commit_and_check(const Beginning &beginning, int cut) {
        prepare(beginning);
        const int status = test::run_in_child([&] {
            set_values("new");
            Disk modelled(cut);
            disk = &modelled;
            const bool done = CommitCfm() == 1;
            disk = nullptr;
            for (const FileSet &state : modelled.states()) check_restart(state, done ? "new" : beginning.old_set);
            std::fflush(stdout);
            _exit(HasFailure() ? 255 : modelled.steps());
        });
        return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
    }

private:
    static void check_restart(const FileSet &state, const std::string &allowed) {
        put_back(state);
        restart();
        EXPECT_IN_NEW_PROCESS({
            const std::string found = values_of();
            EXPECT_TRUE(found == set_named("new") || found == set_named(allowed)) << found;
        });
    }
};

TEST_F(Commit, LeavesTheOldOrTheNewSetWhereverThePowerIsCut) {
    const Beginning beginnings[] = {
        {"first commit", nullptr, nullptr, false, "factory"},
        {"second commit", "old", nullptr, false, "old"},
        {"third commit", "old", "older", false, "old"},
        {"committed copy damaged", "old", "older", true, "older"},
    };
    for (const Beginning &beginning : beginnings) {
        SCOPED_TRACE(beginning.what);
        const int steps = commit_and_check(beginning, 1000);
        ASSERT_GE(steps, 5);  // made, written, synced, renamed, folder synced
        for (int cut = 0; cut < steps; ++cut) EXPECT_GT(commit_and_check(beginning, cut), 0) << "cut at step " << cut;
    }
}

TEST_F(Commit, WritesNothingWhenNothingChanged) {
    EXPECT_IN_NEW_PROCESS({
        set_values("old");
        EXPECT_EQ(CommitCfm(), 1);
        Disk modelled(100);
        disk = &modelled;
        EXPECT_EQ(CommitCfm(), 1);
        disk = nullptr;
        EXPECT_EQ(modelled.steps(), 1);  // the folder is synced, in case the last commit could not
        EXPECT_FALSE(std::filesystem::exists("/cfg/cfm.cfg.before"));
    });
}

TEST_F(Commit, OnAFullDiskKeepsTheOldSet) {
    const test::SmallFileSystem small("/cfg", "128k");
    int refused = 0, committed = 0;
    EXPECT_IN_NEW_PROCESS(set_values("old"); EXPECT_EQ(CommitCfm(), 1));
    for (size_t blocks_left = 0; blocks_left < 4; ++blocks_left) {
        SCOPED_TRACE(blocks_left);
        small.fill(blocks_left);
        const int status = test::run_in_child([] {
            set_values("new");
            _exit(CommitCfm() == 1 ? 10 : 11);
        });
        const bool done = WEXITSTATUS(status) == 10;
        ++(done ? committed : refused);
        restart();
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), set_named(done ? "new" : "old")));
        EXPECT_FALSE(std::filesystem::exists("/cfg/cfm.cfg.next"));
        small.release();
        EXPECT_IN_NEW_PROCESS(set_values("old"); EXPECT_EQ(CommitCfm(), 1));
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(committed, 0);
}

TEST_F(Commit, NoticesEveryFlippedBitAndEveryCut) {
    ap::host::ImageWriter writer(0);
    writer.add("lan.ip", "192.168.0.1");
    writer.add("lan.mask", "255.255.255.0");
    const std::string image = writer.take();
    const auto is_whole = [](std::string_view text, size_t first_piece) {
        ap::host::ImageCheck check;
        check.add(text.substr(0, first_piece));
        check.add(text.substr(std::min(first_piece, text.size())));
        return check.is_whole();
    };
    for (size_t length = 0; length <= image.size(); ++length) {
        EXPECT_EQ(is_whole(image.substr(0, length), 10), length == image.size());
        EXPECT_TRUE(is_whole(image, length));
    }
    for (size_t bit = 0; bit < 8 * image.size(); ++bit) {
        std::string flipped = image;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        EXPECT_FALSE(is_whole(flipped, 30)) << bit;
    }
    EXPECT_FALSE(is_whole(image + "\n", 10));
}

TEST_F(Commit, OfSeveralProcessesNeverLosesALaterState) {
    constexpr int processes = 4, commits = 20;
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(CommitCfm(), 1));
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        const std::string key = "key" + std::to_string(i);
        for (int turn = 1; turn <= commits; ++turn)
            if (SetValue(key.c_str(), std::to_string(turn).c_str()) != 1 || CommitCfm() != 1) _exit(1);
        _exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    restart();
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), "key0=20\nkey1=20\nkey2=20\nkey3=20\n"));
}

}  // namespace
