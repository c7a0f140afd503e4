// sockets.cpp: sockets made, configured, bound, listened on, connected and closed, and the log lines of the message
// server.
//
// Every socket has the same options; its time-outs of 5 seconds are what bounds each blocking send and receive. Any
// thread.

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "foundation/owned.h"
#include "foundation/text.h"
#include "msgserver/records.h"

namespace ap {
namespace {

constexpr int backlog = 5;
constexpr int buffer_bytes = 16384, on = 1;
constexpr timeval timeout = {5, 0};

struct Option {
    const void *value;
    socklen_t size;
    int name;
};
constexpr Option options[] = {
    {&buffer_bytes, sizeof buffer_bytes, SO_RCVBUF},
    {&buffer_bytes, sizeof buffer_bytes, SO_SNDBUF},
    {&timeout, sizeof timeout, SO_RCVTIMEO},
    {&timeout, sizeof timeout, SO_SNDTIMEO},
    {&on, sizeof on, SO_REUSEADDR},
};

// A copy of an address of one family, with zeros for what the given length leaves out.
template <typename Record> Record record_of(const sockaddr *address, int length) {
    Record record = {};
    const size_t given = length > 0 ? static_cast<size_t>(length) : 0;
    if (address != nullptr) std::memcpy(&record, address, std::min(given, sizeof record));
    return record;
}

}  // namespace

Counters counters;

void print_log(const char *format, ...) {
    const KeepErrno keep;
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

bool configure_socket(int fd) {
    for (const auto &option : options)
        if (setsockopt(fd, SOL_SOCKET, option.name, option.value, option.size) != 0) return false;
    return true;
}

// A command that a handler starts must not hold its peer's connection open.
void close_on_exec(int fd) { fcntl(fd, F_SETFD, FD_CLOEXEC); }

// Two sockets with address reuse may be given the same port when the kernel binds them at their first send; one would
// then get the answer to the other.
void claim_port(int fd) {
    const int off = 0;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &off, sizeof off);
}

void close_counted(int fd) {
    const KeepErrno keep;
    count(counters.open_fds, -1);
    close(fd);
}

}  // namespace ap

using namespace ap;

int ms_socket(unsigned int type, int proto) {
    switch (first_of(type, {type_netlink, type_tcp, type_udp, type_unix})) {
    case type_netlink: return ms_creat_socket(AF_NETLINK, SOCK_RAW, proto);
    case type_tcp: return ms_creat_socket(AF_INET, SOCK_STREAM, 0);
    case type_udp: return ms_creat_socket(AF_INET, SOCK_DGRAM, 0);
    case type_unix: return ms_creat_socket(AF_UNIX, SOCK_STREAM, 0);
    default: break;
    }
    MS_LOG("socket type error [type = %d]", static_cast<int>(type));
    return 0;
}

int ms_creat_socket(int domain, int type, int proto) {
    UniqueFd fd(socket(domain, type, proto));
    if (!fd) {
        std::perror("ERROR creat socket:");
        return -1;
    }
    close_on_exec(fd.get());
    if (!configure_socket(fd.get())) {
        MS_LOG("init nl_socket ERROR");
        return -1;
    }
    count(counters.open_fds, 1);
    return fd.take();
}

int ms_bind(int fd, const struct sockaddr *address, int length) {
    if (bind(fd, address, static_cast<socklen_t>(length)) == 0) return 0;
    MS_LOG("ERROR : bind fd = %d", fd);
    std::perror("ERROR bind:");
    return -1;
}

int ms_listen_fd(int fd) {
    if (listen(fd, backlog) == 0) return 0;
    MS_LOG("ERROR : listen fd = %d", fd);
    std::perror("ERROR listen:");
    return -1;
}

int ms_connect(int fd, const struct sockaddr *address, int length) {
    if (connect(fd, address, static_cast<socklen_t>(length)) == 0) return fd;
    const KeepErrno keep;
    MS_LOG("ERROR : connect %s error", AddressText(address, length).text);
    std::perror("ERROR :");
    return -1;
}

// Bind and listen say what went wrong, and the server goes on: the result is always 0, and the line always printed.
int ms_listen(int fd, unsigned int type, const struct sockaddr *address, int length) {
    const unsigned transport = first_of(type, {type_udp, type_tcp, type_unix, type_netlink});
    if (transport == 0) return 0;

    char path[sizeof sockaddr_un::sun_path + 1];
    copy_text(path, field_text(record_of<sockaddr_un>(address, length).sun_path));
    if (transport == type_unix) unlink(path);
    ms_bind(fd, address, length);
    if ((transport & (type_tcp | type_unix)) != 0) ms_listen_fd(fd);

    const auto inet = record_of<sockaddr_in>(address, length);
    char ip[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &inet.sin_addr, ip, sizeof ip);
    if ((transport & (type_udp | type_tcp)) != 0) MS_LOG("server listen fd[%d] at %s:%d", fd, ip, ntohs(inet.sin_port));
    if (transport == type_unix) MS_LOG("server listen fd[%d] at %s", fd, path);
    return 0;
}
