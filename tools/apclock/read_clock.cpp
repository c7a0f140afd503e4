// read_clock.cpp: what tells the time: time, gettimeofday, clock_gettime, timespec_get, sysinfo, the file /proc/uptime.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <unistd.h>

#include "tools/apclock/clock_source.h"

namespace {

using namespace apclock;

bool is_uptime_file(const char *path) {
    return path != nullptr && mode() != Mode::real && std::strcmp(path, "/proc/uptime") == 0;
}

// The file's text for the time as this program sees it, as a descriptor. The second word, idle time, is no clock.
int open_uptime() {
    const int file = memfd_create("uptime", MFD_CLOEXEC);
    if (file < 0) return -1;
    const double uptime_s = static_cast<double>(now_ns(CLOCK_BOOTTIME)) / ns_per_s;
    dprintf(file, "%.2f %.2f\n", uptime_s, uptime_s);
    lseek(file, 0, SEEK_SET);
    return file;
}

using Open = int (*)(const char *, int, ...);
using OpenAt = int (*)(int, const char *, int, ...);
using OpenStream = FILE *(*)(const char *, const char *);

int open_by(Open &real, const char *name, const char *path, int flags, mode_t mode) {
    if (is_uptime_file(path)) return open_uptime();
    if (real == nullptr) real = reinterpret_cast<Open>(next_function(name));
    return real(path, flags, mode);
}

int open_at_by(OpenAt &real, const char *name, int folder, const char *path, int flags, mode_t mode) {
    if (is_uptime_file(path)) return open_uptime();
    if (real == nullptr) real = reinterpret_cast<OpenAt>(next_function(name));
    return real(folder, path, flags, mode);
}

FILE *open_stream_by(OpenStream &real, const char *name, const char *path, const char *how) {
    if (is_uptime_file(path)) {
        const int file = open_uptime();
        return file < 0 ? nullptr : fdopen(file, "r");
    }
    if (real == nullptr) real = reinterpret_cast<OpenStream>(next_function(name));
    return real(path, how);
}

mode_t mode_argument(int flags, va_list arguments) {
    return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

time_t time(time_t *out) noexcept {
    const auto now = static_cast<time_t>(now_ns(CLOCK_REALTIME) / ns_per_s);
    if (out != nullptr) *out = now;
    return now;
}

int gettimeofday(timeval *__restrict now, void *__restrict zone) noexcept {
    APCLOCK_REAL(gettimeofday);
    if (mode() == Mode::real) return real_gettimeofday(now, zone);
    *now = to_timeval(now_ns(CLOCK_REALTIME));
    return 0;
}

int clock_gettime(clockid_t clock, timespec *now) noexcept {
    APCLOCK_REAL(clock_gettime);
    const int result = real_clock_gettime(clock, now);
    if (result == 0 && mode() != Mode::real) *now = to_timespec(now_ns(clock));
    return result;
}

int timespec_get(timespec *now, int base) noexcept {
    if (base != TIME_UTC) return 0;
    *now = to_timespec(now_ns(CLOCK_REALTIME));
    return base;
}

int sysinfo(struct sysinfo *info) noexcept {
    APCLOCK_REAL(sysinfo);
    const int result = real_sysinfo(info);
    if (result == 0 && mode() != Mode::real) info->uptime = static_cast<long>(now_ns(CLOCK_BOOTTIME) / ns_per_s);
    return result;
}

// The names without and with "64" are two symbols of the C library, whatever the headers call them here.
#define APCLOCK_OPEN(name)                                                                                             \
    int apclock_##name(const char *path, int flags, ...) __asm__(#name);                                               \
    int apclock_##name(const char *path, int flags, ...) {                                                             \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        const mode_t mode = mode_argument(flags, arguments);                                                           \
        va_end(arguments);                                                                                             \
        static Open real;                                                                                              \
        return open_by(real, #name, path, flags, mode);                                                                \
    }

#define APCLOCK_OPENAT(name)                                                                                           \
    int apclock_##name(int folder, const char *path, int flags, ...) __asm__(#name);                                   \
    int apclock_##name(int folder, const char *path, int flags, ...) {                                                 \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        const mode_t mode = mode_argument(flags, arguments);                                                           \
        va_end(arguments);                                                                                             \
        static OpenAt real;                                                                                            \
        return open_at_by(real, #name, folder, path, flags, mode);                                                     \
    }

#define APCLOCK_FOPEN(name)                                                                                            \
    FILE *apclock_##name(const char *path, const char *how) __asm__(#name);                                            \
    FILE *apclock_##name(const char *path, const char *how) {                                                          \
        static OpenStream real;                                                                                        \
        return open_stream_by(real, #name, path, how);                                                                 \
    }

// What open is called in programs that are built with checked arguments.
#define APCLOCK_CHECKED_OPEN(checked, name)                                                                            \
    int checked(const char *path, int flags) { return apclock_##name(path, flags); }

APCLOCK_OPEN(open)
APCLOCK_OPEN(open64)
APCLOCK_CHECKED_OPEN(__open_2, open)
APCLOCK_CHECKED_OPEN(__open64_2, open64)
APCLOCK_OPENAT(openat)
APCLOCK_OPENAT(openat64)
APCLOCK_FOPEN(fopen)
APCLOCK_FOPEN(fopen64)

}  // extern "C"
