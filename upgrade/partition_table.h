// partition_table.h: what "/proc/mtd" says about the flash: names, banks, and the partition that an upgrade is for.
//
// A line is: mtdN, a colon, the size and the erase size in hexadecimal, and the partition's name in double quotes.
#pragma once

#include <cstddef>
#include <cstdio>

#include "foundation/file_io.h"

namespace ap {

inline constexpr char partition_table_path[] = "/proc/mtd";
inline constexpr char first_bank[] = "KernelFS1";
inline constexpr char second_bank[] = "KernelFS2";
inline constexpr size_t bank_name_length = sizeof first_bank - 1;
inline constexpr size_t partition_name_size = 256;  // with the NUL; holds what one line can hold

// No device has as many; a table without an end must not hold the caller.
inline constexpr int most_table_lines = 65536;

// Walks the table's lines in pieces of at most LineSize - 1 bytes.
template <size_t LineSize> class PartitionLines {
public:
    PartitionLines() : lines_(partition_table_path) {}

    explicit operator bool() const { return static_cast<bool>(lines_); }
    bool next() { return walked_++ < most_table_lines && lines_.next(); }
    const char *line() const { return lines_.line(); }

private:
    LineReader<LineSize> lines_;
    int walked_ = 0;
};

// The text between the first pair of double quotes; false, and an empty name, when the line has none.
bool quoted_name(const char *line, char (&name)[partition_name_size]);

// The number behind "mtd" at the start of the line; false when there is none.
bool mtd_index(const char *line, int &index);

// 1: the device has two kernel banks; 0: it has one firmware partition.
int kivraupgrade_check_is_dual_image();

// The partition that the next kernel image is for: the bank that is not running, or the only firmware partition.
// 0, or -1 when the buffer is too small or the running bank is not known.
int kivraupgrade_get_target_mtd(char *name, int len);

// Makes a partition writable, or read-only again. 0, or -1 when there is no such partition.
int kivraupgrade_flash_partitions_unlock(const char *mtd_name);
int kivraupgrade_flash_partitions_lock(const char *mtd_name);

}  // namespace ap
