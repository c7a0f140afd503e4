// loop.cpp: waits on all sockets, accepts connections, reads one message a connection or datagram, calls the handler
// with it and discards the session. Timers run when 50 ms passed without an event. One thread a process.
//
// A descriptor in the set is looked up anew for each event, so an event that a handler made stale meets what the
// descriptor now stands for in the socket list.

#include <cerrno>
#include <cstdio>
#include <sys/epoll.h>
#include <unistd.h>

#include "foundation/owned.h"
#include "msgserver/records.h"

namespace ap {
namespace {

constexpr int max_events = 20, wait_ms = 50, epoll_size_hint = 32;
constexpr useconds_t pause_after_failure_us = 10'000;

int epoll_fd = -1;
char received[max_message];  // one message, for the handler's call

int epoll_set() {
    if (epoll_fd >= 0) return epoll_fd;
    epoll_fd = epoll_create(epoll_size_hint);
    if (epoll_fd >= 0) close_on_exec(epoll_fd);
    return epoll_fd;
}

ms_session *ms_accept(ms_session &server) {
    const unsigned flags = server.sock->flags;
    OwnedAddress peer = new_peer_address(flags);
    if (!peer) return nullptr;
    auto length = static_cast<socklen_t>(peer.length());
    UniqueFd fd(accept(server.sock->fd, peer.get(), &length));
    if (!fd) {
        const KeepErrno keep;
        MS_LOG("ERROR : accept %s error", AddressText(server.address, server.address_length).text);
        std::perror("ERROR : ");
        return nullptr;
    }
    close_on_exec(fd.get());
    MS_LOG("server fd[%d] : accept new cli fd[%d], from %s", server.sock->fd, fd.get(),
           AddressText(peer.get(), peer.length()).text);
    if (!configure_socket(fd.get())) {
        MS_LOG("ERROR : set socket option");
        return nullptr;
    }
    count(counters.open_fds, 1);
    return open_session(fd.take(), type_tcp | role_client, std::move(peer), &server);
}

bool is_listening(int fd) {
    int listens = 0;
    socklen_t size = sizeof listens;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

// Nothing is accepted while descriptors or memory are short, yet the connection stays ready: a short pause keeps the
// loop from spinning. A server that could not bind and listen is ready for ever: its first failed accept is its last
// event.
void accept_connection(ms_session &server) {
    const int server_fd = server.sock->fd;
    ms_session *const peer = ms_accept(server);
    if (peer == nullptr) {
        if (is_listening(server_fd))
            usleep(pause_after_failure_us);
        else
            unwatch(server_fd);
        return;
    }
    if (watch(peer->sock->fd)) return;
    std::perror("ERROR : watch connection");
    discard_session(*peer);
}

// A datagram is taken from the socket even when it cannot be handled, so that it does not wake the loop again.
ms_session *ms_udp_recv(ms_session &server, int &length) {
    const int fd = server.sock->fd;
    OwnedAddress sender = new_peer_address(type_udp);
    auto sender_size = static_cast<socklen_t>(sender.length());
    length = static_cast<int>(recvfrom(fd, received, sizeof received, 0, sender.get(), &sender_size));
    MS_LOG("Recv msg form fd[%d], addr = %s, len = %d", fd, AddressText(sender.get(), sender.length()).text, length);
    if (!sender) return nullptr;
    return open_session(fd, type_udp | role_client, std::move(sender), &server);
}

// Reads one message; returns the session that it came with, or null when it stays unhandled.
ms_session *ms_recv(ms_session &found, int &length) {
    const int fd = found.sock->fd;
    ms_session *used = nullptr;
    switch (first_of(found.sock->flags, {type_tcp, type_udp, type_netlink})) {
    case type_tcp: {
        used = &found;
        length = static_cast<int>(recv(fd, received, sizeof received, 0));
        const AddressText from(used->address, used->address_length);
        MS_LOG("Recv TCP msg form fd[%d], addr = %s, len = %d", fd, from.text, length);
        break;
    }
    case type_udp: {
        used = ms_udp_recv(found, length);
        if (used == nullptr) break;
        const AddressText from(used->address, used->address_length);
        MS_LOG("Recv UDP msg form fd[%d], addr = %s, len = %d", fd, from.text, length);
        break;
    }
    case type_netlink:
        length = ms_netlink_recv(fd, received);
        used = open_session(fd, type_netlink | type_udp | role_client, {}, &found);
        if (used != nullptr) MS_LOG("Recv Netlink msg form fd[%d], len = %d", fd, length);
        break;
    default: break;
    }
    return used;
}

// The handler gets whatever the receive returned, also 0 and negative values; its own result is ignored.
void handle_message(ms_session &found) {
    int length = 0;
    ms_session *const used = ms_recv(found, length);
    if (used == nullptr) return;
    if (found.handler != nullptr) found.handler(used, received, length);
    discard_session(*used);
}

void handle_event(int fd) {
    const ms_sock *const sock = find_sock(fd);
    if (sock == nullptr) return;
    if (has_all(sock->flags, type_tcp | role_server) || has_all(sock->flags, type_unix | role_server))
        accept_connection(*sock->session);
    else
        handle_message(*sock->session);
}

}  // namespace

bool watch(int fd) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = fd;
    return epoll_set() >= 0 && epoll_ctl(epoll_set(), EPOLL_CTL_ADD, fd, &event) == 0;
}

void unwatch(int fd) {
    epoll_event ignored = {};
    epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd, &ignored);
}

}  // namespace ap

using namespace ap;

void ms_run(void) {
    epoll_event events[max_events];
    for (;;) {
        const int ready = epoll_wait(epoll_set(), events, max_events, wait_ms);
        if (ready == 0) run_due_timers();
        if (ready < 0 && errno != EINTR) usleep(pause_after_failure_us);
        for (int i = 0; i < ready; ++i) handle_event(events[i].data.fd);
    }
}
