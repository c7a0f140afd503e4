// flash_description.h: what flash the device has: kind, blocks, partitions. It comes from the member "flash" of
// "/apbox/scenario.json"; what that leaves out is as built in:
//
//   "flash": {
//     "kind": "NOR",               or "NAND"
//     "erase_size": 65536,         bytes; a multiple of 4096
//     "write_size": 1,             bytes that a write must be a multiple of; on NAND 2048
//     "booted": 1,                 the bank that a new flash boots from
//     "bad_blocks": [],            blocks, counted over the whole flash, that take no erase and no write
//     "partitions": [
//       {"name": "ALL", "whole": true},
//       {"name": "Bootloader", "size": 262144},
//       {"name": "Spare", "device": "/dev/mtd3"}      a real device; nothing else ever touches one
//     ]
//   }
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ap::host::flash {

inline constexpr char folder[] = "/apbox/flash";
inline constexpr char scenario_path[] = "/apbox/scenario.json";

struct Partition {
    std::string name;
    uint32_t offset = 0, size = 0;  // where it lies in the flash
    bool whole = false;             // a view of the whole flash, not a part of it
    std::string device;             // the real device that it is; empty for a virtual one

    bool has_file() const { return !whole && device.empty(); }
    std::string path() const { return std::string(folder) + "/" + name; }
};

struct Description {
    int type = 0;  // as <mtd/mtd-abi.h> has it
    uint32_t erase_size = 0, write_size = 0, spare_size = 0;
    int booted_bank = 1;
    std::vector<uint32_t> bad_blocks;
    std::vector<Partition> partitions;
    uint32_t size = 0;  // of the whole flash

    // The index of the partition of that name, or -1.
    int find(const std::string &name) const;
};

// Reads a description from the text of a scenario. When it describes no possible flash, false, and `error` says why.
bool parse_description(const std::string &scenario, Description &description, std::string &error);

// This device's flash, read once. Null, after one line that says why, when the scenario describes none that is
// possible.
const Description *description();

// Reads the scenario again at the next use.
void forget_description();

// The partition table as "/proc/mtd" shows it.
std::string table_text(const Description &description);

}  // namespace ap::host::flash
