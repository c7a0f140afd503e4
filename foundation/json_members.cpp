// json_members.cpp: typed reads of a JSON object's members, each with a fallback. Texts point into the object.

#include "applatform/commands.h"
#include "apsupport/foundation.h"

const char *cJSON_GetObjectStringValue(const cJSON *object, const char *key, const char *fallback) {
    const cJSON *member = cJSON_GetObjectItem(object, key);
    return cJSON_IsString(member) && member->valuestring != nullptr ? member->valuestring : fallback;
}

int cJSON_GetObjectNumberValue(const cJSON *object, const char *key, int fallback) {
    const cJSON *member = cJSON_GetObjectItem(object, key);
    return cJSON_IsNumber(member) ? member->valueint : fallback;
}

// The empty text counts as an address that is not set.
const char *cJSON_GetObjectIpValue(const cJSON *object, const char *key, const char *fallback) {
    const char *ip = cJSON_GetObjectStringValue(object, key, nullptr);
    if (ip == nullptr) return fallback;
    return *ip == '\0' || is_invalid_ip(ip) == 0 ? ip : fallback;
}
