// partition_table.cpp: reads "/proc/mtd" and the link "/dev/root", and decides where a kernel image goes.

#include "upgrade/partition_table.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "apsupport/upgrade.h"
#include "foundation/text.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr size_t table_line_size = 128;
constexpr size_t root_link_size = 63 + 1;

// The number behind `prefix`, wherever that stands in `text`; false when there is none or an int cannot hold it.
bool number_behind(const char *text, const char *prefix, int &number) {
    const char *found = std::strstr(text, prefix);
    if (found == nullptr) return false;
    const char *digits = found + std::strlen(prefix);
    if (*digits < '0' || *digits > '9') return false;
    const unsigned long long value = std::strtoull(digits, nullptr, 10);
    if (value > INT32_MAX) return false;
    number = static_cast<int>(value);
    return true;
}

// The name of the partition in front of the running root file system: the running bank.
bool running_bank(char (&name)[partition_name_size]) {
    char link[root_link_size] = {};
    int root = 0;
    if (readlink("/dev/root", link, sizeof link - 1) < 0) return false;
    if (!number_behind(link, "mtdblock", root)) return false;

    char device[sizeof "mtd" + 11];
    std::snprintf(device, sizeof device, "mtd%d", root - 1);
    PartitionLines<table_line_size> lines;
    while (lines.next()) {
        if (std::strncmp(lines.line(), device, std::strlen(device)) != 0) continue;
        quoted_name(lines.line(), name);
        return true;
    }
    return false;
}

}  // namespace

bool quoted_name(const char *line, char (&name)[partition_name_size]) {
    static_assert(partition_name_size == 255 + 1);
    name[0] = '\0';
    return std::sscanf(line, "%*[^\"]\"%255[^\"]\"", name) == 1;
}

bool mtd_index(const char *line, int &index) {
    return std::string_view(line).starts_with("mtd") && number_behind(line, "mtd", index);
}

int kivraupgrade_check_is_dual_image() {
    PartitionLines<table_line_size> lines;
    if (!lines) return AP_UPGRADE_PRINT("[%s %d] fopen /proc/mtd error."), 0;
    while (lines.next()) {
        if (std::strstr(lines.line(), first_bank) != nullptr || std::strstr(lines.line(), second_bank) != nullptr)
            return 1;
    }
    return 0;
}

int kivraupgrade_get_target_mtd(char *name, int len) {
    if (name == nullptr || len < static_cast<int>(bank_name_length))
        return AP_UPGRADE_PRINT("[%s %d] mtd name buffer invalid.\n"), -1;

    const char *target = nullptr;
    if (kivraupgrade_check_is_dual_image() == 0) {
        target = get_fw_mtd_name();
    } else {
        char running[partition_name_size];
        if (!running_bank(running)) return AP_UPGRADE_PRINT("[%s %d] find root dev in dual iamge flash error."), -1;
        target = std::strcmp(running, first_bank) == 0 ? second_bank : first_bank;
    }
    copy_text(name, static_cast<size_t>(len), target);
    return AP_UPGRADE_PRINT("[%s %d] mtd_name:%s\n", name), 0;
}

}  // namespace ap

const char *get_fw_mtd_name(void) {
    if (prod_cfm_get_int_val("nand_flash_flag") != 0) return "firmware";

    const ap::UniquePipe table(popen("cat /proc/mtd", "re"));
    if (!table) return AP_UPGRADE_LOG(2, "open /proc/mtd error!"), "default";
    char line[ap::table_line_size] = {};
    char name[ap::partition_name_size];
    for (int walked = 0; walked < ap::most_table_lines && std::fgets(line, sizeof line, table.get()) != nullptr;
         ++walked) {
        if (walked == 0 || !ap::quoted_name(line, name)) continue;
        if (std::strcmp(name, "image") == 0) return "image";
        if (std::strcmp(name, "firmware") == 0) return "firmware";
    }
    return AP_UPGRADE_LOG(2, "can not find fw mtd name, return default"), "default";
}
