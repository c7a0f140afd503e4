// options.h: the command line of apbox.
#pragma once

#include <string>
#include <vector>

namespace box {

struct Options {
    std::string verb, name, network, keep, scenario, address, tree;
    std::vector<std::string> programs;  // folders that come first on the box's PATH
    std::vector<std::string> shown;     // folders of the machine that stay visible, read-only
    std::vector<std::string> writable;  // the same, but the box may write there
    double clock = 1;
    int restarts = 1000;  // of the device by the command of `run`
    bool bus = false, json = false, off = false, all = false;
    std::vector<std::string> command;  // what stands behind "--"
};

// Throws a Failure with exit_usage for what cannot be understood.
Options parse_options(int argc, char **argv);

void print_help();

}  // namespace box
