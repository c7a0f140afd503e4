// kernel_link.cpp: requests to the portal's kernel module over netlink protocol 29, and its lists of clients.
//
// A request is a netlink header and a payload in one buffer that is sent whole; only the announcement of an online user
// is as long as its data. An answer's payload is a count and as many client records of 112 bytes. Every request has a
// socket of its own, so nothing here is locked.

#include "portal/kernel_link.h"

#include <algorithm>
#include <cstdio>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/portal_line.h"

void *portal_info;

namespace ap {

namespace {

constexpr int portal_protocol = 29;
constexpr int failed = 255;
constexpr int answer_wait_ms = 2000;
constexpr size_t message_size = 30720;
constexpr size_t header_size = 4 + 2 + 2 + 4 + 4;
constexpr size_t payload_size = message_size - header_size;
constexpr size_t record_size = 112;
constexpr size_t mac_size = 6;
static_assert(sizeof(nlmsghdr) == header_size);

struct Message {
    uint8_t header[header_size];
    uint8_t payload[payload_size];
};
static_assert(sizeof(Message) == message_size);

struct PortalCommand {
    PortalType type;
    size_t length;  // 0: the command does nothing
};
constexpr PortalCommand commands[] = {
    {PortalType::start, 68},     {PortalType::start, 68},         {PortalType::start, 0},
    {PortalType::client, 112},   {PortalType::client, 112},       {PortalType::lists, 20736},
    {PortalType::settings, 312}, {PortalType::client_state, 112}, {PortalType::client_rule, 112},
};
constexpr unsigned int load_module_command = 1;

void fill_header(Message &message, uint16_t type, size_t length) {
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(length);
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST;
    header.nlmsg_pid = static_cast<uint32_t>(getpid());
    std::memcpy(message.header, &header, sizeof header);
}

// Bound to the process's id, so that the module can answer to the sender port. Where that is taken, as by another request
// at the same time, the kernel chooses a port at the send.
UniqueFd open_portal_socket() {
    UniqueFd channel(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, portal_protocol));
    if (!channel) return channel;
    sockaddr_nl own = {};
    own.nl_family = AF_NETLINK;
    own.nl_pid = static_cast<uint32_t>(getpid());
    static_cast<void>(bind(channel.get(), reinterpret_cast<sockaddr *>(&own), sizeof own));
    return channel;
}

bool send_message(const UniqueFd &channel, Message &message, size_t length) {
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    iovec part = {&message, length};
    msghdr request = {};
    request.msg_name = &kernel;
    request.msg_namelen = sizeof kernel;
    request.msg_iov = &part;
    request.msg_iovlen = 1;
    return retry_interrupted([&] { return sendmsg(channel.get(), &request, 0); }) >= 0;
}

// 0 or `failed`.
int portal_talking_with_kernel(PortalType type, const void *data, size_t data_length, size_t message_length) {
    if (data == nullptr || data_length > payload_size)
        return AP_PORTAL_DEBUG(portal_source, "No message need to be send\n"), failed;
    Message message = {};
    fill_header(message, static_cast<uint16_t>(type), message_length);
    if (data_length != 0) std::memcpy(message.payload, data, data_length);
    const UniqueFd channel = open_portal_socket();
    if (channel && send_message(channel, message, message_length)) return 0;
    std::printf("%s,%d:Fail to send out msg:%s(%d)\n", "portal_talking_with_kernel", __LINE__, std::strerror(errno),
                errno);
    return failed;
}

// Signals do not prolong the wait.
bool wait_for_answer(const UniqueFd &channel) {
    pollfd waiting = {channel.get(), POLLIN, 0};
    const uint64_t end_ms = get_now_ms() + answer_wait_ms;
    for (int left_ms = answer_wait_ms; left_ms > 0; left_ms = static_cast<int>(end_ms - get_now_ms())) {
        const int ready = poll(&waiting, 1, left_ms);
        if (ready >= 0 || errno != EINTR) return ready > 0;
    }
    return false;
}

// Sends a filled message whole, and waits for the answer, which takes its place. The answer's bytes, or -1.
ssize_t exchange(Message &message, uint16_t type) {
    fill_header(message, type, message_size);
    const UniqueFd channel = open_portal_socket();
    if (!channel || !send_message(channel, message, message_size)) {
        std::printf("Fail to send out msg:%s(%d)\n", std::strerror(errno), errno);
        return -1;
    }
    if (!wait_for_answer(channel)) return -1;
    const ssize_t length =
        retry_interrupted([&] { return recv(channel.get(), &message, sizeof message, MSG_DONTWAIT); });
    if (length < 0) std::printf("Fail to recv msg:%s(%d)\n", std::strerror(errno), errno);
    return length;
}

// Reads the answer's count, at most the records that arrived, and keeps those in `portal_info`. 0 or `failed`, where
// `function` names the caller in the line about it.
int keep_records(const char *function, const Message &answer, ssize_t length, uint32_t &count) {
    constexpr size_t count_size = sizeof(uint32_t);
    if (length < static_cast<ssize_t>(header_size + count_size)) return failed;
    const size_t arrived = (static_cast<size_t>(length) - header_size - count_size) / record_size;
    const size_t kept = std::min<size_t>(le32(answer.payload), arrived);
    count = static_cast<uint32_t>(kept);
    if (kept != 0) {
        portal_info = std::malloc(kept * record_size);
        if (portal_info == nullptr)
            return std::printf("Debug->%s: %s(%d)--alloc memery is fail\n", portal_source, function, __LINE__), failed;
        std::memcpy(portal_info, answer.payload + count_size, kept * record_size);
    }
    return 0;
}

}  // namespace

void send_to_portal(PortalType type, const void *data, size_t length) {
    portal_talking_with_kernel(type, data, length, message_size);
}

}  // namespace ap

using namespace ap;

int tpi_ap_portal_handle(unsigned int command, const void *data) {
    if (command >= std::size(commands) || commands[command].length == 0) return 0;
    if (command == load_module_command) doSystemCmd("insmod /lib/modules/ap_portal.ko");
    send_to_portal(commands[command].type, data, commands[command].length);
    return 0;
}

int ap_portal_online_user_add(const void *data, int length) {
    const size_t data_length = length < 0 ? 0 : static_cast<size_t>(length);
    return portal_talking_with_kernel(PortalType::online_user, length < 0 ? nullptr : data, data_length,
                                      data_length + header_size);
}

int tpi_ap_portal_get_node_info(unsigned int *count) {
    Message message = {};
    const ssize_t length = exchange(message, static_cast<uint16_t>(PortalType::node_info));
    uint32_t records = 0;
    return keep_records(__func__, message, length, count != nullptr ? *count : records);
}

int tpi_ap_portal_del_mac(unsigned int count, const unsigned char (*macs)[6], int type) {
    constexpr size_t most_macs = (payload_size - sizeof count) / mac_size;
    if (count > most_macs || (count != 0 && macs == nullptr)) return failed;
    Message message = {};
    store_le(message.payload, count);
    if (count != 0) std::memcpy(message.payload + sizeof count, macs, count * mac_size);

    const ssize_t length = exchange(message, static_cast<uint16_t>(type));
    uint32_t records = 0;
    return keep_records(__func__, message, length, records) == 0 && records != 0 ? 0 : failed;
}
