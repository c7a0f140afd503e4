// clock_source.h: what time it is for this process, and how long a wait really takes.
//
// Time is one of
//   real     as the kernel has it
//   scaled   in a box with an accelerated clock; the file /apbox/clock holds the factor and the start in nanoseconds
//   driven   by this program (control.h)
// Loaded into programs of any kind: no C++ runtime, nothing before the first call, errno left alone on success.
#pragma once

#include <ctime>
#include <dlfcn.h>
#include <stdint.h>

#pragma GCC visibility push(hidden)

namespace apclock {

constexpr int64_t ns_per_s = 1'000'000'000, ns_per_ms = 1'000'000, ns_per_us = 1'000;

enum class Mode : uint32_t { unknown, real, scaled, driven };

Mode mode();

int64_t now_ns(clockid_t clock);

// What a wait of this length takes in the kernel's time when time is scaled; never 0 for more than 0.
int64_t real_length(int64_t duration_ns);

// The opposite: how much has passed for the program in so much of the kernel's time.
int64_t seen_length(int64_t real_ns);

// The kernel's time at which the program's clock shows `seen_ns`.
int64_t real_time_point(clockid_t clock, int64_t seen_ns);

// The clock that an absolute time of unknown origin most likely belongs to: the calendar's or the one since start.
clockid_t likely_clock(int64_t time_point_ns);

// Driven time: notes a wait that was slept through or timed out, and moves the clock on.
void pass(int64_t duration_ns);

// How long a driven wait really gives others to act.
constexpr int64_t grace_ns = 10 * ns_per_ms;

inline int64_t to_ns(const timespec &time) { return int64_t{time.tv_sec} * ns_per_s + time.tv_nsec; }
inline int64_t to_ns(const timeval &time) {
    return int64_t{time.tv_sec} * ns_per_s + int64_t{time.tv_usec} * ns_per_us;
}
timespec to_timespec(int64_t ns);
timeval to_timeval(int64_t ns);

// The function of this name behind this library: the C library's, or that of another library that stands in front of
// it.
void *next_function(const char *name);

template <typename Function> Function *next(const char *name, Function *) {
    return reinterpret_cast<Function *>(next_function(name));
}

}  // namespace apclock

#pragma GCC visibility pop

// The real function of the same name and type, found once.
#define APCLOCK_REAL(name)                                                                                             \
    static decltype(&::name) real_##name;                                                                              \
    if (real_##name == nullptr) real_##name = apclock::next(#name, static_cast<decltype(&::name)>(nullptr))
