// A box whose clock runs fast: every wait is as much shorter, and the time that programs see passes as much faster. The
// program stays outside and runs itself once more in such a box.

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <thread>

#include "tests/support/box_entry.h"
#include "tests/support/outside_box.h"
#include "tests/support/waits.h"

namespace {

using namespace test;

constexpr double factor = 200;  // two seconds take ten milliseconds

double seconds(const timespec &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The kernel's own clock, past every library, and the two that programs see.
std::array<double, 3> clocks_s() {
    timespec kernel{}, calendar{}, monotonic{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &kernel);
    clock_gettime(CLOCK_REALTIME, &calendar);
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    return {seconds(kernel), seconds(calendar), seconds(monotonic)};
}

template <typename Action> void expect_accelerated(Action action) {
    const auto before = clocks_s();
    EXPECT_TRUE(action());
    const auto after = clocks_s();
    const double kernel_passed = after[0] - before[0];
    for (const size_t seen : {1U, 2U}) {
        EXPECT_GE(after[seen] - before[seen], wait_s * 0.999);
        EXPECT_NEAR(after[seen] - before[seen], kernel_passed * factor, 1 + kernel_passed * factor / 10);
    }
    EXPECT_LT(kernel_passed, 1);
}

TEST(Accelerated, EveryWait) {
    for (const Wait &wait : waits) {
        SCOPED_TRACE(wait.name);
        expect_accelerated(wait.run);
    }
}

TEST(Accelerated, TimersAndSocketTimeOuts) {
    const timeval length{wait_s, 0};
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &length, sizeof length), 0);
    expect_accelerated([&] {
        char byte = 0;
        return recv(ends[0], &byte, 1, 0) == -1;
    });
    timeval told{};
    socklen_t size = sizeof told;
    ASSERT_EQ(getsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &told, &size), 0);
    EXPECT_NEAR(static_cast<double>(told.tv_sec), wait_s, 1.5) << "in whole ticks of the kernel";
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    itimerspec once{};
    once.it_value.tv_sec = wait_s;
    expect_accelerated([&] {
        uint64_t count = 0;
        return timerfd_settime(timer, 0, &once, nullptr) == 0 && read(timer, &count, sizeof count) == sizeof count;
    });
    std::signal(SIGALRM, [](int) {});
    expect_accelerated([] { return alarm(wait_s) == 0 && pause() == -1; });
    for (const int fd : {ends[0], ends[1], timer}) close(fd);
}

TEST(Accelerated, ASignalTellsHowMuchWasLeft) {
    static pthread_t sleeper;
    sleeper = pthread_self();
    std::signal(SIGUSR1, [](int) {});
    std::thread waker([] {
        usleep(2'000'000);
        pthread_kill(sleeper, SIGUSR1);
    });
    const unsigned int left = sleep(1000);
    EXPECT_GT(left, 0U);
    EXPECT_LT(left, 999U);
    waker.join();
}

class ClockBox : public testing::TestWithParam<As> {};

TEST_P(ClockBox, AcceleratesAProgram) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const Outcome outcome = apbox({"run", "--clock", "200", "--", self}, GetParam());
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_P(ClockBox, ProcessesAndRestartsShareOneTime) {
    // The uptime begins anew with the device; the calendar goes on.
    const Outcome outcome = script_in_box(
        "case $(cat /apbox/boot) in 1) /usr/bin/sleep 100; /usr/bin/date +%s > /cfg/date; kill 1; sleep 1000;; *) "
        "[ $(/usr/bin/date +%s) -ge $(cat /cfg/date) ] && [ $(/usr/bin/cut -d. -f1 /proc/uptime) -lt 10000 ] && echo "
        "fine;; esac",
        GetParam(), {"--clock", "1000"});
    EXPECT_EQ(outcome.output, "fine\n");
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, ClockBox, testing::ValuesIn(in_box() ? std::vector{As::caller} : test::callers()),
                         [](const auto &caller) { return std::string(test::name_of(caller.param)); });

int main(int argc, char **argv) {
    if (!test::in_box()) {
        if (testing::GTEST_FLAG(filter) == "*") testing::GTEST_FLAG(filter) = "*ClockBox*";
        return test::main_outside_box(argc, argv);
    }
    testing::GTEST_FLAG(filter) = "Accelerated.*";
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
