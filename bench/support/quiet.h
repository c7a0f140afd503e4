// quiet.h: standard output turned away while something that prints is measured.
#pragma once

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "foundation/file_io.h"

namespace bench {

// What is printed on standard output goes nowhere while this lives.
class Quiet {
public:
    Quiet() : saved_(dup(STDOUT_FILENO)) { turn_to(ap::open_fd("/dev/null", O_WRONLY)); }
    ~Quiet() { turn_to(saved_); }
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

private:
    static void turn_to(const ap::UniqueFd &output) {
        std::fflush(stdout);
        dup2(output.get(), STDOUT_FILENO);
    }
    ap::UniqueFd saved_;
};

}  // namespace bench
