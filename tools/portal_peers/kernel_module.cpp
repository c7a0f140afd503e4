// kernel_module.cpp: the portal's kernel module: a table of online clients behind netlink protocol 29.
//
// Types 21 and 29 put a client record into the table, in place of the one with its MAC; 27 asks for the table; 25 and
// 26 carry a count and MACs, take those clients off and are answered with their records. An answer's payload is a count
// and the records. Everything else is printed only.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "foundation/text.h"
#include "platform/host/portal_netlink.h"
#include "tools/portal_peers/client_record.h"
#include "tools/portal_peers/role.h"

namespace {

using namespace peers;

using Bytes = std::span<const uint8_t>;
using Records = std::vector<ClientRecord>;

constexpr size_t message_size = 30720, mac_size = 6;
constexpr size_t most_clients = (message_size - sizeof(nlmsghdr) - sizeof(uint32_t)) / sizeof(ClientRecord);

Records online;

auto has_mac(const uint8_t *mac) {
    return [mac](const ClientRecord &record) { return std::memcmp(record.mac, mac, mac_size) == 0; };
}

void print_client(const char *what, const ClientRecord &record) {
    const auto &m = record.mac;
    const auto name = ap::field_text(record.user_name);
    std::printf("%s %02X:%02X:%02X:%02X:%02X:%02X %.*s\n", what, m[0], m[1], m[2], m[3], m[4], m[5],
                static_cast<int>(name.size()), name.data());
}

void put_online(Bytes payload) {
    ClientRecord record;
    if (payload.size() < sizeof record) return;
    std::memcpy(&record, payload.data(), sizeof record);
    std::erase_if(online, has_mac(record.mac));
    if (online.size() == most_clients) return print_client("no room for", record);
    online.push_back(record);
    print_client("online", record);
}

// Takes the clients off whose MACs stand behind the count; as many MACs as arrived.
Records kick_off(Bytes payload) {
    Records kicked;
    if (payload.size() < sizeof(uint32_t)) return kicked;
    const Bytes macs = payload.subspan(sizeof(uint32_t));
    const size_t count = std::min<size_t>(ap::le32(payload.data()), macs.size() / mac_size);
    for (size_t i = 0; i < count; ++i) {
        const auto found = std::ranges::find_if(online, has_mac(&macs[i * mac_size]));
        if (found == online.end()) continue;
        print_client("kicked", *found);
        kicked.push_back(*found);
        online.erase(found);
    }
    return kicked;
}

void answer(const ap::UniqueFd &module, const sockaddr_nl &receiver, const Records &records) {
    const size_t records_size = records.size() * sizeof(ClientRecord);
    std::vector<uint8_t> message(sizeof(nlmsghdr) + sizeof(uint32_t) + records_size);
    ap::store_le(message.data(), static_cast<uint32_t>(message.size()));
    ap::store_le(message.data() + sizeof(nlmsghdr), static_cast<uint32_t>(records.size()));
    if (records_size != 0)
        std::memcpy(message.data() + sizeof(nlmsghdr) + sizeof(uint32_t), records.data(), records_size);
    sendto(module.get(), message.data(), message.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&receiver),
           sizeof receiver);
}

void handle(const ap::UniqueFd &module, const sockaddr_nl &sender, Bytes message) {
    const uint16_t type = ap::le16(&message[offsetof(nlmsghdr, nlmsg_type)]);
    const Bytes payload = message.subspan(sizeof(nlmsghdr));
    switch (type) {
    case PortalType::client:
    case PortalType::online_user: return put_online(payload);
    case PortalType::node_info: return answer(module, sender, online);
    case PortalType::kick_one:
    case PortalType::kick: return answer(module, sender, kick_off(payload));
    default: std::printf("command of type %d\n", type);
    }
}

int serve(const Words &) {
    const ap::UniqueFd module = ap::host::open_portal_module();
    if (!module) return failed("netlink protocol 29");
    std::puts("ready");
    std::vector<uint8_t> message(message_size);
    for (;;) {
        sockaddr_nl sender = {};
        socklen_t sender_size = sizeof sender;
        const ssize_t length = ap::retry_interrupted([&] {
            return recvfrom(module.get(), message.data(), message.size(), 0, reinterpret_cast<sockaddr *>(&sender),
                            &sender_size);
        });
        if (length < 0 && errno != ENOBUFS) return failed("netlink protocol 29");
        if (length < static_cast<ssize_t>(sizeof(nlmsghdr))) continue;
        handle(module, sender, Bytes(message).first(static_cast<size_t>(length)));
    }
}

const Role role{"kernel", "the kernel module, behind netlink protocol 29", serve};

}  // namespace
