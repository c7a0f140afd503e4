// foundation_debug_log_threads_test.cpp: threads that log, ask for and change levels, and attach the table at the same
// time.

#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

// An error line reaches its file while the lock is held.
static int lock_result = 0;
extern "C" int do_file_cmd(const char *, int, const char *, ...) {
    return lock_result = pthread_mutex_trylock(&debug_mutex);
}

namespace {

void run_in_threads(const std::function<void(size_t)> &action) {
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 4; ++i) threads.emplace_back(action, i);
    for (auto &thread : threads) thread.join();
}

}  // namespace

TEST(DebugLogThreads, AttachOneTable) {
    dbg_info *tables[4];
    const char *names[4];
    run_in_threads([&](size_t i) { tables[i] = get_dbg_info(), names[i] = get_self_pname(); });
    for (const auto *table : tables) EXPECT_EQ(table, get_dbg_info());
    for (const char *name : names) EXPECT_STREQ(name, get_self_pname());
}

TEST(DebugLogThreads, PrintWholeLinesWhileLevelsChange) {
    const char *modules[] = {"t0", "t1", "t2", "t3"};
    for (const char *module : modules) set_dbg_level(module, 4);
    const std::string text = test::printed_by([&] {
        run_in_threads([&](size_t i) {
            for (unsigned int round = 1; round <= 50; ++round) {
                prod_debug("f", 1, 4, modules[i], "start of %zu and its end", i);
                prod_debug("f", 1, 5, modules[i], "unseen");
                set_dbg_level("other", round);
                EXPECT_LE(get_dbg_level("other"), 50U);
            }
        });
    });
    const std::regex whole(".{10}..:..:.. \\[ *t(\\d)\\.I\\]    1 f {24}: start of \\1 and its end\n.{4}");
    const auto lines = std::distance(std::sregex_iterator(text.begin(), text.end(), whole), std::sregex_iterator());
    EXPECT_EQ(lines, 4 * 50);
    EXPECT_TRUE(std::regex_replace(text, whole, "").empty());
    test::printed_by([] { prod_debug("f", 1, 2, "t0", "an error"); });
    EXPECT_EQ(lock_result, EBUSY);
}
