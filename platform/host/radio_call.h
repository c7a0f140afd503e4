// radio_call.h: what every call of the virtual radio driver does first: enter the world, meet the scripted failures,
// find the interface.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/host/world.h"

namespace ap::host {

// The driver's records, as the caller gave them.
using Record = std::span<uint8_t>;

inline Record record_of(void *bytes, size_t size) { return {static_cast<uint8_t *>(bytes), size}; }

// What a scripted failure answers. Nonsense is a record full of bytes that make huge counts and endless texts.
int answer_fault(const Fault &fault, Record record);

// Runs action(world, place) for an interface of this access point; its result is the call's. -1 without one.
template <typename Action> int on_interface(const char *call, const char *ifname, Record record, Action action) {
    const std::string name = ifname == nullptr ? "" : ifname;
    WorldAccess access;
    if (!access) return -1;
    if (const Fault *fault = access->meet_fault(call, name)) return answer_fault(*fault, record);
    const RadioPlace place = access->find_interface(name);
    return place ? action(*access, place) : -1;
}

}  // namespace ap::host
