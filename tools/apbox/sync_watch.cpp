// sync_watch.cpp: see sync_watch.h. A seccomp filter with user notification.

#include "tools/apbox/sync_watch.h"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/apbox/tree.h"

namespace box {

namespace {

#if defined(__x86_64__)
constexpr uint32_t machine = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t machine = AUDIT_ARCH_AARCH64;
#else
#error "which kernel calls does this processor have?"
#endif

constexpr uint32_t watched[] = {SYS_fsync, SYS_fdatasync, SYS_sync, SYS_syncfs};

// Runs `work`; the error number that a program is told, 0 for none.
template <typename Work> int error_of(Work work) {
    try {
        errno = 0;
        work();
        return 0;
    } catch (const std::exception &) {
        return errno == 0 ? EIO : errno;
    }
}

fs::path path_of_its_file(const seccomp_notif &report) {
    const auto fd = static_cast<int>(report.data.args[0]);
    return real_proc / std::to_string(report.pid) / "fd" / std::to_string(fd);
}

void sync_one_file(const seccomp_notif &report, KeptStore &store, seccomp_notif_resp &answer) {
    const fs::path path = path_of_its_file(report);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !store.holds(info) || !(S_ISREG(info.st_mode) || S_ISDIR(info.st_mode))) {
        answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        return;
    }
    answer.error = -error_of([&] { store.sync(open_file(path, O_RDONLY).get(), info); });
}

// A whole sync is never passed on: it would make the machine write all of its disks.
void sync_everything(const seccomp_notif &report, KeptStore &store, seccomp_notif_resp &answer) {
    struct stat info {};
    if (report.data.nr == SYS_syncfs) {
        if (stat(path_of_its_file(report).c_str(), &info) != 0) answer.error = -EBADF;
        if (answer.error != 0 || !store.holds(info)) return;
    }
    const int error = error_of([&] { store.sync_all(); });
    if (report.data.nr == SYS_syncfs) answer.error = -error;
}

}  // namespace

Descriptor watch_own_syncs() {
    const auto number = static_cast<uint32_t>(offsetof(seccomp_data, nr));
    const auto architecture = static_cast<uint32_t>(offsetof(seccomp_data, arch));
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, architecture),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, machine, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, watched[0], 4, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, watched[1], 3, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, watched[2], 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, watched[3], 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
    };
    const sock_fprog program{std::size(filter), filter};
    constexpr unsigned long flags = SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_SPEC_ALLOW;
    return Descriptor(static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program)));
}

bool answer_sync(int reports, KeptStore &store) {
    seccomp_notif report{};
    if (ioctl(reports, SECCOMP_IOCTL_NOTIF_RECV, &report) != 0) return errno == ENOENT || errno == EINTR;
    seccomp_notif_resp answer{};
    answer.id = report.id;
    if (report.data.nr == SYS_fsync || report.data.nr == SYS_fdatasync) {
        sync_one_file(report, store, answer);
    } else {
        sync_everything(report, store, answer);
    }
    ioctl(reports, SECCOMP_IOCTL_NOTIF_SEND,
          &answer);  // fails when the program was killed meanwhile
    return true;
}

}  // namespace box
