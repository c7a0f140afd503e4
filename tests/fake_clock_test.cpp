// A test drives its own clock: what waits returns at once, what tells the time agrees, and real events are not lost.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <thread>

#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/waits.h"

namespace {

using test::FakeClock;

TEST(FakeClock, EachWaitMovesItOnByItsLengthAndReturnsAtOnce) {
    for (const test::Wait &wait : test::waits) {
        SCOPED_TRACE(wait.name);
        FakeClock clock;
        EXPECT_TRUE(wait.run());
        EXPECT_EQ(clock.waits_ms(), std::vector<int64_t>{int64_t{test::wait_s} * 1000});
        EXPECT_EQ(clock.elapsed_ms(), test::wait_s * 1000);
    }
}

TEST(FakeClock, EverythingThatTellsTheTimeAgrees) {
    FakeClock clock(1'000'000);
    timeval day{};
    timespec precise{}, before{}, after{};
    struct sysinfo info {};
    sysinfo(&info);
    const long uptime_before = info.uptime;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(time(nullptr), 1'000'000);
    clock.advance_ms(3'600'500);
    EXPECT_EQ(time(nullptr), 1'003'600);
    gettimeofday(&day, nullptr);
    EXPECT_EQ(day.tv_sec * 1000 + day.tv_usec / 1000, 1'003'600'500);
    timespec_get(&precise, TIME_UTC);
    EXPECT_EQ(precise.tv_sec * 1000 + precise.tv_nsec / 1'000'000, 1'003'600'500);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_EQ((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1'000'000, 3'600'500);
    sysinfo(&info);
    EXPECT_GE(info.uptime - uptime_before, 3600);
    EXPECT_LE(info.uptime - uptime_before, 3601);
    const double uptime = std::stod(test::read_text("/proc/uptime"));
    EXPECT_NEAR(uptime, static_cast<double>(after.tv_sec), 1);
    EXPECT_EQ(clock.waits_ms(), std::vector<int64_t>{}) << "advancing is no wait";
}

TEST(FakeClock, StandsStillOtherwiseAndGoesWithItsEnd) {
    const time_t real = time(nullptr);
    {
        const FakeClock clock(5);
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::yield();
        EXPECT_EQ(std::chrono::steady_clock::now(), start);
        EXPECT_EQ(time(nullptr), 5);
    }
    EXPECT_GE(time(nullptr), real);
    EXPECT_LT(time(nullptr), real + 60);
}

TEST(FakeClock, AnEventThatIsThereOrComesAtOnceWinsOverTheTimeOut) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pollfd wait{ends[0], POLLIN, 0};
    FakeClock clock;
    std::thread writer([&] { ASSERT_EQ(write(ends[1], "x", 1), 1); });
    EXPECT_EQ(poll(&wait, 1, 60'000), 1);
    writer.join();
    EXPECT_EQ(poll(&wait, 1, -1), 1) << "without a limit";
    EXPECT_EQ(clock.elapsed_ms(), 0);
    EXPECT_EQ(poll(&wait, 0, 0), 0) << "a look, no wait";
    EXPECT_EQ(clock.waits_ms(), std::vector<int64_t>{});
    close(ends[0]);
    close(ends[1]);
}

TEST(FakeClock, ASocketsTimeOutIsShort) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const FakeClock clock;
    const timeval hour{3600, 0};
    ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &hour, sizeof hour), 0);
    char byte = 0;
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(ends[0]);
    close(ends[1]);
}

TEST(FakeClock, ChildrenHaveTheirOwnCopyAndWaitsOfThreadsAddUp) {
    FakeClock clock;
    EXPECT_EQ(test::run_in_child([] {
                  sleep(100);
                  if (time(nullptr) != FakeClock::usual_start_s + 100) _exit(1);
              }),
              0);
    EXPECT_EQ(clock.elapsed_ms(), 0);
    std::thread threads[4];
    const auto sleep_a_second = [] {
        for (int i = 0; i < 100; ++i) usleep(10'000);
    };
    for (std::thread &thread : threads) thread = std::thread(sleep_a_second);
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(clock.elapsed_ms(), 4 * 100 * 10);
    EXPECT_EQ(clock.waits_ms().size(), 400U);
}

TEST(FakeClock, RefusesWhatTheKernelRefuses) {
    FakeClock clock;
    const timespec wrong{0, 1'000'000'000};
    EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr), EINVAL);
    EXPECT_EQ(ppoll(nullptr, 0, &wrong, nullptr), -1);
    const timespec past{1, 0};
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &past, nullptr), 0) << "a time that has gone";
    EXPECT_EQ(clock.elapsed_ms(), 0);
}

}  // namespace
