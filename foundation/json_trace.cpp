// json_trace.cpp: the trace line of JSON documents, with the local time in front.

#include "foundation/json_trace.h"

#include <cstdio>
#include <ctime>

#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/owned.h"

namespace ap {

void trace_json(const char *function, int line, const cJSON *json) {
    if (get_dbg_level("kjson") < 3) return;

    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    const HeapPtr<char> printed(cJSON_Print(json));

    std::printf("\033[0m[%02d%02d %02d:%02d:%02d] \033[0m", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                local.tm_min, local.tm_sec);
    std::printf("\033[1;%d;%dm%04d %-20.20s: >>>> %s <<<<\n\033[0m", 40, static_cast<int>(Colour::magenta), line,
                function, printed ? printed.get() : "[PTRACE_JSON: fail]");
    std::fflush(stdout);
}

}  // namespace ap
