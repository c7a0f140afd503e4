// management_server.cpp: the portal's management server, on the local stream socket "/tmp/ap_portal.socket".
//
// A connection carries one message; its answer is the same block with the number of messages so far as its value.

#include <cstdio>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "foundation/file_io.h"
#include "foundation/text.h"
#include "tools/portal_peers/portal_message.h"
#include "tools/portal_peers/role.h"

namespace {

using namespace peers;

ap::UniqueFd listening_socket() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ap::copy_text(address.sun_path, "/tmp/ap_portal.socket");
    unlink(address.sun_path);
    ap::UniqueFd server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!server || bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(server.get(), 8) != 0)
        server.reset();
    return server;
}

void answer(const ap::UniqueFd &peer, uint64_t number) {
    const timeval limit = {2, 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    PortalMessage message;
    if (ap::read_full(peer.get(), message.data(), message.size()) != static_cast<ssize_t>(message.size())) {
        std::puts("a message that is not whole");
        return;
    }
    std::printf("message %llu of type %u\n", static_cast<unsigned long long>(number), type_of(message));
    ap::store_le(message.data() + value_offset, number);
    send(peer.get(), message.data(), message.size(), MSG_NOSIGNAL);
}

int serve(const Words &) {
    const ap::UniqueFd server = listening_socket();
    if (!server) return failed("/tmp/ap_portal.socket");
    std::puts("ready");
    for (uint64_t number = 1;; ++number) {
        const ap::UniqueFd peer(
            ap::retry_interrupted([&] { return accept4(server.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
        if (!peer) return failed("/tmp/ap_portal.socket");
        answer(peer, number);
    }
}

const Role role{"management", "the management server, on /tmp/ap_portal.socket", serve};

}  // namespace
