// controller.cpp: the access controller, on UDP port 5247.
//
// A packet is eight 16-bit words and the portal message. The answer has the packet's words and its message, whose first
// word is the status: 0, or the number behind "--status".

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>

#include "foundation/file_io.h"
#include "tools/portal_peers/portal_message.h"
#include "tools/portal_peers/role.h"

namespace {

using namespace peers;

constexpr uint16_t controller_port = 5247;

struct Packet {
    uint8_t words[8 * 2];
    PortalMessage message;

    uint16_t word(size_t index) const { return ap::le16(words + 2 * index); }
};
static_assert(sizeof(Packet) == 16 + 616);

bool is_right(const Packet &packet, ssize_t length) {
    return length == static_cast<ssize_t>(sizeof packet) && packet.word(0) == 2 && packet.word(2) == 22616 &&
           packet.word(6) == 24 && packet.word(7) == packet.message.size();
}

ap::UniqueFd bound_socket() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(controller_port);
    ap::UniqueFd server(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (server && bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) server.reset();
    return server;
}

void answer(const ap::UniqueFd &server, uint32_t status) {
    Packet packet = {};
    sockaddr_in sender = {};
    socklen_t sender_size = sizeof sender;
    auto *const from = reinterpret_cast<sockaddr *>(&sender);
    const ssize_t length = ap::retry_interrupted(
        [&] { return recvfrom(server.get(), &packet, sizeof packet, MSG_TRUNC, from, &sender_size); });
    if (!is_right(packet, length)) {
        std::printf("a packet of %zd bytes that is not right\n", length);
        return;
    }
    std::printf("packet %u from type %#x, vendor %#x: message of type %u\n", packet.word(1), packet.word(4),
                packet.word(5), type_of(packet.message));
    ap::store_le(packet.message.data(), status);
    sendto(server.get(), &packet, sizeof packet, 0, from, sender_size);
}

int serve(const Words &words) {
    const bool has_status = words.size() == 2 && words[0] == "--status";
    if (!words.empty() && !has_status) return std::fputs("usage: portal_peers controller [--status N]\n", stderr), 2;
    const uint32_t status = has_status ? static_cast<uint32_t>(std::strtoul(words[1].c_str(), nullptr, 10)) : 0;
    const ap::UniqueFd server = bound_socket();
    if (!server) return failed("UDP port 5247");
    std::puts("ready");
    for (;;) answer(server, status);
}

const Role role{"controller", "the access controller, on UDP port 5247 [--status N]", serve};

}  // namespace
