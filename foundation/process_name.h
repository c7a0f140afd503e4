// process_name.h: the name of this process, read once and kept for the process's life.
#pragma once

namespace ap {

// As `get_self_pname`, but prints nothing when the name cannot be read and is "<null>".
const char *self_name_quietly();

}  // namespace ap
