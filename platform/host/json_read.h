// json_read.h: members of a JSON object as plain values, with a value for what is missing or of another kind.
#pragma once

#include <algorithm>
#include <cjson/cJSON.h>
#include <climits>
#include <cmath>
#include <string>

namespace ap::host {

inline double number_member(const cJSON *object, const char *name, double otherwise) {
    const cJSON *member = cJSON_GetObjectItem(object, name);
    return cJSON_IsNumber(member) && std::isfinite(member->valuedouble) ? member->valuedouble : otherwise;
}

inline int int_member(const cJSON *object, const char *name, int otherwise) {
    return static_cast<int>(std::clamp<double>(number_member(object, name, otherwise), INT_MIN, INT_MAX));
}

inline std::string text_member(const cJSON *object, const char *name, const std::string &otherwise = {}) {
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
    return text == nullptr ? otherwise : text;
}

inline bool flag_member(const cJSON *object, const char *name, bool otherwise) {
    const cJSON *member = cJSON_GetObjectItem(object, name);
    return cJSON_IsBool(member) ? cJSON_IsTrue(member) != 0 : otherwise;
}

}  // namespace ap::host
