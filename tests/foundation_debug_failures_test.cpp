// foundation_debug_failures_test.cpp: what is printed when the shared segment cannot be had. Each case runs in a child
// of its own, since this process must never attach the table.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/shm.h>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

// The line of a diagnostic, with its source line's number left open.
std::string diagnostic(const std::string &function, const std::string &text) {
    return "\033\\[1;40;31m\\[PROD\\] [0-9]{4} " + function + ": " + text + "\n\033\\[0m";
}

const std::string no_attach = diagnostic("get_dbg_info   ", "Failed to get shared memory!");

void expect_printed(const std::string &pattern, const std::function<void()> &call) {
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(test::run_in_child(call), 0); }), testing::MatchesRegex(pattern));
}

}  // namespace

TEST(DebugFailures, SayWhyASegmentOfAnotherSizeIsNotTheTableUntilItIsGone) {
    test::write_text("/var/run/shm.prod.debug.info", "");
    const int small = shmget(ftok("/var/run/shm.prod.debug.info", 1), 100, 0600 | IPC_CREAT | IPC_EXCL);
    ASSERT_GE(small, 0);
    const std::string wrong_size =
        diagnostic("get_shared_memory   ", "Failed\\(22\\) to create shared memory prod.debug.info, Invalid argument.");
    expect_printed(wrong_size + no_attach, [small] {
        prod_debug("f", 1, 2, "prod", "unseen");
        shmctl(small, IPC_RMID, nullptr);
        if (get_dbg_info() == nullptr) _exit(1);
    });
}

TEST(DebugFailures, SayWhyThereIsNoTableAndNeverCallThemselves) {
    ASSERT_EQ(rename("/var/run", "/var/run.away"), 0);
    const std::string attach = "get_shared_memory   ", ask = "get_dbg_level  ", set = "set_dbg_level  ";
    const std::string no_file =
        diagnostic(attach, "Failed\\(2\\) to call ftok\\(/var/run/shm.prod.debug.info, No such file or directory.");
    expect_printed(no_file + no_attach, [] { EXPECT_EQ(get_dbg_info(), nullptr); });
    expect_printed(no_file + no_attach, [] { prod_debug("f", 1, 2, "prod", "unseen"); });
    expect_printed(no_file + no_attach, [] { show_dbg_level(nullptr); });
    expect_printed(no_file + no_attach + diagnostic(ask, "invalid parameters"), [] { get_dbg_level("rfo"); });
    expect_printed(no_file + diagnostic(set, "Failed to get shared memory!"), [] { set_dbg_level("rfo", 1); });
    expect_printed(diagnostic(set, "invalid parameters"), [] { EXPECT_EQ(set_dbg_level(nullptr, 1), 0); });
    expect_printed(diagnostic(attach, "Failed to get shared memory, invalid arguments."),
                   [] { EXPECT_EQ(get_shared_memory(nullptr, 8), nullptr); });
    ASSERT_EQ(rename("/var/run.away", "/var/run"), 0);
    expect_printed(diagnostic(ask, "invalid parameters"), [] { EXPECT_EQ(get_dbg_level(nullptr), 0U); });
}
