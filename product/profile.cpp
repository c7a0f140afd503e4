// profile.cpp: finds the profile of a hardware model in /etc/profile.json and reads single values of it.
//
// The file is an object whose "profile" is an array of products; a product's "model" is matched against the profile id.

#include "product/profile.h"

#include "apsupport/product.h"
#include "foundation/console.h"
#include "foundation/text.h"

namespace ap {

UniqueJson read_profile_file(Caller caller) {
    char *text = nullptr;
    if (get_file_content(profile_path, &text, nullptr) == 0)
        return AP_DEBUG_OF(caller, error_level, "prod", "get file content error: %s", profile_path), nullptr;
    const HeapPtr<char> owner(text);
    return UniqueJson(cJSON_Parse(text));
}

const cJSON *match_profile(const cJSON *profiles, const char *profile_id) {
    const cJSON *product = nullptr;
    cJSON_ArrayForEach(product, cJSON_GetObjectItem(profiles, "profile")) {
        const char *model = cJSON_GetObjectStringValue(product, "model", "");
        if (is_empty(model) || std::strcmp(model, profile_id) != 0) continue;
        AP_CONSOLE(Colour::white, "matched product: %s!", model);
        return product;
    }
    AP_ERROR("prod", "failed to match profile: profile_id=%s", profile_id);
    return nullptr;
}

}  // namespace ap

using namespace ap;

cJSON *create_product_profile(const char *profile_id) {
    if (profile_id == nullptr) return AP_ERROR("prod", "input para error"), nullptr;

    const UniqueJson profiles = read_profile_file();
    if (!profiles) return nullptr;
    const cJSON *product = match_profile(profiles.get(), profile_id);
    if (product == nullptr) return nullptr;

    cJSON *copy = cJSON_Duplicate(product, true);
    if (copy == nullptr) AP_ERROR("prod", "failed to copy profile");
    return copy;
}

void delete_product_profile(cJSON *product) { cJSON_Delete(product); }

int get_config_from_profile(const cJSON *product, const char *key, char *buf, int size) {
    if (product == nullptr || is_empty(key) || buf == nullptr || size < 1)
        return AP_ERROR("prod", "input para error"), -1;

    const cJSON *member = cJSON_GetObjectItem(product, key);
    if (!cJSON_IsString(member) || member->valuestring == nullptr)
        return AP_ERROR("prod", "cannot find config: %s", key), -1;
    const size_t length = std::strlen(member->valuestring);
    if (length >= static_cast<size_t>(size))
        return AP_ERROR("prod", "buf size(%d) <= value size(%d)", size, static_cast<int>(length)), -1;

    std::memset(buf, 0, static_cast<size_t>(size));
    std::memcpy(buf, member->valuestring, length);
    return 0;
}
