// interfaces.cpp: the machine's own network interfaces: MAC addresses and link states through ioctl, counters through
// netlink. For a virtual radio's interface, which the kernel does not know, the world answers.

#include "applatform/interfaces.h"

#include <cstring>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "foundation/text.h"
#include "platform/host/interface_call.h"
#include "platform/host/world.h"

namespace ap::host {

namespace {

// Runs action(world, place) for a virtual radio's interface; -1 when there is none of that name.
template <typename Action> int on_radio_interface(const char *ifname, Action action) {
    WorldAccess access;
    if (!access || ifname == nullptr) return -1;
    const RadioPlace place = access->find_interface(ifname);
    return place ? action(*access, place) : -1;
}

const MacAddress *radio_mac(const RadioPlace &place) {
    if (place.network != nullptr) return &place.network->bssid;
    return place.radio->networks.empty() ? nullptr : &place.radio->networks.front().bssid;
}

struct LinkRequest {
    nlmsghdr header;
    ifinfomsg link;
};

bool send_link_request(int fd, unsigned int index) {
    LinkRequest request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.link.ifi_family = AF_UNSPEC;
    request.link.ifi_index = static_cast<int>(index);
    return send(fd, &request, sizeof request, 0) == static_cast<ssize_t>(sizeof request);
}

struct Counters {
    uint64_t received_bytes, received_packets, sent_bytes, sent_packets;
};

// The statistics attribute of the kernel's answer. Every length is checked against what was received.
bool find_counters(const uint8_t *answer, size_t length, Counters &counters) {
    nlmsghdr header;
    if (length < sizeof(LinkRequest)) return false;
    std::memcpy(&header, answer, sizeof header);
    if (header.nlmsg_type != RTM_NEWLINK) return false;
    for (size_t at = sizeof(LinkRequest); at + sizeof(rtattr) <= length;) {
        rtattr attribute;
        std::memcpy(&attribute, answer + at, sizeof attribute);
        if (attribute.rta_len < sizeof attribute || attribute.rta_len > length - at) return false;
        if (attribute.rta_type == IFLA_STATS64 && attribute.rta_len >= sizeof attribute + 4 * sizeof(uint64_t)) {
            const uint8_t *statistics = answer + at + sizeof attribute;  // packets received and sent, then bytes
            counters = {ap::le64(statistics + 16), ap::le64(statistics), ap::le64(statistics + 24),
                        ap::le64(statistics + 8)};
            return true;
        }
        at += RTA_ALIGN(attribute.rta_len);
    }
    return false;
}

bool kernel_counters(const char *ifname, Counters &counters) {
    const unsigned int index = if_nametoindex(ifname);
    if (index == 0) return false;
    const ap::UniqueFd netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!netlink || !send_link_request(netlink.get(), index)) return false;
    uint8_t answer[16384];
    const ssize_t length = ap::retry_interrupted([&] { return recv(netlink.get(), answer, sizeof answer, 0); });
    return length > 0 && find_counters(answer, static_cast<size_t>(length), counters);
}

Counters radio_counters(const World &world, const RadioPlace &place) {
    constexpr uint64_t usual_packet = 1000;
    Counters counters = {};
    for (const Client *client : world.clients_of(place)) {
        counters.received_bytes += world.bytes_received(*client);
        counters.sent_bytes += world.bytes_sent(*client);
    }
    counters.received_packets = counters.received_bytes / usual_packet;
    counters.sent_packets = counters.sent_bytes / usual_packet;
    return counters;
}

}  // namespace

bool call_interface(const char *ifname, unsigned long request, ifreq &call) {
    if (ap::is_empty(ifname) || std::strlen(ifname) >= IFNAMSIZ) return false;
    const ap::UniqueFd socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ap::copy_text(call.ifr_name, std::string_view(ifname));
    return socket_fd && ioctl(socket_fd.get(), request, &call) == 0;
}

}  // namespace ap::host

using namespace ap::host;

int ifaddrs_get_if_netmac(const char *ifname, unsigned char mac[6]) {
    ifreq answer = {};
    if (call_interface(ifname, SIOCGIFHWADDR, answer)) {
        std::memcpy(mac, answer.ifr_hwaddr.sa_data, 6);
        return 0;
    }
    return on_radio_interface(ifname, [&](World &, const RadioPlace &place) {
        const MacAddress *address = radio_mac(place);
        if (address == nullptr) return -1;
        std::memcpy(mac, address->data(), address->size());
        return 0;
    });
}

int ifaddrs_get_interface_downup(const char *ifname) {
    ifreq answer = {};
    if (call_interface(ifname, SIOCGIFFLAGS, answer)) return (answer.ifr_flags & IFF_UP) != 0 ? 1 : 0;
    return on_radio_interface(ifname, [](World &, const RadioPlace &place) { return place.is_up() ? 1 : 0; });
}

int sys_get_if_statistics(const char *ifname, void *record) {
    Counters counters = {};
    if (!ap::is_empty(ifname) && kernel_counters(ifname, counters)) {
        std::memcpy(record, &counters, sizeof counters);
        return 0;
    }
    return on_radio_interface(ifname, [&](World &world, const RadioPlace &place) {
        counters = radio_counters(world, place);
        std::memcpy(record, &counters, sizeof counters);
        return 0;
    });
}
