// portal_kernel_answer_fuzz.cpp: any bytes as the kernel module's answer: what arrived whole is kept, and nothing more.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>

#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "platform/host/portal_netlink.h"

static const uint8_t *answer;
static size_t answer_size;

static void require(bool holds) {
    if (!holds) std::abort();
}

// A machine without such sockets, as the user emulation of the device's processor is, skips the seeds.
static const ap::UniqueFd &module_end() {
    static const ap::UniqueFd module = ap::host::open_portal_module();
    if (module) return module;
    std::puts("no user-space netlink sockets here");
    std::exit(77);
}

// The library waits here: the request is there, and the answer is sent.
extern "C" int poll(pollfd *waiting, nfds_t count, int) {
    static uint8_t request[30720];
    sockaddr_nl sender = {};
    socklen_t size = sizeof sender;
    auto *const address = reinterpret_cast<sockaddr *>(&sender);
    require(recvfrom(module_end().get(), request, sizeof request, 0, address, &size) == sizeof request);
    if (sendto(module_end().get(), answer, answer_size, 0, address, size) < 0) return 0;
    const timespec at_once = {};
    return ppoll(waiting, count, &at_once, nullptr);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    module_end();
    answer = data;
    answer_size = std::min<size_t>(size, 40000);
    constexpr size_t head_size = 16 + 4, record_size = 112;
    const bool has_count = answer_size >= head_size;
    const size_t arrived = has_count ? (std::min<size_t>(answer_size, 30720) - head_size) / record_size : 0;
    const size_t expected = has_count ? std::min<size_t>(ap::le32(data + 16), arrived) : 0;

    unsigned int count = 0;
    require(tpi_ap_portal_get_node_info(&count) == (has_count ? 0 : 255) && count == expected);
    require((portal_info != nullptr) == (expected != 0));
    if (expected != 0) require(std::memcmp(portal_info, data + head_size, expected * record_size) == 0);
    std::free(std::exchange(portal_info, nullptr));

    require(tpi_ap_portal_del_mac(0, nullptr, 26) == (expected != 0 ? 0 : 255));
    std::free(std::exchange(portal_info, nullptr));
    return 0;
}
