// platform_commit_test.cpp: the promise of CommitCfm. A commit runs once to count its steps on the files of /cfg, then
// once a step with the power cut there; each state that a disk may be left in is put back, the device started anew, and
// its values must be the old or the new set.
//
// The disk is a model fed by the calls that this program defines in place of the C library's: content that was not
// synced is lost, kept in half or kept; a name that was made, linked, renamed or removed since the folder was synced
// may be undone, each without the others.

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <set>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

#include "applatform/config_store.h"
#include "foundation/file_io.h"
#include "tests/support/store_world.h"

namespace {

using test::values_of;
using FileSet = std::map<std::string, std::string>;  // path and content

struct File {
    std::string now, synced;
};
using Folder = std::map<std::string, std::shared_ptr<File>>;
using Change = std::function<void(Folder &)>;

class Disk {
public:
    explicit Disk(int cut_step) : cut_(cut_step) {
        for (const auto &entry : std::filesystem::directory_iterator("/cfg")) {
            const std::string content = test::read_text(entry.path());
            durable_[entry.path()] = now_[entry.path()] = std::make_shared<File>(File{content, content});
        }
    }
    int steps() const { return steps_; }
    bool step() { return steps_++ < cut_; }  // false once the power is cut

    void change(const Change &action) {
        action(now_);
        changes_.push_back(action);
    }
    void opened(int fd, const std::string &path, int flags) {
        files_.erase(fd);
        if (path == "/cfg/") files_[fd] = nullptr;
        if (!path.starts_with("/cfg/cfm")) return;
        if ((flags & O_CREAT) != 0 && !now_.contains(path))
            change([path, file = std::make_shared<File>()](Folder &folder) { folder[path] = file; });
        if (!now_.contains(path)) return;
        files_[fd] = now_[path];
        if ((flags & O_TRUNC) != 0) files_[fd]->now.clear();
    }
    bool knows(int fd) const { return files_.contains(fd); }
    void written(int fd, const void *data, size_t size) {
        files_[fd]->now.append(static_cast<const char *>(data), size);
    }
    void synced(int fd) {
        if (files_[fd] == nullptr) return durable_ = now_, changes_.clear();
        files_[fd]->synced = files_[fd]->now;
    }
    std::shared_ptr<File> named(const std::string &path) { return now_[path]; }

    // Every state that the power cut may leave.
    std::set<FileSet> states() const {
        std::set<FileSet> all;
        for (size_t kept = 0; kept < size_t{1} << changes_.size(); ++kept) {
            Folder folder = durable_;
            for (size_t i = 0; i < changes_.size(); ++i)
                if ((kept >> i & 1) != 0) changes_[i](folder);
            FileSet lost, half, whole;
            for (const auto &[path, file] : folder) {
                lost[path] = file->synced;
                whole[path] = file->now;
                half[path] = file->now.substr(0, file->now.size() / (file->now == file->synced ? 1 : 2));
            }
            all.insert({lost, half, whole});
        }
        return all;
    }

private:
    const int cut_;
    int steps_ = 0;
    Folder now_, durable_;
    std::vector<Change> changes_;                 // of names, since the folder was synced
    std::map<int, std::shared_ptr<File>> files_;  // by descriptor; null: the folder
};

Disk *disk = nullptr;  // while a commit runs

// Runs `call` and tells the model of it, unless the power is cut.
template <typename Call, typename Note> int on_disk(bool is_on_disk, Call call, Note note) {
    if (!is_on_disk || disk == nullptr) return static_cast<int>(call());
    if (!disk->step()) return errno = EIO, -1;
    const int result = static_cast<int>(call());
    if (result >= 0) note();
    return result;
}
bool in_cfg(const char *path) { return disk != nullptr && std::strncmp(path, "/cfg/", 5) == 0; }
bool is_known(int fd) { return disk != nullptr && disk->knows(fd); }

}  // namespace

extern "C" {
int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned);
    va_end(arguments);
    const auto call = [&] { return syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode); };
    const int fd = on_disk(in_cfg(path) && (flags & O_CREAT) != 0, call, [] {});
    if (disk != nullptr && fd >= 0) disk->opened(fd, path, flags);
    return fd;
}
ssize_t write(int fd, const void *data, size_t size) {
    const auto call = [&] { return syscall(SYS_write, fd, data, size); };
    return on_disk(is_known(fd), call, [&] { disk->written(fd, data, size); });
}
int fsync(int fd) {
    const auto call = [&] { return syscall(SYS_fsync, fd); };
    return on_disk(is_known(fd), call, [&] { disk->synced(fd); });
}
int rename(const char *from, const char *to) noexcept {
    const Change change = [a = std::string(from), b = std::string(to)](Folder &folder) {
        if (const auto file = folder.extract(a)) folder[b] = file.mapped();
    };
    const auto call = [&] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0); };
    return on_disk(in_cfg(to), call, [&] { disk->change(change); });
}
int link(const char *from, const char *to) noexcept {
    const auto call = [&] { return syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0); };
    const auto note = [&] {
        disk->change([b = std::string(to), file = disk->named(from)](Folder &folder) { folder[b] = file; });
    };
    return on_disk(in_cfg(to), call, note);
}
int unlink(const char *path) noexcept {
    const auto call = [&] { return syscall(SYS_unlinkat, AT_FDCWD, path, 0); };
    return on_disk(in_cfg(path), call,
                   [&] { disk->change([name = std::string(path)](Folder &folder) { folder.erase(name); }); });
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

// What stands in /cfg before the commit that is cut, and the set that a start then finds.
struct Beginning {
    std::vector<const char *> committed;
    bool is_damaged;
    const char *old_set;
};

class Commit : public test::StoreWorld {
protected:
    // Commits the set "new" with the power cut at that step, and checks all that may be found afterwards. The number
    // of steps, or -1.
    static int commit_and_check(const Beginning &beginning, int cut) {
        prepare(beginning);
        const int status = test::run_in_child([&] {
            set_values("new");
            Disk modelled(cut);
            disk = &modelled;
            const bool done = CommitCfm() == 1;
            disk = nullptr;
            for (const FileSet &state : modelled.states()) check_start(state, done ? "new" : beginning.old_set);
            std::fflush(stdout);
            _exit(HasFailure() ? 255 : modelled.steps());
        });
        return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
    }

private:
    static void prepare(const Beginning &beginning) {
        test::empty_folder("/cfg");
        restart();
        test::write_text("/webroot_ro/default.cfg", set_named("factory"));
        for (const char *name : beginning.committed) EXPECT_IN_NEW_PROCESS(set_values(name); EXPECT_EQ(CommitCfm(), 1));
        restart();
        if (!beginning.is_damaged) return;
        std::string image = test::read_text("/cfg/cfm.cfg");
        image[image.size() / 2] ^= 1;
        test::write_text("/cfg/cfm.cfg", image);
    }
    static void check_start(const FileSet &state, const std::string &allowed) {
        test::empty_folder("/cfg");
        for (const auto &[path, content] : state) test::write_text(path, content);
        restart();
        EXPECT_IN_NEW_PROCESS({
            const std::string found = values_of();
            EXPECT_TRUE(found == set_named("new") || found == set_named(allowed)) << found;
        });
    }
};

TEST_F(Commit, LeavesTheOldOrTheNewSetWhereverThePowerIsCut) {
    for (const Beginning &beginning :
         {Beginning{{}, false, "factory"}, Beginning{{"old"}, false, "old"}, Beginning{{"older", "old"}, false, "old"},
          Beginning{{"older", "old"}, true, "older"}}) {
        SCOPED_TRACE(testing::PrintToString(beginning.committed) + (beginning.is_damaged ? " damaged" : ""));
        const int steps = commit_and_check(beginning, 1000);
        ASSERT_GE(steps, 5);  // made, written, synced, renamed, folder synced
        for (int cut = 0; cut < steps; ++cut) EXPECT_GT(commit_and_check(beginning, cut), 0) << "cut at step " << cut;
    }
}

TEST_F(Commit, WritesNothingWhenNothingChanged) {
    EXPECT_IN_NEW_PROCESS({
        set_values("old");
        EXPECT_EQ(CommitCfm(), 1);
        Disk modelled(1000);
        disk = &modelled;
        EXPECT_EQ(CommitCfm(), 1);
        disk = nullptr;
        EXPECT_EQ(modelled.steps(), 1);  // the folder is synced, in case the last commit could not
    });
}

TEST_F(Commit, NoticesEveryFlippedBitAndEveryCut) {
    ap::host::ImageWriter writer(0);
    writer.add("lan.ip", "192.168.0.1");
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
    for (const std::string key : {"key0", "key1", "key2", "key3"}) {
        if (fork() != 0) continue;
        for (int turn = 1; turn <= 20; ++turn)
            if (SetValue(key.c_str(), std::to_string(turn).c_str()) + CommitCfm() != 2) _exit(1);
        _exit(0);
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    restart();
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), "key0=20\nkey1=20\nkey2=20\nkey3=20\n"));
}

TEST_F(Commit, ReadsTheValuesWhenItsTurnHasCome) {
    const ap::UniqueFd others_turn = ap::open_fd("/var/run/cfm.commit", O_RDWR | O_CREAT);
    ASSERT_EQ(lockf(others_turn.get(), F_LOCK, 0), 0);
    if (fork() == 0) _exit(SetValue("key", "earlier") + CommitCfm() == 2 ? 0 : 1);
    EXPECT_IN_NEW_PROCESS({
        while (test::value_of("key") != "earlier") usleep(1000);
        usleep(20'000);  // now it waits for the lock
        EXPECT_EQ(SetValue("key", "later"), 1);
    });
    EXPECT_EQ(lockf(others_turn.get(), F_ULOCK, 0), 0);
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    restart();
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), "key=later\n"));
}

}  // namespace
