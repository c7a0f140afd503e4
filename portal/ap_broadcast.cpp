// ap_broadcast.cpp: tells the other access points of the segment which clients to kick off, in one raw layer-2 frame.
//
// The frame is a fixed head of 100 bytes and six bytes a MAC; its words travel in the device's own byte order.

#include <algorithm>
#include <sys/socket.h>

#include "apsupport/foundation.h"
#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"

namespace ap {

namespace {

constexpr int failed = 255;
constexpr size_t mac_size = 6;
constexpr size_t frame_head_size = 6 + 6 + 2 + 1 + 1 + 4 + 4 + 2 + 2 + 2 + 2 + 64 + 4;
constexpr size_t most_macs = (UINT16_MAX - 4) / mac_size;  // the payload's length is a 16-bit word
static_assert(frame_head_size == 100);

void fill_frame(uint8_t *frame, const portal_broadcast &request) {
    const size_t macs_length = request.count * mac_size;
    std::fill_n(frame, mac_size, uint8_t{0xFF});
    std::copy_n(request.source, mac_size, frame + 6);
    store_le(frame + 12, uint16_t{0x5757});
    frame[14] = static_cast<uint8_t>(get_seq_num());
    frame[15] = 3;
    std::copy_n(request.address, sizeof request.address, frame + 20);
    store_le(frame + 26, Swap16(request.value));
    store_le(frame + 28, Swap16(static_cast<uint16_t>(request.type)));
    store_le(frame + 30, Swap16(static_cast<uint16_t>(macs_length + 4)));
    store_le(frame + 96, Swap32(request.count));
    const auto *macs = reinterpret_cast<const uint8_t *>(&request) + sizeof request;
    std::copy_n(macs, macs_length, frame + frame_head_size);
}

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_portal_broadcast_pkt_to_ap(const struct portal_broadcast *request) {
    if (request == nullptr || request->count > most_macs) return failed;
    const size_t length = frame_head_size + request->count * mac_size;
    const HeapPtr<uint8_t> frame(static_cast<uint8_t *>(std::calloc(1, length)));
    if (!frame) return failed;
    fill_frame(frame.get(), *request);
    const int link = static_cast<int>(request->socket);
    const ssize_t sent = retry_interrupted([&] { return send(link, frame.get(), length, MSG_NOSIGNAL); });
    return sent == static_cast<ssize_t>(length) ? 0 : failed;
}
