// verbs.h: what apbox is asked to do.
#pragma once

#include "tools/apbox/options.h"

namespace box {

// Does what the verb says; the exit status. Throws a Failure.
int run_verb(const Options &options);

}  // namespace box
