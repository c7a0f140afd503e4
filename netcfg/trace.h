// trace.h: the lines that mark where a function is entered and left, in the platform's log or in the diagnostic log.
#pragma once

#include "applatform/commands.h"
#include "apsupport/foundation.h"

namespace ap {

inline constexpr char platform_log_module[] = "common_so";  // of what moves with the LAN address
inline constexpr char network_log_module[] = "netctrl";     // of conflicts and WAN state
inline constexpr char table_log_module[] = "prod";          // of the system table readers

// "function entry!" and "function exit!" in the platform's log.
class PlatformTrace {
public:
    PlatformTrace(const char *function, int line) : function_(function), line_(line) {
        log_debug_print(function_, line_, trace_level, platform_log_module, "function entry!");
    }
    ~PlatformTrace() { log_debug_print(function_, line_, trace_level, platform_log_module, "function exit!"); }
    PlatformTrace(const PlatformTrace &) = delete;
    PlatformTrace &operator=(const PlatformTrace &) = delete;

private:
    static constexpr int trace_level = 6;

    const char *function_;
    int line_;
};

// "ENTER >>> NAME" and "LEAVE <<< NAME" in the diagnostic log, while its level is above 4.
class TableTrace {
public:
    TableTrace(const char *function, int line) : function_(function), line_(line) { note("ENTER >>> %s"); }
    ~TableTrace() { note("LEAVE <<< %s"); }
    TableTrace(const TableTrace &) = delete;
    TableTrace &operator=(const TableTrace &) = delete;

private:
    __attribute__((format(printf, 2, 0))) void note(const char *format) const {
        if (get_dbg_level(table_log_module) > 4) prod_debug(function_, line_, 5, table_log_module, format, function_);
    }
    const char *function_;
    int line_;
};

}  // namespace ap

#define AP_PLATFORM_TRACE() const ::ap::PlatformTrace ap_platform_trace(__func__, __LINE__)
#define AP_TABLE_TRACE() const ::ap::TableTrace ap_table_trace(__func__, __LINE__)
