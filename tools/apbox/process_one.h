// process_one.h: process 1 of a box: it builds the device, starts its command, reaps, and answers.
//
// It obeys signals (SIGTERM: restart the device; SIGUSR1, SIGUSR2: shut down, as halt and poweroff ask for; SIGPWR: cut
// the power), messages from the keeper, and requests on the box's control socket. It tells the keeper one of
//   "ports"              its network is there; the ports are to be plugged in, and that answered
//   "up"                 the command was started
//   "failed" S TEXT      the box could not be built; exit status and why
//   "ended" S            shut down; the command's exit status
//   "restart"            shut down, to be started again
//   "power-cut", "off"   everything was dropped, to be started again or not
// and exits, which ends every process of the box.
#pragma once

#include <csignal>
#include <string>

#include "tools/apbox/files.h"
#include "tools/apbox/network.h"
#include "tools/apbox/options.h"
#include "tools/apbox/tree.h"

namespace box {

struct Start {
    const Options *options;
    TreeSources tree;
    fs::path kept;                  // the kept copy
    std::string host_name, folder;  // `folder`: where the command starts
    std::string programs;           // the folder of the project's programs
    LanAddress address;
    int channel, control;      // to the keeper; the listening control socket
    sigset_t command_signals;  // the signal mask that commands get
    bool is_machine_root;      // apbox was called by root
    bool lives_on;             // the box outlives its command
    bool has_bus;              // the message bus is started, before the command
};

// Runs in the new process 1, from its first instruction on. Does not return.
[[noreturn]] void be_process_one(Start &start);

}  // namespace box
