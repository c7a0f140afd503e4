// partition_switch.cpp: makes a partition writable before an upgrade and read-only after it.
//
// The switch is the file "/sys/class/mtd/mtdN/flags", which takes the words "ro0" (writable) and "ro1" (read-only).

#include <cstring>
#include <optional>

#include "applatform/commands.h"
#include "upgrade/image_file.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr size_t switch_line_size = 256;
using SwitchLines = PartitionLines<switch_line_size>;

// The index of the first partition of that name from here on; `on_line` sees the name of every line walked over.
template <typename OnLine> std::optional<int> find_partition(SwitchLines &lines, const char *wanted, OnLine on_line) {
    char name[partition_name_size];
    int index = 0;
    while (lines.next()) {
        const bool named = quoted_name(lines.line(), name);
        on_line(name);
        if (named && mtd_index(lines.line(), index) && std::strcmp(name, wanted) == 0) return index;
    }
    return std::nullopt;
}

}  // namespace

int kivraupgrade_flash_partitions_unlock(const char *mtd_name) {
    const char *function = __func__;
    SwitchLines lines;
    if (!lines) return AP_UPGRADE_PRINT("[%s %d]fopen is fail.\n"), -1;

    AP_UPGRADE_PRINT("[%s %d]mtdname:%s\n", shown(mtd_name));
    if (mtd_name == nullptr) return -1;
    const auto index = find_partition(lines, mtd_name, [&](const char *name) {
        std::printf("[%s %d]dev_name:%s,mtdname:%s\n", function, __LINE__, name, mtd_name);
    });
    if (!index) return -1;
    doSystemCmd("echo ro0 > /sys/class/mtd/mtd%d/flags", *index);
    return 0;
}

int kivraupgrade_flash_partitions_lock(const char *mtd_name) {
    SwitchLines lines;
    if (!lines) return AP_UPGRADE_PRINT("[%s %d]fopen is fail.\n"), -1;

    if (mtd_name == nullptr) return -1;
    const auto index = find_partition(lines, mtd_name, [](const char *) {});
    if (!index) return -1;
    doSystemCmd("echo ro1 > /sys/class/mtd/mtd%d/flags", *index);
    return 0;
}

}  // namespace ap
