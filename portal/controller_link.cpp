// controller_link.cpp: one exchange with the access controller over UDP port 5247.
//
// A packet is a header of eight 16-bit words and the portal message; words travel in the device's own byte order. The
// answer has a header of the same length, then the block whose first word is the status.

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <sys/socket.h>

#include "apsupport/foundation.h"
#include "apsupport/identify.h"
#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/portal_line.h"
#include "foundation/text.h"
#include "portal/links.h"

namespace ap {

namespace {

constexpr int failed = 255;
constexpr int no_answer = 20;
constexpr uint16_t controller_port = 5247;
constexpr size_t answer_size = 2000;

struct ControllerHeader {
    uint16_t version, sequence, magic, zero, ap_type, vendor_type, message_kind, payload_length;
};
struct ControllerPacket {
    ControllerHeader header;
    uint8_t payload[portal_message_size];
};
static_assert(sizeof(ControllerHeader) == size_t{8} * 2 && sizeof(ControllerPacket) == 16 + 616);

bool is_sent(uint32_t type) { return (type >= 1 && type <= 6) || type == 21 || type == 22; }

// Without one of the codes the header stays incomplete, and so announces no payload.
void create_packet_to_ac(ControllerPacket &packet, const void *message) {
    unsigned int code = 0;
    packet = {};
    packet.header.version = Swap16(2);
    packet.header.sequence = Swap16(static_cast<uint16_t>(get_seq_num()));
    packet.header.magic = Swap16(22616);
    if (catch_ap_type(&code) != 0) {
        AP_PORTAL_ERROR(public_socket_source, "get ap type failure!");
        return;
    }
    packet.header.ap_type = Swap16(static_cast<uint16_t>(code));
    if (get_vendor_type(&code) != 0) {
        AP_PORTAL_ERROR(public_socket_source, "get vendor type failure!");
        return;
    }
    packet.header.vendor_type = Swap16(static_cast<uint16_t>(code));
    packet.header.message_kind = Swap16(24);
    packet.header.payload_length = Swap16(static_cast<uint16_t>(portal_message_size));
    std::memcpy(packet.payload, message, portal_message_size);
}

// True when the whole packet went out.
bool send_manage_packets(const UniqueFd &link, const sockaddr_in &controller, const ControllerPacket *packet) {
    if (packet == nullptr) return AP_PORTAL_ERROR(public_socket_source, "msg is NULL.\n"), false;
    const size_t length = size_t{Swap16(packet->header.payload_length)} + sizeof packet->header;
    const ssize_t sent = retry_interrupted([&] {
        return sendto(link.get(), packet, length, 0, reinterpret_cast<const sockaddr *>(&controller),
                      sizeof controller);
    });
    if (sent == static_cast<ssize_t>(length)) return true;
    std::perror("Sendto.");
    return false;
}

// The answer's status, with its block copied over the message.
int receive_status(const UniqueFd &link, void *message) {
    uint8_t answer[answer_size];
    if (wait_readable(link.get()) <= 0) return no_answer;
    const ssize_t length = retry_interrupted([&] { return recv(link.get(), answer, sizeof answer, MSG_DONTWAIT); });
    if (length < static_cast<ssize_t>(sizeof(ControllerHeader) + sizeof(uint32_t))) return no_answer;
    const uint8_t *block = answer + sizeof(ControllerHeader);
    std::memcpy(message, block, std::min(static_cast<size_t>(length) - sizeof(ControllerHeader), portal_message_size));
    return static_cast<int>(le32(block));
}

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_interaction_ac(const char *controller_address, void *message616) {
    if (message616 == nullptr) return failed;
    if (!is_sent(le32(message616))) return 0;

    ControllerPacket packet;
    create_packet_to_ac(packet, message616);
    const UniqueFd link(init_net_udp_sock());
    if (!link || controller_address == nullptr) return no_answer;
    sockaddr_in controller = {};
    controller.sin_family = AF_INET;
    controller.sin_port = htons(controller_port);
    controller.sin_addr.s_addr = inet_addr(controller_address);
    if (!send_manage_packets(link, controller, &packet)) return no_answer;
    return receive_status(link, message616);
}
