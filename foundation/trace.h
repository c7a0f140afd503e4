// trace.h: notes where a function is entered and left, in the platform's log or in the diagnostic log.
#pragma once

#include "applatform/commands.h"
#include "apsupport/foundation.h"

namespace ap {

// "function entry!" and "function exit!" in the platform's log.
class PlatformTrace {
public:
    PlatformTrace(const char *function, int line, const char *module)
        : function_(function), line_(line), module_(module) {
        log_debug_print(function_, line_, trace_level, module_, "function entry!");
    }
    ~PlatformTrace() { log_debug_print(function_, line_, trace_level, module_, "function exit!"); }
    PlatformTrace(const PlatformTrace &) = delete;
    PlatformTrace &operator=(const PlatformTrace &) = delete;

private:
    static constexpr int trace_level = 6;

    const char *function_;
    int line_;
    const char *module_;
};

// "ENTER >>> NAME" and "LEAVE <<< NAME" in the diagnostic log, while the level of "prod" is 5 or more.
class ProdTrace {
public:
    ProdTrace(const char *function, int line) : function_(function), line_(line) { note("ENTER >>> %s"); }
    ~ProdTrace() { note("LEAVE <<< %s"); }
    ProdTrace(const ProdTrace &) = delete;
    ProdTrace &operator=(const ProdTrace &) = delete;

private:
    __attribute__((format(printf, 2, 0))) void note(const char *format) const {
        if (get_dbg_level("prod") >= 5) prod_debug(function_, line_, 5, "prod", format, function_);
    }

    const char *function_;
    int line_;
};

}  // namespace ap

#define AP_PLATFORM_TRACE(module) const ::ap::PlatformTrace ap_platform_trace(__func__, __LINE__, module)
#define AP_PROD_TRACE() const ::ap::ProdTrace ap_prod_trace(__func__, __LINE__)
