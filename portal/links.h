// links.h: what the portal's links to its server, its controller and its neighbours share.
#pragma once

#include <cstddef>
#include <sys/select.h>

#include "foundation/file_io.h"

namespace ap {

// As the portal's log lines name them.
inline constexpr char portal_socket_source[] = "src/ap_portal/ap_pt_sock.c";
inline constexpr char public_socket_source[] = "src/ap_portal/public_pt_sock.c";

inline constexpr size_t portal_message_size = 616;

// Waits up to 2 seconds for something to read: 1, 0 after the time-out, or a negative value. A wait that a signal
// interrupts goes on with what is left, which the kernel writes back.
inline int wait_readable(int fd) {
    if (fd < 0 || fd >= FD_SETSIZE) return -1;
    timeval wait = {2, 0};
    return retry_interrupted([&] {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        return select(fd + 1, &readable, nullptr, nullptr, &wait);
    });
}

}  // namespace ap
