// trace.h: notes a function's entry and exit in the diagnostic log while the level of "prod" is 5.
#pragma once

#include "apsupport/foundation.h"

namespace ap {

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

#define AP_PROD_TRACE() const ::ap::ProdTrace ap_prod_trace(__func__, __LINE__)
