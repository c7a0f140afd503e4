// dumps.cpp: the message server's state on standard output, for whoever debugs a daemon. The loop's thread.

#include "msgserver/records.h"

using namespace ap;

namespace {

template <typename T> const void *pointer(const T *record) { return record; }

}  // namespace

void print_sock_list(void) {
    int index = 0;
    for (const ms_sock *sock = socks.first; sock != nullptr; sock = socks.after(*sock))
        MS_LOG("sock[%d] = %p, fd = %d, session = %p", index++, pointer(sock), sock->fd, pointer(sock->session));
}

void print_session_server_list(void) {
    int index = 0;
    for (const ms_session *server = servers.first; server != nullptr; server = servers.after(*server), ++index) {
        MS_LOG("server[%d] = %p, fd = %d.", index, pointer(server), server->sock->fd);
        int peer_index = 0;
        for (const ms_session *peer = server->peers.first; peer != nullptr; peer = server->peers.after(*peer))
            MS_LOG("server[%d] = %p, client[%d] = %p sock = %p", index, pointer(server), peer_index++, pointer(peer),
                   pointer(peer->sock));
    }
}

void print_resource_count(void) {
    MS_LOG("Resource use info");
    MS_LOG("open fd num = %d", counted(counters.open_fds));
    MS_LOG("memuse = %d, sock_num = %d, session_num = %d", counted(counters.bytes), counted(counters.socks),
           counted(counters.sessions));
}

// An argument is any bytes: its text ends at its length, or at a zero byte before that.
void print_timer_list(void) {
    int index = 0;
    for (const ms_timer *timer = timers.first; timer != nullptr; timer = timers.after(*timer))
        MS_LOG("list[%d] = %p, arg_p = %p, time = %d, arg = %.*s", index++, pointer(timer), pointer(timer->argument),
               static_cast<int>(timer->expiry_seconds), timer->length, static_cast<const char *>(timer->argument));
}
