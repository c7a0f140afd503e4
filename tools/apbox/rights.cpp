// rights.cpp: see rights.h. A box has a user namespace of its own even for root: what is mounted read-only before
// cannot be made writable in it, and no right in it reaches the machine.

#include "tools/apbox/rights.h"

#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <linux/capability.h>
#include <sched.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"

namespace box {

namespace {

constexpr struct {
    const char *setting, *forbids, *why, *remedy;
} known_limits[] = {
    {"/proc/sys/user/max_user_namespaces", "0", "user namespaces are limited to 0",
     "sysctl user.max_user_namespaces=15000"},
    {"/proc/sys/kernel/unprivileged_userns_clone", "0", "user namespaces are kept for root",
     "sysctl kernel.unprivileged_userns_clone=1"},
    {"/proc/sys/kernel/apparmor_restrict_unprivileged_userns", "1", "AppArmor restricts user namespaces",
     "sysctl kernel.apparmor_restrict_unprivileged_userns=0"},
};

std::string first_line(const char *path) {
    const std::string text = read_file(path);
    return text.substr(0, text.find('\n'));
}

const std::string no_box = "this machine allows no box: ";

[[noreturn]] void fail_for_lack_of_rights(const char *step) {
    const int error = errno;
    for (const auto &limit : known_limits) {
        if (first_line(limit.setting) != limit.forbids) continue;
        throw Failure(exit_no_box, no_box + limit.why + "; as root, `" + limit.remedy + "` changes that");
    }
    const char *why = error == EINVAL ? " is not built into its kernel"
                                      : " is forbidden; run as root, in a container with --privileged";
    throw Failure(exit_no_box, no_box + step + why);
}

// Becomes root of a new user namespace in which only this user exists.
void become_own_root() {
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER) != 0) fail_for_lack_of_rights("making a user namespace");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
}

// Each line of a map reads "first-inside first-outside count"; seen from a child namespace the outside is our inside.
std::string onto_itself(const std::string &own_map) {
    std::istringstream lines(own_map);
    std::string map, inside, outside, count;
    while (lines >> inside >> outside >> count)
        map.append(inside).append(" ").append(inside).append(" ").append(count).append("\n");
    return map;
}

// A namespace's users are set from the namespace that it was made in: this helper stays there until process 1 has gone.
[[noreturn]] void map_users_of_process_1(const fs::path &proc, int process_1) {
    const auto message = receive_message(process_1);
    if (!message) _exit(1);
    if (message->words[0] != "map") _exit(0);
    try {
        write_file(proc / "1/uid_map", onto_itself(read_file(proc / "self/uid_map")));
        write_file(proc / "1/gid_map", onto_itself(read_file(proc / "self/gid_map")));
    } catch (const Failure &) {
        _exit(1);
    }
    _exit(0);
}

// Rights over things that are the machine's, not a namespace's.
constexpr unsigned int machine_rights[] = {
    CAP_SYS_MODULE,     CAP_SYS_BOOT,   CAP_SYS_TIME,      CAP_SYS_RAWIO,
    CAP_MKNOD,   // a device node would reach the machine's disks
    CAP_SYSLOG,  // clears the kernel's log
    CAP_SYS_TTY_CONFIG, CAP_SYS_PACCT,  CAP_AUDIT_CONTROL, CAP_AUDIT_READ, CAP_MAC_ADMIN,
    CAP_MAC_OVERRIDE,   CAP_WAKE_ALARM, CAP_BLOCK_SUSPEND, CAP_BPF,        CAP_PERFMON,
};

}  // namespace

bool gain_rights(pid_t join) {
    if (unshare(CLONE_NEWNS) == 0) return true;
    if (errno != EPERM) fail_for_lack_of_rights("making a mount namespace");
    if (join != 0) {
        const Descriptor users = open_file("/proc/" + std::to_string(join) + "/ns/user", O_RDONLY);
        must(setns(users.get(), CLONE_NEWUSER), "join the network");
    } else {
        become_own_root();
    }
    if (unshare(CLONE_NEWNS) != 0) fail_for_lack_of_rights("making a mount namespace");
    return false;
}

void enter_own_spaces(const fs::path &proc, bool is_machine_root) {
    constexpr int spaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;
    auto [here, there] = socket_pair();
    const auto helper = static_cast<pid_t>(must(fork(), "start a process"));
    if (helper == 0) map_users_of_process_1(proc, there.get());
    if (unshare(CLONE_NEWUSER | spaces) == 0) {
        send_message(here.get(), {"map"});
    } else {
        if (!is_machine_root) fail_for_lack_of_rights("making a user namespace in a user namespace");
        must(unshare(spaces), "make namespaces");
        send_message(here.get(), {"leave it"});
    }
    int status = -1;
    must(waitpid(helper, &status, 0), "wait");
    if (status != 0) throw Failure(exit_failed, "the users of the box could not be set");
}

void drop_machine_rights() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3] = {};
    must(syscall(SYS_capget, &header, rights), "rights");
    for (const unsigned int right : machine_rights) {
        prctl(PR_CAPBSET_DROP, right, 0, 0, 0);  // an older kernel may not know it
        const unsigned int mask = ~(1U << right % 32);
        auto &word = rights[right / 32];
        word.effective &= mask;
        word.permitted &= mask;
        word.inheritable &= mask;
    }
    must(syscall(SYS_capset, &header, rights), "give up rights");
}

}  // namespace box
