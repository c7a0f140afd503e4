// portal_server_answers_fuzz.cpp: any bytes as the controller's and the management server's answers: what arrived, at
// most a message, stands in the message's place, and an answer that is too short leaves it alone.

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/select.h>
#include <sys/un.h>

#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "fuzz/support/quiet.h"

using Message = std::array<uint8_t, 616>;

static const uint8_t *answer;
static size_t answer_size;
static bool asks_controller;

static void require(bool holds) {
    if (!holds) std::abort();
}

template <typename Address> static ap::UniqueFd server_at(int domain, int type, const Address &address) {
    ap::UniqueFd server(socket(domain, type, 0));
    require(bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
    return server;
}

static const ap::UniqueFd &controller() {
    static const ap::UniqueFd server = server_at(AF_INET, SOCK_DGRAM, sockaddr_in{AF_INET, htons(5247), {}, {}});
    return server;
}

static void answer_as_controller() {
    uint8_t packet[16 + 616];
    sockaddr_in sender = {};
    socklen_t size = sizeof sender;
    auto *const address = reinterpret_cast<sockaddr *>(&sender);
    require(recvfrom(controller().get(), packet, sizeof packet, 0, address, &size) > 0);
    sendto(controller().get(), answer, answer_size, 0, address, size);
}

static const ap::UniqueFd &management_server() {
    static const ap::UniqueFd server = [] {
        unlink("/tmp/ap_portal.socket");
        ap::UniqueFd made = server_at(AF_UNIX, SOCK_STREAM, sockaddr_un{AF_UNIX, "/tmp/ap_portal.socket"});
        listen(made.get(), 1);
        return made;
    }();
    return server;
}

// The library waits here: its message is there, and the answer is sent.
extern "C" int select(int count, fd_set *readable, fd_set *, fd_set *, timeval *) {
    if (asks_controller) {
        answer_as_controller();
    } else {
        const ap::UniqueFd peer(accept(management_server().get(), nullptr, nullptr));
        Message message;
        require(ap::read_full(peer.get(), message.data(), message.size()) == sizeof message);
        ap::write_full(peer.get(), answer, answer_size);
    }
    const timespec at_once = {};
    return pselect(count, readable, nullptr, nullptr, &at_once, nullptr);
}

static Message question() {
    Message message;
    message.fill(0x5A);
    ap::store_le(message.data(), uint32_t{21});
    return message;
}

static Message overwritten(const uint8_t *bytes, size_t size) {
    Message message = question();
    std::copy_n(bytes, std::min(size, message.size()), message.begin());
    return message;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    controller(), management_server();
    answer = data;
    answer_size = std::min<size_t>(size, 4000);

    asks_controller = true;
    Message message = question();
    const bool has_status = answer_size >= 16 + 4;
    const int status = has_status ? static_cast<int>(ap::le32(data + 16)) : 20;
    require(tpi_interaction_ac("127.0.0.1", message.data()) == status);
    require(message == (has_status ? overwritten(data + 16, std::min<size_t>(answer_size, 2000) - 16) : question()));

    asks_controller = false;
    message = question();
    require(tpi_connect_with_ap_mng_svr(message.data()) == (answer_size != 0 ? 0 : 255));
    require(message == overwritten(data, answer_size));
    return 0;
}
