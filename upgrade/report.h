// report.h: how the upgrade speaks: lines of its log and lines on the console.
//
// A line of the log goes to the diagnostic log, where whoever watches the console sees it, and to the platform's
// logger, where it is found after the reboot.
#pragma once

#include <cstdio>

#include "foundation/console.h"

#define AP_UPGRADE_MODULE "ap_common_so"

#define AP_UPGRADE_LOG(level, ...)                                                                                     \
    ((void)AP_DEBUG(level, AP_UPGRADE_MODULE, __VA_ARGS__), AP_PLATFORM_LOG(level, AP_UPGRADE_MODULE, __VA_ARGS__))

// A line on the console; the format begins with the caller's name and line.
#define AP_UPGRADE_PRINT(format, ...) ((void)std::printf(format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))

// Logs that a function is entered, and on every way out that it is left.
#define AP_UPGRADE_TRACE() const ap::FunctionTrace function_trace(__func__, __LINE__)

namespace ap {

// A line of the log as another function's, where the macro would log the caller's name.
inline void log_as(const char *function, int line, int level, const char *text) {
    prod_debug(function, line, level, AP_UPGRADE_MODULE, "%s", text);
    log_debug_print(function, line, level, AP_UPGRADE_MODULE, "%s", text);
}

class FunctionTrace {
public:
    FunctionTrace(const char *function, int line) : function_(function), line_(line) {
        log_as(function_, line_, 6, "function entry!");
    }
    ~FunctionTrace() { log_as(function_, line_, 6, "function exit!"); }
    FunctionTrace(const FunctionTrace &) = delete;
    FunctionTrace &operator=(const FunctionTrace &) = delete;

private:
    const char *function_;
    int line_;
};

}  // namespace ap
