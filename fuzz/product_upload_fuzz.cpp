// product_upload_fuzz.cpp: any bytes as an uploaded configuration. What was written to the two default files is the
// text around its first marker, up to a byte 0, and the unit's own keys stand behind the first part.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/product.h"

int GetValue(const char *key, char *value) {
    return std::strcmp(key, "AP_UUID") == 0 ? (std::strcpy(value, "own"), 1) : 0;
}
int UploadValue(void) { return 1; }

static std::string read_text(const char *path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<char> text(data, data + std::min<size_t>(size, 65536));
    char none = 0;
    const int result = systool_file_handle(2, text.empty() ? &none : text.data(), static_cast<int>(text.size()));
    if (result != 0) std::abort();

    const std::string whole(text.begin(), std::find(text.begin(), text.end(), '\0')),
        marker = "##the public configure end##";
    const size_t at = whole.find(marker);
    const bool is_split = at != std::string::npos;
    const std::string defaults = read_text("/webroot/default.cfg"), expected = is_split ? whole.substr(0, at) : "";
    if (!defaults.starts_with(expected + "yd.manage.en=") || !defaults.ends_with("AP_UUID=own\n")) std::abort();
    if (read_text("/webroot/default_url.cfg") != (is_split ? whole.substr(at + marker.size()) : "")) std::abort();
    return 0;
}
