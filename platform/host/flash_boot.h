// flash_boot.h: a boot loader's eye on the two banks, and what happens to the flash when the device is switched on.
//
// The boot loader looks at the 16-byte head at the start of each bank. A bank can be booted when the head is not
// erased, the top bit of its sequence word is set, its length fits the bank, and the bytes behind it have its checksum.
// Of those the one with the highest sequence word boots.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ap::host::flash {

inline constexpr std::array<const char *, 2> bank_names{"KernelFS1", "KernelFS2"};
inline const char *name_of_bank(int bank) { return bank_names[static_cast<size_t>(bank - 1)]; }  // 1 or 2

enum class BankState { missing, erased, no_valid_head, wrong_length, wrong_checksum, good };
const char *text_of(BankState state);

BankState judge_bank(const uint8_t *bank, size_t size);

struct Bank {
    BankState state = BankState::missing;
    uint32_t sequence = 0, length = 0, checksum = 0;  // as the head has them
};

struct BootView {
    std::array<Bank, 2> banks;
    int boots = 0;    // 1 or 2: the bank that the boot loader would take now; 0: none
    int running = 0;  // 1 or 2: the bank in front of the root file system that "/dev/root" names; 0: not known
};

// False when there is no virtual flash here.
bool look_at_banks(BootView &view);

// Switches the device on: makes the flash if it is new, lets the boot loader choose, and puts "/proc/mtd", "/dev/root"
// and the partitions' flags files in place. False when the flash or one of the files cannot be had; `error` says which.
bool power_on(std::string &error);

// The payload of the image that a new flash boots from: a head and some bytes.
std::string factory_payload();

}  // namespace ap::host::flash
