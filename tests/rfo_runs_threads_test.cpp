// rfo_runs_threads_test.cpp: at most one survey run of either kind, however many threads ask; and a worker that ends
// before its starter has come to note it as active.

#include <atomic>
#include <barrier>
#include <thread>

#include "tests/rfo_world.h"

namespace {

using Starter = int (*)(rfo_callback callback, int delay);
constexpr Starter starters[] = {rfo_create_chan_optmz_thread, rfo_create_power_optmz_thread};

std::atomic<bool> may_end;
void hold_run(const void *, int) {
    while (!may_end) std::this_thread::yield();
}

class Runs : public test::RfoTest {
protected:
    void SetUp() override {
        RfoTest::SetUp();
        may_end = false;
    }
    static void end_run() {
        may_end = true;
        test::wait_for_worker();
    }
};

TEST_F(Runs, OnlyOneOfManyStartersWins) {
    test::printed_by([&] {
        for (int round = 0; round < 20; ++round) {
            SetUp();
            std::atomic<int> started = 0;
            std::barrier together(8);
            std::vector<std::thread> threads;
            for (size_t i = 0; i < 8; ++i) {
                threads.emplace_back([&, i] {
                    together.arrive_and_wait();
                    if (starters[i % 2](hold_run, 0) == 0) ++started;
                });
            }
            for (auto &thread : threads) thread.join();
            end_run();
            EXPECT_EQ(started, 1);
        }
    });
}

TEST_F(Runs, ARunIsRefusedByTheNameOfTheOneThatIsActive) {
    const struct {
        Starter start;
        rfo_callback &callback;
        const char *refusal;
    } cases[] = {{starters[0], upload_rf_chan_info_cb, "chan optmz is running!"},
                 {starters[1], upload_rf_power_info_cb, "power optmz is running!"}};
    for (const auto &c : cases) {
        for (const Starter second : starters) {
            SetUp();
            const std::string printed = test::printed_by([&] {
                EXPECT_EQ(c.start(hold_run, 0), 0);
                EXPECT_EQ(second(test::keep_record, 0), -1);
                end_run();
            });
            EXPECT_THAT(printed, testing::HasSubstr(c.refusal));
            EXPECT_EQ(c.callback, hold_run);
        }
    }
}

TEST_F(Runs, AWorkerThatEndsBeforeItIsNotedLeavesTheOptimiserIdle) {
    test::workers_are = test::Workers::ended_when_started;
    may_end = true;
    test::printed_by([] {
        for (const Starter start : {starters[0], starters[1], starters[0]}) EXPECT_EQ(start(hold_run, 0), 0);
    });
}

}  // namespace
