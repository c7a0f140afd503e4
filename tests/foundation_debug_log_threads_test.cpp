// foundation_debug_log_threads_test.cpp: threads that log, ask for and change levels, and attach the table at the same
// time.

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

void run_in_threads(int count, const std::function<void(int)> &action) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back(action, i);
    for (auto &thread : threads) thread.join();
}

}  // namespace

TEST(DebugLogThreads, AttachOneTable) {
    std::vector<dbg_info *> tables(4);
    std::vector<const char *> names(4);
    run_in_threads(4, [&](int i) {
        tables[static_cast<size_t>(i)] = get_dbg_info();
        names[static_cast<size_t>(i)] = get_self_pname();
    });
    for (const auto *table : tables) EXPECT_EQ(table, get_dbg_info());
    for (const char *name : names) EXPECT_STREQ(name, get_self_pname());
}

TEST(DebugLogThreads, PrintWholeLinesWhileLevelsChange) {
    const char *modules[] = {"t0", "t1", "t2", "t3"};
    for (const char *module : modules) set_dbg_level(module, 4);
    const std::string text = test::printed_by([&] {
        run_in_threads(4, [&](int i) {
            for (int round = 0; round < 50; ++round) {
                prod_debug("f", i, 4, modules[i], "start of %d and its end", i);
                prod_debug("f", i, 5, modules[i], "unseen");
                set_dbg_level("other", static_cast<unsigned int>(round + 1));
                const unsigned int level = get_dbg_level("other");
                EXPECT_TRUE(level <= 50);
            }
        });
    });
    std::istringstream lines(text);
    int whole = 0;
    for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find("start of ");
        if (start == std::string::npos) continue;
        const std::string number = line.substr(start + 9, 1);
        EXPECT_EQ(line.substr(start), "start of " + number + " and its end");
        EXPECT_NE(line.find("t" + number + ".I]"), std::string::npos) << line;
        ++whole;
    }
    EXPECT_EQ(whole, 4 * 50);
}
