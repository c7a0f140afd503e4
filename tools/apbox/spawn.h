// spawn.h: starts a command in the box.
#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tools/apbox/files.h"

namespace box {

struct Spawned {
    pid_t process;            // it ends with 126 or 127, after a line, when the program cannot be started
    Descriptor sync_reports;  // see sync_watch.h; empty where syncs cannot be watched
};

// Starts `command` in `folder`, or in the home folder when that is not in the box. `streams`, when given, become its
// standard input, output and error.
Spawned spawn(const std::vector<std::string> &command, const std::string &folder, const std::vector<int> &streams,
              const sigset_t &signals);

}  // namespace box
