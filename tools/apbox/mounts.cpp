// mounts.cpp: see mounts.h. Only system calls: the mount command keeps a table of its own, which is not there.

#include "tools/apbox/mounts.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/apbox/failure.h"

namespace box {

void mount_tmpfs(const fs::path &where, const std::string &options, bool with_devices) {
    make_folder(where);
    const unsigned long no_devices = with_devices ? 0 : MS_NODEV;
    must(mount("tmpfs", where.c_str(), "tmpfs", MS_NOSUID | no_devices, options.c_str()), "mount " + where.string());
}

void bind_mount(const fs::path &from, const fs::path &to) {
    if (fs::is_directory(from)) {
        make_folder(to);
    } else {
        make_folder(to.parent_path());
        write_file(to, "");
    }
    must(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr), "show " + from.string());
}

void set_access(const fs::path &where, Access access, bool deep) {
    mount_attr change{};
    (access == Access::read_only ? change.attr_set : change.attr_clr) = MOUNT_ATTR_RDONLY;
    const unsigned int flags = deep ? AT_RECURSIVE : 0;
    must(mount_setattr(AT_FDCWD, where.c_str(), flags, &change, sizeof change), "mount rights of " + where.string());
}

void enter_root(const fs::path &root) {
    // A mount that was made in another user namespace cannot become the root; a second view of it can.
    must(mount(root.c_str(), root.c_str(), nullptr, MS_BIND | MS_REC, nullptr), root.string());
    must(chdir(root.c_str()), root.string());
    must(syscall(SYS_pivot_root, ".", "."), "pivot_root");
    must(umount2(".", MNT_DETACH), "leave the old root");
    must(chdir("/"), "/");
}

}  // namespace box
