// waits.h: every way to wait for a while that a program has, as a table; for tests of the clocks.
#pragma once

#include <cerrno>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

namespace test {

constexpr int wait_s = 2;  // what each of them waits

inline timespec in_two_seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    time.tv_sec += wait_s;
    return time;
}

// Each returns whether the call answered as it does after the whole time.
struct Wait {
    const char *name;
    bool (*run)();
};

inline const Wait waits[] = {
    {"sleep", [] { return sleep(wait_s) == 0; }},
    {"usleep", [] { return usleep(wait_s * 1'000'000) == 0; }},
    {"nanosleep",
     [] {
         const timespec length{wait_s, 0};
         return nanosleep(&length, nullptr) == 0;
     }},
    {"clock_nanosleep",
     [] {
         const timespec length{wait_s, 0};
         return clock_nanosleep(CLOCK_MONOTONIC, 0, &length, nullptr) == 0;
     }},
    {"clock_nanosleep until",
     [] {
         const timespec end = in_two_seconds(CLOCK_REALTIME);
         return clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &end, nullptr) == 0;
     }},
    {"poll", [] { return poll(nullptr, 0, wait_s * 1000) == 0; }},
    {"ppoll",
     [] {
         const timespec length{wait_s, 0};
         return ppoll(nullptr, 0, &length, nullptr) == 0;
     }},
    {"select",
     [] {
         timeval length{wait_s, 0};
         return select(0, nullptr, nullptr, nullptr, &length) == 0 && length.tv_sec == 0;
     }},
    {"pselect",
     [] {
         const timespec length{wait_s, 0};
         return pselect(0, nullptr, nullptr, nullptr, &length, nullptr) == 0;
     }},
    {"epoll_wait",
     [] {
         const int epoll = epoll_create1(EPOLL_CLOEXEC);
         epoll_event event{};
         const bool timed_out = epoll_wait(epoll, &event, 1, wait_s * 1000) == 0;
         close(epoll);
         return timed_out;
     }},
    {"pthread_cond_timedwait",
     [] {
         pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
         pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
         const timespec end = in_two_seconds(CLOCK_REALTIME);
         pthread_mutex_lock(&mutex);
         const int result = pthread_cond_timedwait(&condition, &mutex, &end);
         pthread_mutex_unlock(&mutex);
         return result == ETIMEDOUT;
     }},
    {"std::condition_variable",
     [] {
         std::mutex mutex;
         std::condition_variable condition;
         std::unique_lock lock(mutex);
         return condition.wait_for(lock, std::chrono::seconds(wait_s)) == std::cv_status::timeout;
     }},
    {"sem_timedwait",
     [] {
         sem_t semaphore;
         sem_init(&semaphore, 0, 0);
         const timespec end = in_two_seconds(CLOCK_REALTIME);
         return sem_timedwait(&semaphore, &end) == -1 && errno == ETIMEDOUT;
     }},
};

}  // namespace test
