// udp_socket.cpp: a datagram socket for the portal's link to its controller.

#include <sys/socket.h>

#include "apsupport/identify.h"
#include "foundation/portal_line.h"

int init_net_udp_sock(void) {
    const int socket_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_fd < 0) AP_PORTAL_ERROR("src/ap_portal/public_pt_sock.c", "create udp socket is error.\n");
    return socket_fd;
}
