// portal_segment.h: the portal daemon's side of its kernel module, and of the other access points of the segment.
//
// A thread of its own listens for frames that ask to kick clients off; what it and the message loop ask of the module
// goes through one mutex, since the module's answers come in one global.
#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <mutex>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <utility>
#include <vector>

#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "foundation/text.h"
#include "tools/portal_peers/client_record.h"

namespace portald {

using Mac = std::array<unsigned char, 6>;

inline constexpr size_t most_frame_macs = 170;
inline constexpr uint32_t kick_message = 1;
inline constexpr uint16_t frame_type = 0x5757;
inline constexpr size_t frame_type_offset = 12, message_type_offset = 28, count_offset = 96, macs_offset = 100;

inline std::mutex module_mutex;  // guards portal_info
inline portal_kick_batch batch;

// False when the text is too long for the field.
template <size_t N> bool fill(char (&field)[N], const std::string &text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N));
    return text.size() <= N;
}

inline bool read_mac(const std::string &text, Mac &mac) {
    unsigned int bytes[6];
    char rest;
    if (text.size() != 17) return false;
    // NOLINTNEXTLINE(cert-err34-c): two digits always fit a byte, and the fields are counted
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                    &bytes[5], &rest) != 6)
        return false;
    std::ranges::transform(bytes, mac.begin(), [](unsigned int byte) { return static_cast<unsigned char>(byte); });
    return true;
}

// As the library compares them: capital letters.
inline std::string mac_text(const unsigned char *mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

inline void forget_records() { std::free(std::exchange(portal_info, nullptr)); }

inline bool kick_here(const std::vector<Mac> &macs) {
    const std::lock_guard lock(module_mutex);
    const auto *first = reinterpret_cast<const unsigned char(*)[6]>(macs.data());
    const bool kicked = tpi_ap_portal_del_mac(static_cast<unsigned int>(macs.size()), first, peers::kick) == 0;
    forget_records();
    return kicked;
}

inline bool kick_everywhere(const std::vector<Mac> &macs) {
    portal_kick_batch request = batch;
    request.head.count = static_cast<uint32_t>(macs.size());
    std::memcpy(request.macs, macs.data(), macs.size() * sizeof(Mac));
    return tpi_portal_broadcast_pkt_to_ap(&request.head) == 0;
}

inline void announce(const std::string &user, const Mac &mac) {
    peers::ClientRecord record = {};
    std::ranges::copy(mac, record.mac);
    fill(record.user_name, user);
    ap::store_le(record.kind, peers::web_account_kind);
    ap_portal_online_user_add(&record, sizeof record);
}

// Frames of this access point come too, so that the sweep's batches reach its own module.
inline void listen_for_frames(int link) {
    unsigned char frame[2048];
    for (;;) {
        const ssize_t got = ap::retry_interrupted([&] { return recv(link, frame, sizeof frame, 0); });
        if (got < 0) return std::perror("portald: frames");
        const auto length = static_cast<size_t>(got);
        if (length < macs_offset || ap::le16(frame + frame_type_offset) != frame_type ||
            ap::le16(frame + message_type_offset) != kick_message)
            continue;
        std::vector<Mac> macs(std::min<size_t>(ap::le32(frame + count_offset), (length - macs_offset) / sizeof(Mac)));
        if (macs.empty()) continue;
        std::memcpy(macs.data(), frame + macs_offset, macs.size() * sizeof(Mac));
        std::printf("portald: a frame asks to kick %zu off, %s\n", macs.size(),
                    kick_here(macs) ? "done" : "none is here");
    }
}

inline ap::UniqueFd open_link(const char *interface, uint16_t protocol) {
    ap::UniqueFd link(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(protocol)));
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    if (!link || address.sll_ifindex == 0 ||
        bind(link.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        link.reset();
    return link;
}

// False when the interface cannot be used. Both sockets live as long as the process.
inline bool join_segment(const char *interface) {
    ap::UniqueFd sender = open_link(interface, 0), listener = open_link(interface, ETH_P_ALL);
    const ap::UniqueFd query(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    ap::copy_text(request.ifr_name, interface);
    if (!sender || !listener || ioctl(query.get(), SIOCGIFHWADDR, &request) != 0) return false;
    std::memcpy(batch.head.source, request.ifr_hwaddr.sa_data, sizeof batch.head.source);
    if (ioctl(query.get(), SIOCGIFADDR, &request) == 0)
        std::memcpy(batch.head.address, request.ifr_addr.sa_data + 2, sizeof batch.head.address);
    batch.head.type = kick_message;
    batch.head.socket = static_cast<uint32_t>(sender.take());
    std::thread(listen_for_frames, listener.take()).detach();
    return true;
}

}  // namespace portald
