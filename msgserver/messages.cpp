// messages.cpp: one-way messages, dialogs and answers. Bytes travel as they are; only netlink has a header before them:
//
//   message length (payload + 16) u32 | type 0 u16 | flags 0 u16 | sequence 0 u32 | sender's process id u32 | payload
//
// in the machine's byte order, always to the kernel. One send and one receive call a message, nothing is retried. Any
// thread.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "msgserver/records.h"

namespace ap {
namespace {

static_assert(sizeof(nlmsghdr) == netlink_header_size);

struct Bytes {
    const void *data;
    int length;
    bool are_sendable() const { return length >= 0 || (errno = EINVAL, false); }
};

// One call; a peer that has vanished is an error like any other, never a signal that ends the process.
int send_once(int fd, const Bytes &bytes) {
    if (!bytes.are_sendable()) return -1;
    return static_cast<int>(send(fd, bytes.data, static_cast<size_t>(bytes.length), MSG_NOSIGNAL));
}

int send_once_to(int fd, const Bytes &bytes, const sockaddr *address, int address_length) {
    if (!bytes.are_sendable()) return -1;
    return static_cast<int>(sendto(fd, bytes.data, static_cast<size_t>(bytes.length), MSG_NOSIGNAL, address,
                                   static_cast<socklen_t>(address_length)));
}

int or_say(int sent, const char *failure) {
    if (sent < 0) std::perror(failure);
    return sent;
}

int send_over(unsigned transport, int fd, const Bytes &bytes, const sockaddr *address, int address_length) {
    switch (transport) {
    case type_tcp: return or_say(send_once(fd, bytes), "ERROR : TCP");
    case type_udp: return or_say(send_once_to(fd, bytes, address, address_length), "ERROR : UDP");
    case type_netlink: return or_say(ms_netlink_send(fd, bytes.data, bytes.length), "ERROR : NETLINK");
    default: return 0;
    }
}

// A resolved address and a socket of its type, closed and released at the end of the call that made them.
class Client {
public:
    explicit Client(const char *address) : address_(resolve(address, type_, proto_)) {
        if (address_) fd_ = ms_socket(type_, proto_);
        if (type_ == type_udp && fd_ >= 0) claim_port(fd_);
    }
    ~Client() {
        if (fd_ >= 0) close_counted(fd_);
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    void send(const void *data, int length) {
        ms_send_addr(fd_, type_, address_.get(), address_.length(), data, length);
    }
    int receive(void *answer, int size) {
        const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
        auto sender_size = static_cast<socklen_t>(address_.length());
        switch (type_) {
        case type_tcp:
        case type_unix: return static_cast<int>(recv(fd_, answer, room, 0));
        case type_udp: return static_cast<int>(recvfrom(fd_, answer, room, 0, address_.get(), &sender_size));
        case type_netlink: return ms_netlink_recv(fd_, answer);  // as much as its header says, whatever `size` is
        default: return 0;
        }
    }

private:
    unsigned type_ = 0;
    int proto_ = 0;
    OwnedAddress address_;
    int fd_ = -1;
};

}  // namespace
}  // namespace ap

using namespace ap;

int ms_notify(const char *address, const void *data, int length) {
    Client client(address);
    if (!client) return -1;
    client.send(data, length);
    return 0;
}

int ms_dialog(const char *address, const void *data, int length, void *answer, int size) {
    Client client(address);
    if (!client) return -1;
    client.send(data, length);
    return client.receive(answer, size);
}

// A netlink send counts its header too, so it never equals `length`: the message goes out and the result is -1.
int ms_send_addr(int fd, unsigned int type, const struct sockaddr *address, int address_length, const void *data,
                 int length) {
    const bool is_stream = (type & (type_tcp | type_unix)) != 0;
    if (is_stream && ms_connect(fd, address, address_length) < 0) return -1;
    const unsigned transport = is_stream ? type_tcp : first_of(type, {type_udp, type_netlink});
    const int sent = send_over(transport, fd, {data, length}, address, address_length);
    if (sent >= 0 && sent == length) return 0;
    MS_LOG("send error, ret = %d, len = %d", sent, length);
    return -1;
}

// A netlink peer has the UDP flag as well: an answer to it goes out as it is, without a header, to no particular
// address.
int ms_send(struct ms_session *session, const void *data, int length) {
    if (session == nullptr) return -1;
    const unsigned flags = session->sock->flags;
    const bool is_connection = (flags & type_tcp) != 0 && (flags & role_server) == 0;
    const unsigned transport = is_connection ? type_tcp : first_of(flags, {type_udp, type_netlink});
    const int sent = send_over(transport, session->sock->fd, {data, length}, session->address, session->address_length);
    if (sent >= 0 && sent == length) return 0;
    MS_LOG("send error, send len = %d, data len = %d", sent, length);
    return -1;
}

int ms_netlink_send(int fd, const void *data, int length) {
    if (data == nullptr || length < 1) return 0;
    if (length > max_message) {
        errno = EMSGSIZE;
        return -1;
    }
    unsigned char frame[max_frame] = {};
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(length + netlink_header_size);
    header.nlmsg_pid = static_cast<uint32_t>(getpid());
    std::memcpy(frame, &header, sizeof header);
    std::memcpy(frame + sizeof header, data, static_cast<size_t>(length));

    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    return static_cast<int>(
        sendto(fd, frame, header.nlmsg_len, 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel));
}

// The header's length counts, not what arrived: it is bounded by the caller's 16384 bytes, and what is missing reads as
// zeros. A length that does not even cover the header is a failure.
int ms_netlink_recv(int fd, void *buffer) {
    unsigned char frame[max_frame] = {};
    sockaddr_nl sender = {};
    socklen_t sender_size = sizeof sender;
    if (recvfrom(fd, frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&sender), &sender_size) < 0) {
        const int error = errno;
        char text[64];
        MS_LOG("ERROR :recv nl msg error [%s]", strerror_r(error, text, sizeof text));
        std::perror("ERROR : ");
        return -1;
    }
    const uint32_t message_length = le32(frame + offsetof(nlmsghdr, nlmsg_len));
    if (message_length < netlink_header_size) return -1;
    const uint32_t length = std::min<uint32_t>(message_length - netlink_header_size, max_message);
    std::memcpy(buffer, frame + netlink_header_size, length);
    return static_cast<int>(length);
}
