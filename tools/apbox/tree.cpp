// tree.cpp: see tree.h. Read-only system folders come from the machine; what the device writes to is memory of the box.

#include "tools/apbox/tree.h"

#include <cctype>
#include <cstdio>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/apbox/failure.h"
#include "tools/apbox/made_up.h"
#include "tools/apbox/mounts.h"

namespace box {

namespace {

// The folders in memory, each with room of its own, so that one that is full does not fill another.
constexpr struct {
    const char *path, *options;
} memory_folders[] = {
    {"/var", "mode=0755,size=64m"},  {"/tmp", "mode=1777,size=256m"},    {"/etc", "mode=0755,size=8m"},
    {"/run", "mode=0755,size=16m"},  {"/dev/shm", "mode=1777,size=64m"}, {"/cfg", "mode=0755,size=16m"},
    {"/mnt", "mode=0755,size=128m"},
};

constexpr const char *empty_folders[] = {
    "/root",        "/home",      "/lib/modules",    "/apbox/flash",
    "/apbox/world", "/apbox/sys", "/var/run",        "/var/socket",
    "/var/log",     "/var/lock",  "/cfg/log",        "/etc/wm_config",
    "/proc",        "/sys",       "/mnt/s_brcmnand", "/webroot/images/push_images",
};

// Files of the machine's /etc that its programs need: which libraries and alternatives there are, protocol names.
constexpr const char *machine_settings[] = {"/etc/alternatives", "/etc/ld.so.cache", "/etc/protocols", "/etc/services"};

constexpr const char *busybox = "/usr/bin/busybox";

constexpr const char *device_nodes[] = {"null", "zero", "full", "random", "urandom", "tty"};

// Commands that are busybox's on the device; programs for people elsewhere read or print otherwise.
constexpr const char *busybox_commands[] = {"sh",      "echo",   "awk",    "route", "ifconfig", "free",
                                            "killall", "insmod", "reboot", "halt",  "poweroff"};

// What a maker edits lies beside the tree; here is where the device has it.
constexpr struct {
    const char *name, *place;
} settings_of_device[] = {
    {"default.cfg", "/webroot_ro/default.cfg"},      {"default_url.cfg", "/webroot_ro/default_url.cfg"},
    {"default_url.cfg", "/webroot/default_url.cfg"}, {"factory.cfg", "/webroot_ro/factory.cfg"},
    {"profile.json", "/etc/profile.json"},
};

// A shell for a busybox that would run its own `ip`: it gives each command a function that calls the real one.
constexpr const char *shell_with_real_programs = R"(#!/usr/bin/busybox sh
real='ip() { /usr/sbin/ip "$@"; }
sh() { /bin/sh "$@"; }'
case ${1-} in
-*c*) options=$1; shift
    [ "$1" = -- ] && shift
    command=$1; shift
    exec /usr/bin/busybox sh "$options" "$real
$command" "$@" ;;
-* | '') exec /usr/bin/busybox sh "$@" ;;
*) exec /usr/bin/busybox sh -c "$real
. \"\$0\"" "$@" ;;
esac
)";

fs::path in(const fs::path &root, const fs::path &path) { return root / path.relative_path(); }

// /bin, /sbin and /lib are folders of the box with a link per entry of the machine's; so some entries can be the
// device's.
void link_system_folders(const fs::path &root) {
    for (const char *name : {"/bin", "/sbin", "/lib"}) {
        const fs::path machine = fs::canonical(name);
        if (machine == name) throw Failure(exit_failed, std::string(name) + " is no link into /usr on this machine");
        link_entries(machine, in(root, name), machine);
    }
    for (const auto &entry : fs::directory_iterator("/"))
        if (entry.is_symlink() && entry.path().filename().string().starts_with("lib") && entry.path() != "/lib")
            link_to(fs::read_symlink(entry.path()), in(root, entry.path()));
    unlink(in(root, "/lib/modules").c_str());
}

void add_busybox(const TreeSources &sources) {
    for (const char *name : busybox_commands)
        for (const char *folder : {"/bin", "/sbin"}) link_to(busybox, in(sources.root, folder) / name);
    const fs::path programs = in(sources.root, "/bin"), system_programs = in(sources.root, "/sbin");
    for (const std::string &name : sources.busybox.applets)  // what the machine has not got
        if (access((system_programs / name).c_str(), F_OK) != 0) symlink(busybox, (programs / name).c_str());
    if (!sources.busybox.shell_prefers_applets) return;
    for (const char *folder : {"/bin", "/sbin"}) {
        const fs::path shell = in(sources.root, folder) / "sh";
        unlink(shell.c_str());
        write_file(shell, shell_with_real_programs, 0755);
    }
}

void add_devices(const fs::path &root) {
    mount_tmpfs(root / "dev", "mode=0755,size=1m", true);
    for (const char *name : device_nodes) bind_mount(fs::path("/dev") / name, root / "dev" / name);
    make_folder(root / "dev/pts");
    if (mount("devpts", (root / "dev/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
              "newinstance,ptmxmode=0666,mode=0620") == 0)
        link_to("pts/ptmx", root / "dev/ptmx");
    const char *standard[] = {"stdin", "stdout", "stderr"};
    for (int i = 0; i < 3; ++i) link_to("/proc/self/fd/" + std::to_string(i), root / "dev" / standard[i]);
    link_to("/proc/self/fd", root / "dev/fd");
    make_folder(root / "dev/mqueue");
}

// Everything of the real /proc that can be written to and is no process is the machine's: read-only.
void protect_machine_settings(const fs::path &proc) {
    for (const auto &entry : fs::directory_iterator(proc)) {
        struct stat info {};
        if (std::isdigit(static_cast<unsigned char>(entry.path().filename().string()[0])) != 0) continue;
        if (lstat(entry.path().c_str(), &info) != 0 || S_ISLNK(info.st_mode)) continue;
        if (S_ISREG(info.st_mode) && (info.st_mode & 0222) == 0) continue;
        must(mount(entry.path().c_str(), entry.path().c_str(), nullptr, MS_BIND | MS_REC, nullptr), entry.path());
        set_access(entry.path(), Access::read_only, true);
    }
}

constexpr const char *hidden_proc =
    "this machine allows no box: /proc is partly hidden in this container; --privileged shows it whole";

void mount_proc(const fs::path &root) {
    const fs::path proc = in(root, real_proc);
    make_folder(proc);
    if (mount("proc", proc.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        throw Failure(exit_no_box, hidden_proc);
    protect_machine_settings(proc);
}

// Shows the folder `name`: the real one behind links, and the device's own files. `also` is made up too.
void make_up(const TreeSources &sources, const std::string &name, const fs::path &real, const fs::path &also) {
    MadeUpFolder folder(in(sources.root, real), sources.root / name, real);
    if (!also.empty()) folder.open_up(also);
    folder.add_files(sources.device / "tree" / name);
    for (const fs::path &extra : sources.extra) folder.add_files(extra / name);
}

// A container may hide sysfs; /sys then holds the device's files only.
void mount_sys(const TreeSources &sources) {
    const fs::path sys = in(sources.root, real_sys);
    if (mount("sysfs", sys.c_str(), "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr) != 0)
        rmdir(sys.c_str());
    mount_tmpfs(sources.root / "sys", "mode=0755,size=4m");
    make_up(sources, "sys", real_sys, {});
}

// Copies the device's files, but for those that need a made-up folder.
void copy_device_files(const fs::path &tree, const fs::path &root) {
    if (!fs::is_directory(tree)) throw Failure(exit_failed, tree.string() + " is not there");
    for (const auto &entry : fs::directory_iterator(tree)) {
        const std::string name = entry.path().filename();
        if (name != "proc" && name != "sys" && entry.is_directory()) copy_tree(entry.path(), root / name);
    }
}

void add_settings(const TreeSources &sources) {
    for (const auto &setting : settings_of_device) {
        const fs::path file = sources.device / setting.name, place = in(sources.root, setting.place);
        if (!fs::exists(file)) continue;
        make_folder(place.parent_path());
        place_file(file, place);
    }
}

// A folder inside one that is visible already is visible too.
void show(const fs::path &folder, const fs::path &root) {
    const fs::path place = in(root, folder);
    if (!fs::exists(place) || fs::is_empty(place)) bind_mount(folder, place);
}

void add_marks(const TreeSources &sources) {
    const fs::path state = sources.root / "apbox";
    write_file(sources.root / ".apbox", "");
    write_file(state / "boot", std::to_string(sources.boot) + "\n");
    link_to("world/scenario.json", state / "scenario.json");
    if (!sources.name.empty()) write_file(state / "name", sources.name + "\n");
    if (!sources.clock.empty()) write_file(state / "clock", sources.clock);
    bind_mount(sources.flash, state / "flash");
    bind_mount(sources.world, state / "world");
}

}  // namespace

Busybox look_at_busybox() {
    if (access(busybox, X_OK) != 0)
        throw Failure(exit_failed, "busybox is missing; `apt-get install busybox` brings it");
    const std::string program = busybox, command = program + " sh -c 'type ip; " + program + " --list' 2>/dev/null";
    FILE *output = popen(command.c_str(), "r");
    if (output == nullptr) must(-1, busybox);
    Busybox found;
    char line[256] = "";
    if (std::fgets(line, sizeof line, output) != nullptr)
        found.shell_prefers_applets = std::string(line) == "ip is ip\n";
    while (std::fgets(line, sizeof line, output) != nullptr) {
        found.applets.emplace_back(line);
        found.applets.back().pop_back();
    }
    pclose(output);
    return found;
}

void build_tree(const TreeSources &sources) {
    const fs::path &root = sources.root;
    mount_tmpfs(root, "mode=0755,size=64m");
    bind_mount("/usr", root / "usr");
    link_system_folders(root);
    add_devices(root);
    for (const auto &folder : memory_folders) mount_tmpfs(in(root, folder.path), folder.options);
    for (const char *folder : empty_folders) make_folder(in(root, folder));
    make_folder(root / "var/tmp", 01777);
    for (const char *path : machine_settings)
        if (fs::exists(path)) bind_mount(path, in(root, path));
    add_busybox(sources);
    copy_device_files(sources.device / "tree", root);
    add_settings(sources);
    for (const fs::path &extra : sources.extra) copy_device_files(extra, root);
    for (const fs::path &folder : sources.shown) show(folder, root);
    add_marks(sources);
    mount_proc(root);
    mount_tmpfs(root / "proc", "mode=0755,size=64m");
    make_up(sources, "proc", real_proc, "net");  // in /proc/net some devices have a file of their own
}

void finish_tree(const TreeSources &sources) {
    const fs::path queues = sources.root / "dev/mqueue";
    // A kernel may have none.
    mount("mqueue", queues.c_str(), "mqueue", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    mount_sys(sources);
    enter_root(sources.root);
}

}  // namespace box
