// rfo_runs_threads_test.cpp: at most one survey run of either kind, however many threads ask; and a worker that ends
// before its starter has come to note it as active.

#include <atomic>

#include "tests/rfo_world.h"

namespace {

std::atomic<int> running, most_running, finished;

// Called on the worker's thread while its run is active.
void hold_run(const void *, int) {
    const int now = ++running;
    int most = most_running;
    while (now > most && !most_running.compare_exchange_weak(most, now)) {}
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    --running;
    ++finished;
}

class Runs : public test::RfoTest {};

TEST_F(Runs, OnlyOneOfManyStartersWins) {
    running = most_running = finished = 0;
    std::atomic<int> started = 0;
    test::printed_by([&] {
        for (int round = 0; round < 5; ++round) {
            std::vector<std::thread> starters;
            for (int i = 0; i < 8; ++i)
                starters.emplace_back([&, i] {
                    const auto start = i % 2 == 0 ? rfo_create_chan_optmz_thread : rfo_create_power_optmz_thread;
                    if (start(hold_run, 0) == 0) ++started;
                });
            for (auto &starter : starters) starter.join();
            test::wait_for_worker();
        }
    });
    EXPECT_EQ(most_running, 1);
    EXPECT_EQ(started, finished);
    EXPECT_GE(started, 5);
}

TEST_F(Runs, ARunOfTheOtherKindIsRefusedByName) {
    const struct {
        int (*first)(rfo_callback, int);
        int (*second)(rfo_callback, int);
        const char *refusal;
    } cases[] = {
        {rfo_create_chan_optmz_thread, rfo_create_chan_optmz_thread, "chan optmz is running!"},
        {rfo_create_chan_optmz_thread, rfo_create_power_optmz_thread, "chan optmz is running!"},
        {rfo_create_power_optmz_thread, rfo_create_chan_optmz_thread, "power optmz is running!"},
        {rfo_create_power_optmz_thread, rfo_create_power_optmz_thread, "power optmz is running!"},
    };
    for (const auto &c : cases) {
        std::atomic<bool> go = false;
        test::world->on_scan = [&] {
            while (!go) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
        const std::string printed = test::printed_by([&] {
            EXPECT_EQ(c.first(hold_run, 0), 0);
            EXPECT_EQ(c.second(hold_run, 0), -1);
            go = true;
            test::wait_for_worker();
        });
        EXPECT_THAT(printed, testing::HasSubstr(c.refusal));
    }
}

TEST_F(Runs, AWorkerThatEndsAtOnceLeavesTheOptimiserIdle) {
    test::world->has_lan_mac = false;
    test::printed_by([] {
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(rfo_create_chan_optmz_thread(hold_run, 0), 0);
            test::wait_for_worker();
        }
    });
}

}  // namespace
