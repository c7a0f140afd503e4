// rights.h: the user namespaces that a box is built with, and the rights that it gives up.
#pragma once

#include <sys/types.h>

#include "tools/apbox/files.h"

namespace box {

// Gives this process its own mounts; an ordinary user becomes root of a user namespace of their own first, or of the
// one that the process `join` lives in, when that is not 0. Throws with exit_no_box when the machine allows neither.
// True when this process has root's rights over the machine, false when only over its own namespace.
bool gain_rights(pid_t join);

// Gives process 1 a user namespace of its own with the same users, and in it mounts, network, IPC and host name of its
// own. All mounts so far are locked by that: nothing in the box can make a read-only one writable or take one away.
// `proc` is where the box's /proc is mounted. Where root cannot have a user namespace it does without, and nothing is
// locked.
void enter_own_spaces(const fs::path &proc, bool is_machine_root);

// Lets go of the rights to load modules, restart the machine, set its clock, touch its devices and the like, for good.
void drop_machine_rights();

}  // namespace box
