// portal_netlink.cpp: see portal_netlink.h. Only the kernel's port is translated, both ways; everything else about
// these sockets is the real kernel's.

#include "platform/host/portal_netlink.h"

#include <cstring>

#include "platform/host/interpose.h"

namespace ap::host {

namespace {

// A message without an address goes to the kernel.
bool is_for_kernel(const msghdr &message) {
    sockaddr_nl address = {};
    if (message.msg_name == nullptr || message.msg_namelen < sizeof address) return message.msg_namelen == 0;
    std::memcpy(&address, message.msg_name, sizeof address);
    return address.nl_family == AF_NETLINK && address.nl_pid == 0 && address.nl_groups == 0;
}

ssize_t send_to_module(int fd, uintptr_t, const msghdr *message, int flags) {
    if (message == nullptr || !is_for_kernel(*message)) return libc::sendmsg(fd, message, flags);
    sockaddr_nl module = netlink_address(portal_module_port);
    msghdr translated = *message;
    translated.msg_name = &module;
    translated.msg_namelen = sizeof module;
    return libc::sendmsg(fd, &translated, flags);
}

ssize_t receive_from_module(int fd, uintptr_t, msghdr *message, int flags) {
    const ssize_t length = libc::recvmsg(fd, message, flags);
    sockaddr_nl sender = {};
    if (length < 0 || message->msg_name == nullptr || message->msg_namelen < sizeof sender) return length;
    std::memcpy(&sender, message->msg_name, sizeof sender);
    if (sender.nl_pid == portal_module_port) sender.nl_pid = 0;
    std::memcpy(message->msg_name, &sender, sizeof sender);
    return length;
}

constexpr StandIn portal_stand_in = {.send = send_to_module, .receive = receive_from_module};

const SocketClaim claim(AF_NETLINK, portal_protocol, [](int type) {
    return adopt_or_close(libc::socket(AF_NETLINK, type, NETLINK_USERSOCK), portal_stand_in);
});

}  // namespace

}  // namespace ap::host
