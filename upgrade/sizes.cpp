// sizes.cpp: the sizes that an upload is measured against: the image file's, the flash's and the free memory's.

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "apsupport/upgrade.h"
#include "upgrade/image_file.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr size_t table_line_size = 128;

// Takes the size and the name of a partition's line: the size has at most eight digits, and the name starts behind its
// opening quote, ends at the first blank and keeps its closing quote.
bool parse_partition(const char *line, unsigned int &size, char (&name)[table_line_size]) {
    char digits[8 + 1];
    static_assert(table_line_size == 127 + 1);
    if (std::sscanf(line, "%*s %8[0-9a-fA-F]%*s \"%127s", digits, name) != 2) return false;
    size = static_cast<unsigned int>(std::strtoul(digits, nullptr, 16));
    return true;
}

}  // namespace

}  // namespace ap

int get_image_file_size(const char *file) {
    AP_UPGRADE_TRACE();
    if (file == nullptr) return AP_UPGRADE_LOG(2, "arg is null."), 0;
    const auto image = ap::open_image(file, O_RDONLY);
    if (!image) return AP_UPGRADE_LOG(2, "Can't open file:%s\n", file), 0;

    const off_t size = lseek(image.get(), 0, SEEK_END);
    lseek(image.get(), 0, SEEK_SET);
    return static_cast<int>(std::clamp<off_t>(size, 0, INT_MAX));
}

int get_flash_size_ap(void) {
    AP_UPGRADE_TRACE();
    ap::PartitionLines<ap::table_line_size> lines;
    if (!lines) return AP_UPGRADE_LOG(2, "open file \"/proc/mtd\" error\n"), -1;

    unsigned int flash_size = 0, size = 0;
    char name[ap::table_line_size];
    while (lines.next()) {
        if (!ap::parse_partition(lines.line(), size, name)) continue;
        // Without the last character, the closing quote: so "AL" and "A" pass for "ALL" as well.
        if (strncasecmp(name, "ALL", std::strlen(name) - 1) != 0) continue;
        flash_size = size;
        break;
    }
    AP_UPGRADE_LOG(5, "Flash Size is %08x\n", flash_size);
    return static_cast<int>(flash_size);
}

int get_free_memory_size_ap(void) {
    AP_UPGRADE_TRACE();
    const auto file = ap::open_file("/proc/meminfo");
    if (!file) return AP_UPGRADE_LOG(2, "getMemInfo: open file error\n"), -1;

    if (std::fscanf(file.get(), "%*[^\n]") != 0)
        return AP_UPGRADE_LOG(2, "read \"/proc/meminfo\" first line error\n"), -1;
    char number[24] = {};
    if (std::fscanf(file.get(), "%*s %23[-+0-9]%*s", number) != 1)
        return AP_UPGRADE_LOG(2, "read \"/proc/meminfo\" second line error\n"), -1;
    const auto free_kb = std::clamp<long long>(std::strtoll(number, nullptr, 10), INT_MIN, INT_MAX);
    AP_UPGRADE_LOG(5, "get free memory size = %d \n", static_cast<int>(free_kb * 1024));
    return static_cast<int>(free_kb);
}
