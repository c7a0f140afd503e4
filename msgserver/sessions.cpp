// sessions.cpp: servers, and the records of sockets and sessions.
//
// A socket record is found by its descriptor through an index of fixed size: slot = descriptor modulo its size, and
// within a slot the oldest record first. So the first record of a descriptor in its slot is the one that a walk of the
// socket list from its oldest entry would meet first, whatever closed or reused the descriptor meanwhile, and nothing
// ever grows.

#include <cstdio>
#include <cstdlib>

#include "foundation/owned.h"
#include "msgserver/records.h"

namespace ap {

decltype(socks) socks;
decltype(servers) servers;

namespace {

// What a record counts in the byte counter, on every processor.
constexpr int sock_bytes = 20, session_bytes = 36;

ms_sock *slots[1024];
static_assert((std::size(slots) & (std::size(slots) - 1)) == 0);

ms_sock **slot_of(int fd) { return &slots[static_cast<unsigned>(fd) % std::size(slots)]; }

void add_to_slot(ms_sock &sock) {
    ms_sock **place = slot_of(sock.fd);
    while (*place != nullptr) place = &(*place)->next_in_slot;
    *place = &sock;
}

void remove_from_slot(const ms_sock &sock) {
    ms_sock **place = slot_of(sock.fd);
    while (*place != &sock) place = &(*place)->next_in_slot;
    *place = sock.next_in_slot;
}

// The record for a datagram or netlink message uses the server's descriptor.
bool borrows_descriptor(unsigned flags) { return has_all(flags, type_udp | role_client); }

void release_descriptor(int fd, unsigned flags) {
    if (borrows_descriptor(flags)) return;
    unwatch(fd);
    close_counted(fd);
}

ms_sock *new_sock(int fd, unsigned flags) {
    auto *const sock = static_cast<ms_sock *>(std::calloc(1, sizeof(ms_sock)));
    if (sock == nullptr) {
        std::perror("creat ms_sock error");
        release_descriptor(fd, flags);
        return nullptr;
    }
    count(counters.bytes, sock_bytes);
    count(counters.socks, 1);
    sock->fd = fd;
    sock->flags = flags;
    socks.append(*sock);
    add_to_slot(*sock);
    return sock;
}

void release_sock(ms_sock *sock) {
    release_descriptor(sock->fd, sock->flags);
    remove_from_slot(*sock);
    socks.remove(*sock);
    count(counters.bytes, -sock_bytes);
    count(counters.socks, -1);
    std::free(sock);
}

ms_session *new_session(OwnedAddress address) {
    auto *const session = static_cast<ms_session *>(std::calloc(1, sizeof(ms_session)));
    if (session == nullptr) {
        std::perror("creat ms_session error");
        return nullptr;
    }
    session->address_length = address.length();
    session->address = address.take();
    count(counters.bytes, session_bytes + session->address_length);
    count(counters.sessions, 1);
    return session;
}

void release_session(ms_session *session) {
    const OwnedAddress released(session->address, session->address_length);
    count(counters.bytes, -(session_bytes + session->address_length));
    count(counters.sessions, -1);
    std::free(session);
}

}  // namespace

ms_session *open_session(int fd, unsigned flags, OwnedAddress address, ms_session *server) {
    ms_sock *const sock = new_sock(fd, flags);
    if (sock == nullptr) return nullptr;
    ms_session *const session = new_session(std::move(address));
    if (session == nullptr) return release_sock(sock), nullptr;

    session->sock = sock;
    sock->session = session;
    session->server = server;
    if (server == nullptr) {
        servers.append(*session);
    } else {
        session->handler = server->handler;
        server->peers.append(*session);
    }
    return session;
}

void discard_session(ms_session &session) {
    release_sock(session.sock);
    if (session.server == nullptr)
        servers.remove(session);
    else
        session.server->peers.remove(session);
    release_session(&session);
}

ms_sock *find_sock(int fd) {
    for (ms_sock *sock = *slot_of(fd); sock != nullptr; sock = sock->next_in_slot)
        if (sock->fd == fd) return sock;
    return nullptr;
}

}  // namespace ap

using namespace ap;

struct ms_session *ms_server(const char *address, ms_handler handler) {
    unsigned type = 0;
    int proto = 0;
    OwnedAddress resolved = resolve(address, type, proto);
    if (!resolved) return nullptr;
    const int fd = ms_socket(type, proto);
    if (fd < 0) return nullptr;
    ms_listen(fd, type, resolved.get(), resolved.length());

    ms_session *const session = open_session(fd, type | role_server, std::move(resolved), nullptr);
    if (session == nullptr) return nullptr;
    session->handler = handler;
    if (watch(fd)) return session;
    std::perror("ERROR : watch server");
    discard_session(*session);
    return nullptr;
}

// Servers live until the process ends; both calls stay for the programs that make them.
int ms_server_exit(void) { return 0; }
int ms_stop(void) { return 0; }
