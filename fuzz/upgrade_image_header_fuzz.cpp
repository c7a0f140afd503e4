// upgrade_image_header_fuzz.cpp: any file, offset and size given to the checks of an image; type and checksum must be
// what a plain second reading of the same bytes says, and the file must stay as it was.
//
// Input: offset and size, four bytes each, little-endian; the rest is the file.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "applatform/config_store.h"
#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "fuzz/support/quiet.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t big_endian(const uint8_t *word) {
    return uint32_t{word[0]} << 24 | uint32_t{word[1]} << 16 | uint32_t{word[2]} << 8 | word[3];
}

int plain_type(const uint8_t *header) {
    const uint32_t magic = big_endian(header);
    if (magic == 0x27051956) return header[32] == 2 ? 2 : -1;
    if (magic == 0x27051958) return header[32] == 4 ? 4 : -1;
    return magic == 0x03000008 ? 5 : -1;
}

int plain_checksum(const Bytes &image, const uint8_t *header, int size) {
    const size_t length = size > 64 ? static_cast<size_t>(size) - 64 : 0;
    if (length != 0 && (image.size() < 64 || image.size() - 64 < length)) return -1;
    const uint8_t *payload = length != 0 ? image.data() + 64 : header;
    return crc32(0, payload, static_cast<unsigned>(length)) == big_endian(header + 24) ? 1 : -1;
}

}  // namespace

// A device with one partition that is known without asking "/proc/mtd".
extern "C" int GetValue(const char *, char *value) { return std::strcpy(value, "1"), 1; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 8 || size > 100000) return 0;
    int offset = 0, image_size = 0;
    std::memcpy(&offset, data, 4);
    std::memcpy(&image_size, data + 4, 4);
    const Bytes file(data + 8, data + size);
    const std::string path = fuzz::quiet_file("image", file);

    const size_t skipped = std::min(static_cast<size_t>(std::max(offset, 0)), file.size());
    const Bytes image(file.begin() + static_cast<std::ptrdiff_t>(skipped), file.end());
    uint8_t header[64] = {};
    std::copy_n(image.begin(), std::min(image.size(), sizeof header), header);
    const bool is_possible = offset >= 0;

    if (check_fw_type_ap(path.c_str(), offset) != (is_possible ? plain_type(header) : -1)) std::abort();
    if (check_fw_crc_ap(2, path.c_str(), offset, image_size) !=
        (is_possible ? plain_checksum(image, header, image_size) : -1))
        std::abort();
    if (check_fw_valid_ap(7, path.c_str(), offset) != (is_possible ? 1 : -1)) std::abort();
    if (fuzz::content_of(path) != file) std::abort();
    return 0;
}
