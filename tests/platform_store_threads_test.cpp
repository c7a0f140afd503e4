// platform_store_threads_test.cpp: many threads of one process at one store.

#include <atomic>
#include <barrier>
#include <dlfcn.h>
#include <thread>
#include <vector>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

using test::value_of;

static const auto begin = reinterpret_cast<decltype(&mdb_txn_begin)>(dlsym(RTLD_NEXT, "mdb_txn_begin"));
static std::atomic<int> writers_turns = 0;

extern "C" int mdb_txn_begin(MDB_env *environment, MDB_txn *parent, unsigned flags, MDB_txn **transaction) {
    if ((flags & MDB_RDONLY) == 0) ++writers_turns;
    return begin(environment, parent, flags, transaction);
}

namespace {

class StoreThreads : public test::StoreWorld {};

// Runs `work(number)` on that many threads at once; the number of those that gave true.
int count_true(int threads, const std::function<bool(int)> &work) {
    std::atomic<int> count = 0;
    std::barrier together(threads);
    std::vector<std::thread> running;
    running.reserve(static_cast<size_t>(threads));
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            together.arrive_and_wait();
            count += work(i) ? 1 : 0;
        });
    }
    for (auto &thread : running) thread.join();
    return count;
}

TEST_F(StoreThreads, OpenReadWriteCommitAndForkTogether) {
    const std::string values[] = {std::string(100, 'a'), std::string(2000, 'b')};
    const std::function<bool(int)> works[] = {
        [&](int turn) { return SetValue("shared", values[turn % 2].c_str()) == 1; },
        [&](int) {
            const std::string read = value_of("shared", values[0]);
            return read == values[0] || read == values[1];
        },
        [](int turn) { return turn % 10 != 0 || CommitCfm() == 1; },
        [](int turn) {
            const auto in_child = [] { _exit(SetValue("forked", "1") == 1 && value_of("forked") == "1" ? 0 : 1); };
            return turn % 10 != 0 || test::run_in_child(in_child) == 0;
        }};
    const auto all_turns = [&](int thread) {
        for (int turn = 0; turn < 300; ++turn)
            if (!works[thread % 4](turn)) return false;
        return true;
    };
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(count_true(8, all_turns), 8));
}

TEST_F(StoreThreads, ReadEvenWhenThereAreMoreOfThemThanPlacesForReaders) {
    constexpr int threads = ap::host::most_readers + 100;
    EXPECT_IN_NEW_PROCESS({
        SetValue("key", "1");
        std::barrier all_have_read(threads);
        EXPECT_EQ(count_true(threads,
                             [&](int) {
                                 const bool found = value_of("key") == "1";
                                 all_have_read.arrive_and_wait();
                                 return found && value_of("key") == "1";
                             }),
                  threads);
        EXPECT_GT(writers_turns, 50);  // those without a place read in a writer's turn
    });
}

TEST_F(StoreThreads, GiveTheirPlacesBackWhenTheyEnd) {
    EXPECT_IN_NEW_PROCESS({
        SetValue("key", "1");
        for (unsigned i = 0; i < 2 * ap::host::most_readers; ++i) std::thread([] { value_of("key"); }).join();
        writers_turns = 0;
        EXPECT_EQ(value_of("key"), "1");
        EXPECT_EQ(writers_turns, 0);
    });
}

}  // namespace
