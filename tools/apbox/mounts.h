// mounts.h: the few mount operations that a box is built from. All throw a Failure.
#pragma once

#include <string>

#include "tools/apbox/files.h"

namespace box {

void mount_tmpfs(const fs::path &where, const std::string &options, bool with_devices = false);

// Shows `from`, with all that is mounted below it, at `to`, which is made when it is missing.
void bind_mount(const fs::path &from, const fs::path &to);

enum class Access { read_only, writable };

// Sets what the mount at `where` allows; with `deep`, all mounts below it too.
void set_access(const fs::path &where, Access access, bool deep = false);

// Makes `root` this process's root folder and leaves nothing of the old one.
void enter_root(const fs::path &root);

}  // namespace box
