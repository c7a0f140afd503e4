// timer_clock.cpp: what fires later: alarm, interval timers, timer descriptors, and the time-outs of sockets.
//
// They follow an accelerated clock. A driven clock leaves alarms and timers to the kernel, and cuts the time-outs of
// sockets short, since what waits there is the kernel.

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "tools/apclock/clock_source.h"

namespace {

using namespace apclock;

constexpr int64_t driven_socket_limit_ns = 50 * ns_per_ms;

itimerval seen(const itimerval &real) {
    return {to_timeval(seen_length(to_ns(real.it_interval))), to_timeval(seen_length(to_ns(real.it_value)))};
}

itimerspec seen(const itimerspec &real) {
    return {to_timespec(seen_length(to_ns(real.it_interval))), to_timespec(seen_length(to_ns(real.it_value)))};
}

// Rounded up, so that a short time never becomes none.
timeval real_timeval(const timeval &time) {
    const int64_t ns = to_ns(time);
    return ns <= 0 ? time : to_timeval(real_length(ns) + ns_per_us - 1);
}

bool is_socket_limit(int level, int option, const void *value, socklen_t size) {
    return level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO) && value != nullptr &&
           size >= sizeof(timeval) && mode() != Mode::real;
}

}  // namespace

extern "C" {

int setitimer(__itimer_which_t which, const itimerval *__restrict time, itimerval *__restrict old) noexcept {
    APCLOCK_REAL(setitimer);
    if (which != ITIMER_REAL || time == nullptr || mode() != Mode::scaled) return real_setitimer(which, time, old);
    const itimerval real_time = {real_timeval(time->it_interval), real_timeval(time->it_value)};
    const int result = real_setitimer(which, &real_time, old);
    if (result == 0 && old != nullptr) *old = seen(*old);
    return result;
}

int getitimer(__itimer_which_t which, itimerval *now) noexcept {
    APCLOCK_REAL(getitimer);
    const int result = real_getitimer(which, now);
    if (result == 0 && which == ITIMER_REAL) *now = seen(*now);
    return result;
}

unsigned int alarm(unsigned int seconds) noexcept {
    itimerval time{}, old{};
    time.it_value.tv_sec = static_cast<time_t>(seconds);
    setitimer(ITIMER_REAL, &time, &old);
    const int64_t left_ns = to_ns(old.it_value);
    return static_cast<unsigned int>((left_ns + ns_per_s - 1) / ns_per_s);
}

int timerfd_settime(int timer, int flags, const itimerspec *time, itimerspec *old) noexcept {
    APCLOCK_REAL(timerfd_settime);
    if (time == nullptr || mode() != Mode::scaled) return real_timerfd_settime(timer, flags, time, old);
    const int64_t first_ns = to_ns(time->it_value);
    const bool is_point = (flags & TFD_TIMER_ABSTIME) != 0 && first_ns > 0;
    const int64_t real_ns = is_point ? real_time_point(likely_clock(first_ns), first_ns) : real_length(first_ns);
    const itimerspec real_time = {to_timespec(real_length(to_ns(time->it_interval))), to_timespec(real_ns)};
    const int result = real_timerfd_settime(timer, flags, &real_time, old);
    if (result == 0 && old != nullptr) *old = seen(*old);
    return result;
}

int timerfd_gettime(int timer, itimerspec *now) noexcept {
    APCLOCK_REAL(timerfd_gettime);
    const int result = real_timerfd_gettime(timer, now);
    if (result == 0) *now = seen(*now);
    return result;
}

int setsockopt(int socket, int level, int option, const void *value, socklen_t size) noexcept {
    APCLOCK_REAL(setsockopt);
    if (!is_socket_limit(level, option, value, size)) return real_setsockopt(socket, level, option, value, size);
    timeval limit = real_timeval(*static_cast<const timeval *>(value));
    if (mode() == Mode::driven && to_ns(limit) > driven_socket_limit_ns) limit = to_timeval(driven_socket_limit_ns);
    return real_setsockopt(socket, level, option, &limit, sizeof limit);
}

int getsockopt(int socket, int level, int option, void *__restrict value, socklen_t *__restrict size) noexcept {
    APCLOCK_REAL(getsockopt);
    const int result = real_getsockopt(socket, level, option, value, size);
    if (result == 0 && is_socket_limit(level, option, value, *size) && mode() == Mode::scaled) {
        auto *limit = static_cast<timeval *>(value);
        *limit = to_timeval(seen_length(to_ns(*limit)));
    }
    return result;
}

}  // extern "C"
