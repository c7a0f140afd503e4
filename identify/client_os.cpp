// client_os.cpp: the operating system of a client, from the terminal identification file or the user-information
// service.
//
// The file is a JSON array of objects with the texts "mac", "os", "brand" and "type".

#include <cstdio>
#include <strings.h>

#include "applatform/commands.h"
#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "apsupport/identify.h"
#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "foundation/text.h"

namespace ap {

namespace {

constexpr char identify_path[] = "/var/type_identify.json";
constexpr int failed = 255;
constexpr size_t text_out_size = 32;  // of every text that is handed out
constexpr size_t compared_brand_length = 32;

struct UserInfoMessage {
    uint8_t type[4];   // 0
    char mac[18];      // 4
    char os_type[18];  // 22: in the answer
};
static_assert(sizeof(UserInfoMessage) == 40 && alignof(UserInfoMessage) == 1 &&
              offsetof(UserInfoMessage, os_type) == 22);

bool same_text(const char *text, const char *expected) {
    return strncasecmp(text, expected, compared_brand_length) == 0;
}

// The maker's own cameras do not identify themselves.
bool is_own_camera(const char *brand, const char *type) {
    return (same_text(brand, "ze-nor") || same_text(brand, "kivra")) && strcasecmp(type, "ipc") == 0;
}

// The first entry whose "mac" begins with the given text.
const cJSON *find_terminal(const cJSON *terminals, const char *mac) {
    const cJSON *terminal = nullptr;
    cJSON_ArrayForEach(terminal, terminals) {
        if (std::strncmp(cJSON_GetObjectStringValue(terminal, "mac", ""), mac, std::strlen(mac)) == 0) return terminal;
    }
    return nullptr;
}

}  // namespace

}  // namespace ap

using namespace ap;

cJSON *file_type_identify_get_terminal_arry(void) {
    char *text = nullptr;
    if (get_file_content(identify_path, &text, nullptr) == 0) return nullptr;
    const HeapPtr<char> owner(text);
    return cJSON_Parse(text);
}

int get_string_value_form_identify_json_by_mac(const char *mac, char *out, const char *key) {
    const UniqueJson terminals(file_type_identify_get_terminal_arry());
    if (!terminals) return std::printf("%s,%d terminal_arry is null \n", __func__, __LINE__), failed;
    if (const cJSON *terminal = find_terminal(terminals.get(), mac))
        copy_text(out, text_out_size, cJSON_GetObjectStringValue(terminal, key, ""));
    return 0;
}

int get_os_info_by_identify_json(const char *mac, char *os_out) {
    if (get_string_value_form_identify_json_by_mac(mac, os_out, "os") != 0) return failed;
    if (*os_out != '\0') return 0;

    char brand[text_out_size] = {}, type[text_out_size] = {};
    if (get_string_value_form_identify_json_by_mac(mac, brand, "brand") != 0 ||
        get_string_value_form_identify_json_by_mac(mac, type, "type") != 0)
        return failed;
    if (is_own_camera(brand, type)) copy_text(os_out, text_out_size, "linux");
    return 0;
}

int ap_client_identify_get_os_info(const char *mac, char *os_out) {
    if (file_check_exist_or_not(identify_path) == 0) return 0;
    return get_os_info_by_identify_json(mac, os_out);
}

int get_os_info_by_user_info(const char *mac, char *os_out) {
    UserInfoMessage request = {};
    copy_text(request.mac, mac);
    void *answer = nullptr;
    const int result = send_msg_to_user_info(&request, &answer, sizeof request);
    const HeapPtr<void> owner(answer);
    if (result != 0 || answer == nullptr) return std::printf("%s,%d resp error \n", __func__, __LINE__), failed;

    const auto &message = *static_cast<const UserInfoMessage *>(answer);
    const auto answered_mac = field_text(message.mac), os_type = field_text(message.os_type);
    if (le32(message.type) != 0 || answered_mac != field_text(request.mac)) {
        std::printf("%s,%d error resp msg type = %d, pmsg->mac = %.*s, pmsg->ostype = %.*s\n", __func__, __LINE__,
                    static_cast<int>(le32(message.type)), static_cast<int>(answered_mac.size()), answered_mac.data(),
                    static_cast<int>(os_type.size()), os_type.data());
        return failed;
    }
    copy_text(os_out, text_out_size, os_type);
    return 0;
}
