// portal_netlink.h: netlink protocol 29, on which the device's kernel talks about the captive portal.
//
// A PC's kernel has no such protocol. Its sockets are user-space netlink sockets here (NETLINK_USERSOCK), and what is
// sent to the kernel's port reaches a process that stands in for the portal's kernel module, at a fixed port of the
// box's network; tools/portal_peers is one. Without one, a request fails with ECONNREFUSED.
#pragma once

#include <cstdint>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "foundation/owned.h"

namespace ap::host {

inline constexpr int portal_protocol = 29;
inline constexpr uint32_t portal_module_port = 0x50000029;  // above every process id

inline sockaddr_nl netlink_address(uint32_t port) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    return address;
}

// The module's end: receives requests and answers to the port that they came from. Empty, with errno set, when this
// network has a module already or this machine no such sockets.
inline UniqueFd open_portal_module() {
    UniqueFd module(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_USERSOCK));
    const sockaddr_nl address = netlink_address(portal_module_port);
    if (module && bind(module.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) module.reset();
    return module;
}

}  // namespace ap::host
