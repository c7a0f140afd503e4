// box_main.cpp: the entry of every test program. Listing the tests needs no box; everything else runs in one.

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

#include "tests/support/box_entry.h"

int main(int argc, char **argv) {
    bool only_listing = false;
    for (int i = 1; i < argc; ++i) only_listing |= std::strcmp(argv[i], "--gtest_list_tests") == 0;
    if (!only_listing) test::enter_box(argv);
    if (test::restarts() > 0) {
        std::fputs("a test of this program restarted the device; see the last one that ran\n", stderr);
        return 1;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
