// wait_clock.cpp: what waits: sleep and its kin, poll, select, epoll, condition variables, semaphores.

#include <cerrno>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/apclock/clock_source.h"

namespace {

using namespace apclock;

// Sleeps as long as the program means; what was left when a signal came, 0 otherwise, -1 with errno set for bad
// arguments.
int64_t sleep_for(int64_t duration_ns) {
    APCLOCK_REAL(nanosleep);
    if (mode() == Mode::driven) {
        pass(duration_ns);
        sched_yield();
        return 0;
    }
    const timespec length = to_timespec(real_length(duration_ns));
    timespec left{};
    if (real_nanosleep(&length, &left) == 0) return 0;
    return errno == EINTR ? seen_length(to_ns(left)) : -1;
}

// A wait with a time-out. `wait` does it for a length in the kernel's time (null: for ever) and returns what the call
// returns, 0 for a time-out.
template <typename Wait> int wait_for(bool has_limit, int64_t limit_ns, Wait wait) {
    if (!has_limit) return wait(nullptr);
    const bool is_driven = mode() == Mode::driven;
    const int64_t real_ns = !is_driven ? real_length(limit_ns) : limit_ns < grace_ns ? limit_ns : grace_ns;
    timespec length = to_timespec(real_ns);
    const int result = wait(&length);
    if (result == 0 && is_driven && limit_ns > 0) pass(limit_ns);
    return result;
}

bool is_length(const timespec &time) { return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < ns_per_s; }

int epoll_for(int epoll, epoll_event *events, int room, const timespec *length, const sigset_t *mask) {
    APCLOCK_REAL(epoll_pwait);
#ifdef SYS_epoll_pwait2
    if (length != nullptr) {  // finer than milliseconds, where the kernel has it
        const int64_t precise[2] = {length->tv_sec, length->tv_nsec};
        const long result = syscall(SYS_epoll_pwait2, epoll, events, room, precise, mask, _NSIG / 8);
        if (result >= 0 || errno != ENOSYS) return static_cast<int>(result);
    }
#endif
    const int limit_ms = length == nullptr ? -1 : static_cast<int>((to_ns(*length) + ns_per_ms - 1) / ns_per_ms);
    return real_epoll_pwait(epoll, events, room, limit_ms, mask);
}

// A wait up to a point in time: `wait` does it up to a point in the kernel's time and returns 0 or an error number.
template <typename Wait> int wait_until(clockid_t clock, const timespec *limit, Wait wait) {
    if (mode() == Mode::real || !is_length(*limit)) return wait(limit);
    const int64_t limit_ns = to_ns(*limit);
    if (mode() == Mode::scaled) {
        const timespec real_limit = to_timespec(real_time_point(clock, limit_ns));
        return wait(&real_limit);
    }
    APCLOCK_REAL(clock_gettime);
    timespec soon{};
    real_clock_gettime(clock, &soon);
    soon = to_timespec(to_ns(soon) + grace_ns);
    const int result = wait(&soon);
    if (result == ETIMEDOUT) pass(limit_ns - now_ns(clock));
    return result;
}

}  // namespace

extern "C" {

unsigned int sleep(unsigned int seconds) {
    const int64_t left_ns = sleep_for(int64_t{seconds} * ns_per_s);
    return left_ns <= 0 ? 0 : static_cast<unsigned int>((left_ns + ns_per_s / 2) / ns_per_s);
}

int usleep(useconds_t microseconds) {
    const int64_t left_ns = sleep_for(int64_t{microseconds} * ns_per_us);
    if (left_ns > 0) errno = EINTR;
    return left_ns == 0 ? 0 : -1;
}

int nanosleep(const timespec *length, timespec *left) {
    APCLOCK_REAL(nanosleep);
    if (length == nullptr || !is_length(*length)) return real_nanosleep(length, left);
    const int64_t left_ns = sleep_for(to_ns(*length));
    if (left_ns > 0 && left != nullptr) *left = to_timespec(left_ns);
    if (left_ns > 0) errno = EINTR;
    return left_ns == 0 ? 0 : -1;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec *length, timespec *left) {
    APCLOCK_REAL(clock_nanosleep);
    if (mode() == Mode::real || length == nullptr || !is_length(*length))
        return real_clock_nanosleep(clock, flags, length, left);
    const int64_t until_ns = to_ns(*length) - ((flags & TIMER_ABSTIME) != 0 ? now_ns(clock) : 0);
    if (until_ns <= 0) return 0;
    const int64_t left_ns = sleep_for(until_ns);
    if (left_ns > 0 && left != nullptr && (flags & TIMER_ABSTIME) == 0) *left = to_timespec(left_ns);
    return left_ns == 0 ? 0 : errno;
}

int poll(pollfd *waits, nfds_t count, int limit_ms) {
    APCLOCK_REAL(ppoll);
    return wait_for(limit_ms >= 0, int64_t{limit_ms} * ns_per_ms,
                    [&](const timespec *length) { return real_ppoll(waits, count, length, nullptr); });
}

// What poll is called in programs that are built with checked buffers.
int __poll_chk(pollfd *waits, nfds_t count, int limit_ms, size_t) { return poll(waits, count, limit_ms); }

int ppoll(pollfd *waits, nfds_t count, const timespec *limit, const sigset_t *mask) {
    APCLOCK_REAL(ppoll);
    if (limit != nullptr && !is_length(*limit)) return real_ppoll(waits, count, limit, mask);
    return wait_for(limit != nullptr, limit == nullptr ? 0 : to_ns(*limit),
                    [&](const timespec *length) { return real_ppoll(waits, count, length, mask); });
}

int select(int count, fd_set *__restrict reads, fd_set *__restrict writes, fd_set *__restrict exceptions,
           timeval *__restrict limit) {
    APCLOCK_REAL(select);
    return wait_for(limit != nullptr, limit == nullptr ? 0 : to_ns(*limit), [&](const timespec *length) {
        timeval left = length == nullptr ? timeval{} : to_timeval(to_ns(*length) + ns_per_us - 1);
        const int result = real_select(count, reads, writes, exceptions, length == nullptr ? nullptr : &left);
        if (limit != nullptr && mode() != Mode::real) *limit = to_timeval(seen_length(to_ns(left)));
        if (limit != nullptr && mode() == Mode::real) *limit = left;
        return result;
    });
}

int pselect(int count, fd_set *__restrict reads, fd_set *__restrict writes, fd_set *__restrict exceptions,
            const timespec *__restrict limit, const sigset_t *__restrict mask) {
    APCLOCK_REAL(pselect);
    return wait_for(limit != nullptr, limit == nullptr ? 0 : to_ns(*limit), [&](const timespec *length) {
        return real_pselect(count, reads, writes, exceptions, length, mask);
    });
}

int epoll_pwait(int epoll, epoll_event *events, int room, int limit_ms, const sigset_t *mask) {
    return wait_for(limit_ms >= 0, int64_t{limit_ms} * ns_per_ms,
                    [&](const timespec *length) { return epoll_for(epoll, events, room, length, mask); });
}

int epoll_wait(int epoll, epoll_event *events, int room, int limit_ms) {
    return epoll_pwait(epoll, events, room, limit_ms, nullptr);
}

int pthread_cond_timedwait(pthread_cond_t *__restrict condition, pthread_mutex_t *__restrict mutex,
                           const timespec *__restrict limit) {
    APCLOCK_REAL(pthread_cond_timedwait);
    // Which clock the condition counts by cannot be asked; a time far from one clock's present is the other's.
    return wait_until(likely_clock(to_ns(*limit)), limit, [&](const timespec *real_limit) {
        return real_pthread_cond_timedwait(condition, mutex, real_limit);
    });
}

int pthread_cond_clockwait(pthread_cond_t *__restrict condition, pthread_mutex_t *__restrict mutex, clockid_t clock,
                           const timespec *__restrict limit) {
    APCLOCK_REAL(pthread_cond_clockwait);
    return wait_until(clock, limit, [&](const timespec *real_limit) {
        return real_pthread_cond_clockwait(condition, mutex, clock, real_limit);
    });
}

int sem_clockwait(sem_t *__restrict semaphore, clockid_t clock, const timespec *__restrict limit) {
    APCLOCK_REAL(sem_clockwait);
    const int error = wait_until(clock, limit, [&](const timespec *real_limit) {
        return real_sem_clockwait(semaphore, clock, real_limit) == 0 ? 0 : errno;
    });
    if (error != 0) errno = error;
    return error == 0 ? 0 : -1;
}

int sem_timedwait(sem_t *__restrict semaphore, const timespec *__restrict limit) {
    return sem_clockwait(semaphore, CLOCK_REALTIME, limit);
}

}  // extern "C"
