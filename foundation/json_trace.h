// json_trace.h: prints a JSON document that is handed to the platform, while the debug level of "kjson" is 3 or more.
#pragma once

#include <cjson/cJSON.h>

namespace ap {

void trace_json(const char *function, int line, const cJSON *json);

}  // namespace ap

#define AP_TRACE_JSON(json) ::ap::trace_json(__func__, __LINE__, json)
