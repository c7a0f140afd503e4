// rights.h: the user namespaces that a box is built with, and the rights that it gives up.
#pragma once

#include <string>
#include <sys/types.h>

namespace box {

// Gives this process its own mounts; an ordinary user becomes root of a user namespace of their own first, or of the one
// that the process `join` lives in, when that is not 0. Throws with exit_no_box when the machine allows neither.
// True when this process has root's rights over the machine, false when only over its own namespace.
bool gain_rights(pid_t join);

// Maps every user of this process's namespace onto itself in the user namespace of `child`, which it has just made.
void map_users_of(pid_t child);

// Lets go of the rights to load modules, restart the machine, set its clock, touch its devices and the like, for good.
void drop_machine_rights();

}  // namespace box
