// Netlink frames of any bytes: the header's length decides, bounded by 16384, and what did not arrive reads as zeros.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <vector>

#include "apsupport/msgserver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static int ends[2] = {-1, -1};
    if (size > 16400 + 64) return 0;
    if (ends[0] < 0 && socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) abort();
    if (send(ends[0], data, size, 0) != static_cast<ssize_t>(size)) abort();

    std::vector<uint8_t> frame(data, data + size);
    frame.resize(16 + 16384);
    uint32_t message_length = 0;
    std::memcpy(&message_length, frame.data(), sizeof message_length);
    const int expected = message_length < 16 ? -1 : static_cast<int>(std::min<uint32_t>(message_length - 16, 16384));

    std::vector<uint8_t> payload(16384, 0xa5);
    if (ms_netlink_recv(ends[1], payload.data()) != expected) abort();
    const size_t filled = static_cast<size_t>(std::max(expected, 0));
    if (!std::equal(payload.begin(), payload.begin() + static_cast<long>(filled), frame.begin() + 16)) abort();
    if (std::any_of(payload.begin() + static_cast<long>(filled), payload.end(), [](uint8_t b) { return b != 0xa5; }))
        abort();
    return 0;
}
