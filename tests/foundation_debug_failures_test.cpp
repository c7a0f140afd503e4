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

std::string printed_by_child(const std::function<void()> &action) {
    return test::printed_by([&] { EXPECT_EQ(test::run_in_child(action), 0); });
}

const std::string no_attach = diagnostic("get_dbg_info   ", "Failed to get shared memory!");

}  // namespace

TEST(DebugFailures, SayWhyThereIsNoTableAndNeverCallThemselves) {
    ASSERT_EQ(rename("/var/run", "/var/run.away"), 0);
    const std::string no_file =
        diagnostic("get_shared_memory   ",
                   "Failed\\(2\\) to call ftok\\(/var/run/shm.prod.debug.info, No such file or directory.");
    const struct {
        const char *what;
        std::string printed;
        void (*call)();
    } cases[] = {
        {"attaching", no_file + no_attach, [] { EXPECT_EQ(get_dbg_info(), nullptr); }},
        {"an error line", no_file + no_attach, [] { prod_debug("f", 1, 2, "prod", "unseen"); }},
        {"asking", no_file + no_attach + diagnostic("get_dbg_level  ", "invalid parameters"),
         [] { get_dbg_level("rfo"); }},
        {"setting", no_file + diagnostic("set_dbg_level  ", "Failed to get shared memory!"),
         [] { set_dbg_level("rfo", 1); }},
        {"showing", no_file + no_attach, [] { show_dbg_level(nullptr); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_THAT(printed_by_child(c.call), testing::MatchesRegex(c.printed));
    }
    ASSERT_EQ(rename("/var/run.away", "/var/run"), 0);
}

TEST(DebugFailures, SayWhyASegmentOfAnotherSizeIsNotTheTable) {
    test::write_text("/var/run/shm.prod.debug.info", "");
    const int small = shmget(ftok("/var/run/shm.prod.debug.info", 1), 100, 0600 | IPC_CREAT | IPC_EXCL);
    ASSERT_GE(small, 0);
    const std::string wrong_size =
        diagnostic("get_shared_memory   ", "Failed\\(22\\) to create shared memory prod.debug.info, Invalid argument.");
    EXPECT_THAT(printed_by_child([] { prod_debug("f", 1, 2, "prod", "unseen"); }),
                testing::MatchesRegex(wrong_size + no_attach));
    shmctl(small, IPC_RMID, nullptr);
    EXPECT_EQ(test::run_in_child([] { _exit(get_dbg_info() != nullptr ? 0 : 1); }), 0);  // a later call works
}

TEST(DebugFailures, RefuseMissingNames) {
    EXPECT_THAT(
        printed_by_child([] { EXPECT_EQ(get_shared_memory(nullptr, 8), nullptr); }),
        testing::MatchesRegex(diagnostic("get_shared_memory   ", "Failed to get shared memory, invalid arguments.")));
    EXPECT_THAT(printed_by_child([] { EXPECT_EQ(set_dbg_level(nullptr, 1), 0); }),
                testing::MatchesRegex(diagnostic("set_dbg_level  ", "invalid parameters")));
    EXPECT_THAT(printed_by_child([] { EXPECT_EQ(get_dbg_level(nullptr), 0U); }),
                testing::MatchesRegex(diagnostic("get_dbg_level  ", "invalid parameters")));
}
