// flash_model.h: the virtual flash for those who test with it: a new flash, counts of what was done to it, faults and
// power cuts on demand. Counts and faults are kept in "/apbox/flash/state", so that a test sees what its child
// processes did.
//
// A power cut is a process that ends in the middle of an operation: half of the bytes of a write are programmed, half
// of a block is erased, and then SIGKILL.
#pragma once

#include <cstdint>

namespace ap::host::flash {

enum class Operation : uint32_t { open, info, read, erase, write, lock, unlock, nand_request };
inline constexpr uint32_t operation_count = 8;
constexpr uint32_t bit(Operation operation) { return 1U << static_cast<uint32_t>(operation); }

enum class Action : uint32_t { none, fail, cut_power };

// What happens at the `nth` operation, counted from 1 at the moment of arming, of those in the set `operations`.
struct Fault {
    Action action = Action::none;
    uint32_t operations = bit(Operation::erase) | bit(Operation::write);
    uint32_t nth = 1;
    int error = 5;  // what `fail` sets errno to; EIO
};

// Throws the flash away and makes a new one from the scenario as it is now. False when that describes no possible
// flash, or the files cannot be made. No partition may be open.
bool start_over();

uint32_t count(Operation operation);
void reset_counts();

// One fault is armed at a time; it happens once.
void arm(const Fault &fault);

}  // namespace ap::host::flash
