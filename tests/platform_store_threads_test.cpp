// platform_store_threads_test.cpp: many threads of one process at one store.

#include <atomic>
#include <barrier>
#include <dlfcn.h>
#include <thread>
#include <vector>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

static std::atomic<int> writers_turns = 0;

extern "C" int mdb_txn_begin(MDB_env *environment, MDB_txn *parent, unsigned flags, MDB_txn **transaction) {
    static const auto begin = reinterpret_cast<decltype(&mdb_txn_begin)>(dlsym(RTLD_NEXT, "mdb_txn_begin"));
    if ((flags & MDB_RDONLY) == 0) ++writers_turns;
    return begin(environment, parent, flags, transaction);
}

namespace {

class StoreThreads : public test::StoreWorld {};

struct Value {
    char text[ap::host::longest_value + 1] = {};
    int found;
    explicit Value(const char *key) : found(GetValue(key, text)) {}
};

TEST_F(StoreThreads, ReadWholeValuesWhileOthersWriteCommitAndFork) {
    constexpr int turns = 300;
    EXPECT_IN_NEW_PROCESS({
        const std::string values[] = {std::string(100, 'a'), std::string(2000, 'b')};
        std::atomic<int> torn = 0, failed = 0;
        EXPECT_EQ(SetValue("shared", values[0].c_str()), 1);
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&, i] {
                for (int turn = 0; turn < turns; ++turn)
                    failed += SetValue("shared", values[(turn + i) % 2].c_str()) != 1;
            });
            threads.emplace_back([&] {
                for (int turn = 0; turn < turns; ++turn) {
                    const std::string read = Value("shared").text;
                    torn += read != values[0] && read != values[1];
                }
            });
        }
        threads.emplace_back([&] {
            for (int turn = 0; turn < turns / 10; ++turn) failed += CommitCfm() != 1;
        });
        threads.emplace_back([&] {
            for (int turn = 0; turn < turns / 10; ++turn)
                failed += test::run_in_child([] { _exit(SetValue("forked", "1") == 1 && Value("shared").found ? 0 : 1); }) != 0;
        });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(torn + failed, 0);
    });
}

TEST_F(StoreThreads, OpenItTogether) {
    EXPECT_IN_NEW_PROCESS({
        constexpr int count = 8;
        std::barrier together(count);
        std::atomic<int> failed = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back([&, i] {
                together.arrive_and_wait();
                failed += SetValue(std::to_string(i).c_str(), "1") != 1;
            });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(failed, 0);
        EXPECT_EQ(Value("0").found + Value("7").found, 2);
    });
}

TEST_F(StoreThreads, ReadEvenWhenThereAreMoreOfThemThanPlacesForReaders) {
    EXPECT_IN_NEW_PROCESS({
        constexpr int count = ap::host::most_readers + 100;
        EXPECT_EQ(SetValue("key", "1"), 1);
        std::barrier all_have_read(count);
        std::atomic<int> found = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back([&] {
                found += Value("key").found;
                all_have_read.arrive_and_wait();
                found += Value("key").found;
            });
        for (auto &thread : threads) thread.join();
        EXPECT_EQ(found, 2 * count);
        EXPECT_GT(writers_turns, 50);  // those without a place read in a writer's turn
    });
}

TEST_F(StoreThreads, GiveTheirPlacesBackWhenTheyEnd) {
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(SetValue("key", "1"), 1);
        for (unsigned i = 0; i < 2 * ap::host::most_readers; ++i) std::thread([] { Value("key"); }).join();
        writers_turns = 0;
        EXPECT_EQ(Value("key").found, 1);
        EXPECT_EQ(writers_turns, 0);
    });
}

}  // namespace
