// A test drives its own clock: what waits returns at once, what tells the time agrees, and real events are not lost.

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

int64_t ms_of(const timespec &time) { return time.tv_sec * 1000 + time.tv_nsec / 1'000'000; }
int64_t now_ms(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return ms_of(now);
}

TEST(FakeClock, EverythingThatTellsTheTimeAgreesAndStandsStillToItsEnd) {
    const time_t real = time(nullptr);
    {
        FakeClock clock(1'000'000);
        struct sysinfo info {};
        sysinfo(&info);
        const long uptime_before = info.uptime;
        const int64_t before = now_ms(CLOCK_MONOTONIC);
        EXPECT_EQ(time(nullptr), 1'000'000);
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::yield();
        EXPECT_EQ(std::chrono::steady_clock::now(), start);
        clock.advance_ms(3'600'500);
        timeval day{};
        timespec precise{};
        gettimeofday(&day, nullptr);
        timespec_get(&precise, TIME_UTC);
        EXPECT_EQ(time(nullptr), 1'003'600);
        EXPECT_EQ(day.tv_sec * 1000 + day.tv_usec / 1000, 1'003'600'500);
        EXPECT_EQ(ms_of(precise), 1'003'600'500);
        EXPECT_EQ(now_ms(CLOCK_MONOTONIC) - before, 3'600'500);
        sysinfo(&info);
        EXPECT_NEAR(static_cast<double>(info.uptime - uptime_before), 3600.5, 0.5);
        const auto uptime_ms = static_cast<double>(now_ms(CLOCK_MONOTONIC));
        EXPECT_NEAR(std::stod(test::read_text("/proc/uptime")), uptime_ms / 1000, 1);
        EXPECT_EQ(clock.waits_ms(), std::vector<int64_t>{}) << "advancing is no wait";
    }
    EXPECT_GE(time(nullptr), real);
    EXPECT_LT(time(nullptr), real + 60);
}

TEST(FakeClock, AnEventThatIsThereOrComesAtOnceWinsOverTheTimeOut) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    pollfd wait{ends[0], POLLIN, 0};
    FakeClock clock;
    std::thread writer([&] { ASSERT_EQ(write(ends[1], "x", 1), 1); });
    EXPECT_EQ(poll(&wait, 1, 60'000), 1);
    writer.join();
    EXPECT_EQ(poll(&wait, 1, -1), 1) << "without a limit";
    EXPECT_EQ(poll(&wait, 0, 0), 0) << "a look, no wait";
    EXPECT_EQ(clock.waits_ms(), std::vector<int64_t>{});
    EXPECT_EQ(clock.elapsed_ms(), 0);

    const timeval hour{3600, 0};
    ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &hour, sizeof hour), 0);
    char byte = 0;
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), 1);
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    for (const int end : ends) close(end);
}

TEST(FakeClock, RefusesWhatTheKernelRefuses) {
    FakeClock clock;
    const timespec wrong{0, 1'000'000'000}, past{1, 0};
    EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr), EINVAL);
    EXPECT_EQ(ppoll(nullptr, 0, &wrong, nullptr), -1);
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &past, nullptr), 0) << "a time that has gone";
    EXPECT_EQ(clock.elapsed_ms(), 0);
}

}  // namespace
