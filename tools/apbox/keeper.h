// keeper.h: the process that stands outside a box and keeps it: it makes the namespaces, starts process 1, and starts
// it again after a restart or a power cut. When the keeper dies, the box dies with it, as at a power cut.
#pragma once

#include <functional>

#include "tools/apbox/options.h"
#include "tools/apbox/registry.h"

namespace box {

// Keeps the box until it ends; its command's exit status. Calls `is_up` when its command was first started. In the
// foreground, signals go to the command; in the background, SIGTERM shuts the box down.
int keep_box(const Options &options, Claim &claim, bool in_background, const std::function<void()> &is_up);

}  // namespace box
