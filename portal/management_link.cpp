// management_link.cpp: one exchange with the portal's management server over its local stream socket.

#include <cstdio>
#include <sys/socket.h>
#include <sys/un.h>

#include "apsupport/portal.h"
#include "foundation/portal_line.h"
#include "foundation/text.h"
#include "portal/links.h"

namespace ap {

namespace {

constexpr int failed = 255;

int fail(const char *message) { return std::puts(message), failed; }

bool connect_to_server(const UniqueFd &link) {
    sockaddr_un server = {};
    server.sun_family = AF_UNIX;
    copy_text(server.sun_path, "/tmp/ap_portal.socket");
    return connect(link.get(), reinterpret_cast<const sockaddr *>(&server), sizeof server) == 0;
}

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_connect_with_ap_mng_svr(void *message616) {
    if (message616 == nullptr) return failed;
    const UniqueFd link(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!link) return fail("create the socket error");
    if (!connect_to_server(link)) return fail("connect the server error");
    const ssize_t sent =
        retry_interrupted([&] { return send(link.get(), message616, portal_message_size, MSG_NOSIGNAL); });
    if (sent != static_cast<ssize_t>(portal_message_size)) return fail("write to server error");
    const int ready = wait_readable(link.get());
    if (ready < 0) return AP_PORTAL_ERROR(portal_socket_source, "slelect return error %d\n", ready), failed;
    if (ready == 0) return AP_PORTAL_ERROR(portal_socket_source, "slelect is  timeout %d\n", ready), failed;

    char answer[portal_message_size];
    const ssize_t length = retry_interrupted([&] { return read(link.get(), answer, sizeof answer); });
    if (length <= 0) return fail("recv mac list error or server close the socket");
    std::memcpy(message616, answer, static_cast<size_t>(length));
    return 0;
}
