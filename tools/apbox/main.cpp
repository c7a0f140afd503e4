// main.cpp: apbox, the device box: runs an access point's software on a PC, apart from the PC. See docs/box.md.

#include <cstdio>
#include <exception>

#include "tools/apbox/failure.h"
#include "tools/apbox/options.h"
#include "tools/apbox/verbs.h"

int main(int argc, char **argv) {
    try {
        return box::run_verb(box::parse_options(argc, argv));
    } catch (const box::Failure &failure) {
        std::fprintf(stderr, "apbox: %s\n", failure.what());
        return failure.status;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "apbox: %s\n", failure.what());
        return box::exit_failed;
    }
}
