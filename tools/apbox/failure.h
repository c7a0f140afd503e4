// failure.h: how apbox gives up: one line for the user and an exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace box {

enum ExitStatus : int {
    exit_ok = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_no_box = 77,  // this machine allows no box; test runners take it for "skipped"
    exit_not_executable = 126,
    exit_not_found = 127,
};

// Thrown up to main, which prints "apbox: MESSAGE" and ends with `status`.
class Failure : public std::runtime_error {
public:
    Failure(int exit_status, const std::string &message) : std::runtime_error(message), status(exit_status) {}
    const int status;
};

// Throws "WHAT: the text of errno" when a system call's result is negative; otherwise hands the result on.
long must(long result, const std::string &what);

}  // namespace box
