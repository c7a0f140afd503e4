// interface_call.h: one ioctl on a network interface of this machine.
#pragma once

#include <net/if.h>

namespace ap::host {

// False when the machine has no interface of that name, or does not know the answer. Only `ifr_data` is taken from
// `call`; the name is filled in.
bool call_interface(const char *ifname, unsigned long request, ifreq &call);

}  // namespace ap::host
