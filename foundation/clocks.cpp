// clocks.cpp: clocks in microseconds and milliseconds, the system's uptime, and date texts in local time.
//
// Each date function has a static buffer of its own that its next call overwrites.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/sysinfo.h>
#include <sys/time.h>

#include "apsupport/foundation.h"
#include "foundation/console.h"

namespace ap {

namespace {

timespec monotonic_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

timeval wall_clock_now() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now;
}

using DateText = char[20];

// A time zone that is changed while the process runs counts from the next text on.
struct tm local_time(time_t seconds) {
    tzset();
    struct tm local = {};
    localtime_r(&seconds, &local);
    return local;
}

const char *format_date(DateText &out, time_t seconds) {
    const struct tm local = local_time(seconds);
    const int length =
        std::snprintf(out, sizeof out, "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    if (length < 0) out[0] = '\0';
    return out;
}

const char *format_date_and_time(DateText &out, time_t seconds) {
    const struct tm local = local_time(seconds);
    const int length = std::snprintf(out, sizeof out, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                                     local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    if (length < 0) out[0] = '\0';
    return out;
}

}  // namespace

}  // namespace ap

uint64_t get_now_us(void) {
    const timespec now = ap::monotonic_now();
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

uint64_t get_now_ms(void) {
    const timespec now = ap::monotonic_now();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t get_systime_us(void) {
    const timeval now = ap::wall_clock_now();
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}

uint64_t get_systime_ms(void) {
    const timeval now = ap::wall_clock_now();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

int get_sys_uptime(void) {
    struct sysinfo info = {};
    if (sysinfo(&info) != 0) return AP_ERROR("prod", "Failed(%d) to get sysinfo, %s.", errno, std::strerror(errno));
    return static_cast<int>(info.uptime);
}

const char *get_date_str_by_sec(time_t seconds) {
    static ap::DateText text;
    return ap::format_date(text, seconds);
}

const char *get_date_str(void) {
    static ap::DateText text;
    return ap::format_date(text, time(nullptr));
}

const char *get_datetime_str_by_sec(time_t seconds) {
    static ap::DateText text;
    return ap::format_date_and_time(text, seconds);
}

const char *get_datetime_str(void) {
    static ap::DateText text;
    return ap::format_date_and_time(text, time(nullptr));
}
