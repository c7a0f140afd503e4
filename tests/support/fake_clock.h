// fake_clock.h: a test drives the clocks of its own process, the library's included.
//
//   test::FakeClock clock;                        // stands still from here on
//   EXPECT_EQ(systool_restore(), 0);              // sleeps of two seconds return at once
//   EXPECT_EQ(clock.waits_ms(), (std::vector<int64_t>{2000}));
//
// A sleep returns at once and moves the clock on. poll, select, epoll_wait and condition variables give other threads
// and processes 10 real milliseconds, socket time-outs 50; a wait that times out moves the clock on by its whole
// length. Alarms and kernel timers keep real time. One FakeClock at a time.
#pragma once

#include <cstdint>
#include <vector>

namespace test {

class FakeClock {
public:
    static constexpr int64_t usual_start_s = 1'700'000'000;  // 14 November 2023, 22:13:20 UTC

    explicit FakeClock(int64_t calendar_s = usual_start_s);
    ~FakeClock();
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;

    void advance_ms(int64_t duration_ms);
    int64_t elapsed_ms() const;  // since it stands still, waits included

    // Each sleep, and each wait that timed out, in their order.
    std::vector<int64_t> waits_ms() const;
};

}  // namespace test
