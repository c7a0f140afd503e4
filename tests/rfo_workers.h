// rfo_workers.h: the optimiser's workers, caught where the library lets go of them, so that a test can wait for their
// end, have them end at once, or not start at all. Include it in one source of a test program.
#pragma once

// NOLINTBEGIN(misc-definitions-in-headers): included in one source of a program

#include <cerrno>
#include <dlfcn.h>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace test {

enum class Workers { usual, ended_when_started, refused };
inline Workers workers_are = Workers::usual;

inline std::vector<pthread_t> workers;  // those that were let go
inline std::mutex workers_mutex;

inline void wait_for_worker() {
    const std::lock_guard guard(workers_mutex);
    for (const pthread_t worker : workers) pthread_join(worker, nullptr);
    workers.clear();
}

}  // namespace test

extern "C" {
int pthread_detach(pthread_t thread) noexcept {
    const std::lock_guard guard(test::workers_mutex);
    if (test::workers_are == test::Workers::usual) test::workers.push_back(thread);
    return 0;
}
int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) noexcept {
    static const auto create = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (test::workers_are == test::Workers::refused) return EAGAIN;
    const int result = create(thread, attributes, body, argument);
    if (result == 0 && test::workers_are == test::Workers::ended_when_started) pthread_join(*thread, nullptr);
    return result;
}
}
// NOLINTEND(misc-definitions-in-headers)
