// flash_chip.h: the flash itself: a row of blocks that are erased to ones and programmed to zeros, kept in files.
//
// Each partition is a file in "/apbox/flash"; all of them are mapped one behind the other, so that the flash is one
// array of bytes and what was done to it outlives the process. The file "state" holds the locks of the blocks, the
// counts and the armed fault. Changes are serialised between threads and processes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

#include "platform/host/flash_description.h"
#include "platform/host/flash_model.h"

namespace ap::host::flash {

class Chip {
public:
    // The device's flash, made on first use with a factory image in the bank that it boots from. Null, with errno set,
    // when there is none: outside a box, or with an impossible description.
    static Chip *get();

    const Description &description() const { return description_; }
    const uint8_t *bytes() const { return bytes_; }

    // Each gives what the kernel would: 0 or the bytes done, or a negative error number. Addresses are those of the
    // flash.
    int erase(uint32_t start, uint32_t length);
    ssize_t program(uint32_t start, const uint8_t *data, size_t length);
    int set_locked(uint32_t start, uint32_t length, bool locked);
    bool is_locked(uint32_t start, uint32_t length) const;
    bool is_bad(uint32_t start, uint32_t length) const;

    // Counts an operation that changes nothing, and answers with the armed fault's error: 0 or a negative error number.
    int step(Operation operation);

    struct State;
    State &state() { return *state_; }

private:
    friend bool start_over();

    explicit Chip(const Description &description) : description_(description) {}
    bool map();
    void unmap();
    bool has_whole_blocks(uint32_t start, uint32_t length) const;
    template <typename Half> int step(Operation operation, Half half);  // `half`: what a power cut leaves of it

    Description description_;
    uint8_t *bytes_ = nullptr;
    State *state_ = nullptr;
    size_t state_size_ = 0;
};

}  // namespace ap::host::flash
