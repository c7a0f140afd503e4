// firmware_messages.cpp: messages to the firmware's other services, over local sockets.
//
// The management API receives on the datagram socket "/var/socket/api": a message number (32 bits, the machine's byte
// order), then the text with its NUL. The user-information service listens on the sequenced-packet socket
// "/var/socket/user_info": one packet with the request, one packet back with the answer. When nobody listens, the call
// fails at once; a service that hangs is given up after three seconds.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "applatform/system.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"

namespace {

constexpr char api_path[] = "/var/socket/api", user_info_path[] = "/var/socket/user_info";
constexpr timeval time_limit = {3, 0};
constexpr size_t longest_answer = size_t{64} << 10;

template <size_t N> ap::UniqueFd connected_socket(int type, const char (&path)[N]) {
    ap::UniqueFd connection(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (!connection) return connection;
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &time_limit, sizeof time_limit);
    setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &time_limit, sizeof time_limit);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    static_assert(N <= sizeof address.sun_path);
    memcpy(address.sun_path, path, N);
    if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return ap::UniqueFd();
    return connection;
}

// The length of the packet that comes next, which stays in the socket; 0 when none comes.
size_t next_packet_length(int connection) {
    const ssize_t length = ap::retry_interrupted([&] { return recv(connection, nullptr, 0, MSG_PEEK | MSG_TRUNC); });
    return length > 0 ? std::min(static_cast<size_t>(length), longest_answer) : 0;
}

// The answer has room for at least `least_size` bytes; what did not come is zero, and so is a byte behind it.
void *receive_answer(int connection, size_t least_size) {
    const size_t length = next_packet_length(connection);
    if (length == 0) return nullptr;
    ap::HeapPtr<void> answer(calloc(1, std::max(length, least_size) + 1));
    if (!answer) return nullptr;
    return recv(connection, answer.get(), length, 0) > 0 ? answer.release() : nullptr;
}

}  // namespace

int ap_comm_send_msg_to_api(int message, const char *text) {
    if (text == nullptr) return -1;
    const ap::UniqueFd connection = connected_socket(SOCK_DGRAM, api_path);
    if (!connection) return -1;
    int32_t number = message;
    iovec parts[] = {{&number, sizeof number}, {const_cast<char *>(text), strlen(text) + 1}};
    msghdr packet = {};
    packet.msg_iov = parts;
    packet.msg_iovlen = 2;
    return ap::retry_interrupted([&] { return sendmsg(connection.get(), &packet, MSG_NOSIGNAL); }) >= 0 ? 0 : -1;
}

int send_msg_to_user_info(const void *request, void **answer, unsigned int length) {
    if (request == nullptr || answer == nullptr) return -1;
    const ap::UniqueFd connection = connected_socket(SOCK_SEQPACKET, user_info_path);
    if (!connection) return -1;
    if (ap::retry_interrupted([&] { return send(connection.get(), request, length, MSG_NOSIGNAL); }) < 0) return -1;
    void *received = receive_answer(connection.get(), length);
    if (received == nullptr) return -1;
    *answer = received;
    return 0;
}
