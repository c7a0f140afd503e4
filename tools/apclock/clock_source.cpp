// clock_source.cpp: see clock_source.h. The state is a few words, read and written without a lock.

#include "tools/apclock/clock_source.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/apclock/control.h"

namespace apclock {

namespace {

constexpr const char *box_clock = "/apbox/clock";
constexpr uint32_t most_waits = 4096;

struct State {
    uint32_t mode = 0;
    double factor = 1;
    int64_t start_ns = 0;  // scaled: the calendar time from which time runs faster
    int64_t calendar_ns = 0,
            monotonic_ns = 0;  // driven: where the clocks stood when they were taken over
    int64_t elapsed_ns = 0;
    uint32_t wait_count = 0;
    int64_t waits_ns[most_waits] = {};
} state;

template <typename Word> Word load(const Word &word) { return __atomic_load_n(&word, __ATOMIC_ACQUIRE); }
template <typename Word> void store(Word &word, Word value) { __atomic_store_n(&word, value, __ATOMIC_RELEASE); }

// 64-bit words that threads share; a 32-bit processor has no atomic access to them.
class Guard {
public:
    Guard() {
        while (__atomic_exchange_n(&locked, 1U, __ATOMIC_ACQUIRE) != 0) {}
    }
    ~Guard() { __atomic_store_n(&locked, 0U, __ATOMIC_RELEASE); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

private:
    static inline uint32_t locked = 0;
};

int64_t kernel_ns(clockid_t clock) {
    APCLOCK_REAL(clock_gettime);
    timespec now{};
    real_clock_gettime(clock, &now);
    return to_ns(now);
}

bool is_calendar(clockid_t clock) { return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE; }

bool is_since_start(clockid_t clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_BOOTTIME;
}

Mode find_mode() {
    const int saved = errno;
    const auto file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, box_clock, O_RDONLY | O_CLOEXEC));
    char text[128] = "";
    const ssize_t length = file < 0 ? -1 : read(file, text, sizeof text - 1);
    if (file >= 0) close(file);
    errno = saved;
    if (length <= 0) return Mode::real;
    char *rest = nullptr;
    state.factor = std::strtod(text, &rest);
    state.start_ns = std::strtoll(rest, nullptr, 10);
    return state.factor > 0 && state.start_ns > 0 ? Mode::scaled : Mode::real;
}

int64_t scaled(int64_t ns) { return static_cast<int64_t>(static_cast<double>(ns) * state.factor); }

// A box's clock since its start begins at zero, so it needs no other origin.
int64_t origin(clockid_t clock) { return is_calendar(clock) ? state.start_ns : 0; }

}  // namespace

Mode mode() {
    uint32_t known = load(state.mode);
    if (known == 0) {
        known = static_cast<uint32_t>(find_mode());
        uint32_t unknown = 0;
        if (!__atomic_compare_exchange_n(&state.mode, &unknown, known, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
            known = unknown;
    }
    return static_cast<Mode>(known);
}

int64_t now_ns(clockid_t clock) {
    const Mode known = mode();
    const int64_t now = known == Mode::driven ? 0 : kernel_ns(clock);
    if (known == Mode::real || !(is_calendar(clock) || is_since_start(clock))) return kernel_ns(clock);
    if (known == Mode::scaled) return origin(clock) + scaled(now - origin(clock));
    const Guard guard;
    return (is_calendar(clock) ? state.calendar_ns : state.monotonic_ns) + state.elapsed_ns;
}

int64_t real_length(int64_t duration_ns) {
    if (mode() != Mode::scaled || duration_ns <= 0) return duration_ns;
    const auto real_ns = static_cast<int64_t>(static_cast<double>(duration_ns) / state.factor);
    return real_ns > 0 ? real_ns : 1;
}

int64_t seen_length(int64_t real_ns) { return mode() == Mode::scaled ? scaled(real_ns) : real_ns; }

int64_t real_time_point(clockid_t clock, int64_t seen_ns) {
    if (mode() != Mode::scaled || !(is_calendar(clock) || is_since_start(clock))) return seen_ns;
    return origin(clock) + real_length(seen_ns - origin(clock));
}

clockid_t likely_clock(int64_t time_point_ns) {
    const int64_t to_calendar = std::llabs(time_point_ns - now_ns(CLOCK_REALTIME));
    return to_calendar <= std::llabs(time_point_ns - now_ns(CLOCK_MONOTONIC)) ? CLOCK_REALTIME : CLOCK_MONOTONIC;
}

void pass(int64_t duration_ns) {
    if (duration_ns < 0) return;
    const Guard guard;
    state.elapsed_ns += duration_ns;
    if (state.wait_count < most_waits) state.waits_ns[state.wait_count++] = duration_ns;
}

timespec to_timespec(int64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / ns_per_s);
    time.tv_nsec = static_cast<long>(ns % ns_per_s);
    return time;
}

timeval to_timeval(int64_t ns) {
    timeval time{};
    time.tv_sec = static_cast<time_t>(ns / ns_per_s);
    time.tv_usec = static_cast<suseconds_t>(ns % ns_per_s / ns_per_us);
    return time;
}

void *next_function(const char *name) {
    // Of the condition variables' functions a plain look-up finds the ones from before their present layout.
    void *const versioned =
        std::strncmp(name, "pthread_cond_", 13) == 0 ? dlvsym(RTLD_NEXT, name, "GLIBC_2.3.2") : nullptr;
    return versioned != nullptr ? versioned : dlsym(RTLD_NEXT, name);
}

}  // namespace apclock

using namespace apclock;

void apclock_drive(int64_t calendar_ns) {
    const int64_t monotonic_ns = now_ns(CLOCK_MONOTONIC);
    const Guard guard;
    state.calendar_ns = calendar_ns;
    state.monotonic_ns = monotonic_ns;
    state.elapsed_ns = 0;
    state.wait_count = 0;
    store(state.mode, static_cast<uint32_t>(Mode::driven));
}

void apclock_release(void) { store(state.mode, static_cast<uint32_t>(Mode::unknown)); }

void apclock_advance(int64_t duration_ns) {
    const Guard guard;
    state.elapsed_ns += duration_ns;
}

int64_t apclock_elapsed(void) {
    const Guard guard;
    return state.elapsed_ns;
}

uint32_t apclock_waits(int64_t *durations_ns, uint32_t room) {
    const Guard guard;
    const uint32_t count = state.wait_count < room ? state.wait_count : room;
    if (count > 0) std::memcpy(durations_ns, state.waits_ns, count * sizeof *durations_ns);
    return state.wait_count;
}
