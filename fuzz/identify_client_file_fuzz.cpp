// identify_client_file_fuzz.cpp: any bytes as the terminal identification file: an answer comes exactly when the bytes
// are JSON, and it is the text of the first matching entry, cut to its room.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>

#include "apsupport/identify.h"
#include "foundation/owned.h"
#include "fuzz/support/quiet.h"

static void require(bool holds) {
    if (!holds) std::abort();
}

static std::string text_of(const cJSON *entry, const char *key) {
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(entry, key));
    return text == nullptr ? "" : text;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    const std::string bytes(reinterpret_cast<const char *>(data), std::min<size_t>(size, 65536));
    const ap::UniqueFd file = ap::open_fd("/var/type_identify.json", O_WRONLY | O_CREAT | O_TRUNC);
    require(ap::write_full(file.get(), bytes.data(), bytes.size()));

    const std::string mac = "AA:BB";
    const ap::UniqueJson terminals(cJSON_Parse(bytes.c_str()));
    std::string expected = "old";
    for (const cJSON *entry = terminals ? terminals->child : nullptr; entry != nullptr; entry = entry->next) {
        if (!text_of(entry, "mac").starts_with(mac)) continue;
        expected = text_of(entry, "os").substr(0, 31);
        break;
    }
    char os[32] = "old";
    require(get_string_value_form_identify_json_by_mac(mac.c_str(), os, "os") == (terminals ? 0 : 255));
    require(os == (terminals ? expected : "old"));

    char whole[32] = "old";
    require(ap_client_identify_get_os_info(mac.c_str(), whole) == (terminals ? 0 : 255));
    require(std::memchr(whole, 0, sizeof whole) != nullptr &&
            (whole == std::string(os) || std::string(whole) == "linux"));
    return 0;
}
