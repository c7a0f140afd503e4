// network.cpp: see network.h. Talks rtnetlink, one request and one acknowledgement at a time.

#include "tools/apbox/network.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/apbox/failure.h"
#include "tools/apbox/files.h"

namespace box {

namespace {

constexpr const char *lan_port = "eth0", *lan_bridge = "br0", *lan_switch = "lan", *wan_switch = "wan";
constexpr const char *wan_ports[] = {"eth1", "eth2", "eth3", "eth4"};

// One request: a header, a fixed part, attributes that may hold others.
class Request {
public:
    template <typename Fixed> Request(uint16_t type, uint16_t flags, const Fixed &fixed) {
        nlmsghdr header{};
        header.nlmsg_type = type;
        header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
        append(header);
        append(fixed);
    }

    Request &add(uint16_t type, const void *data, size_t size) {
        append(rtattr{static_cast<uint16_t>(sizeof(rtattr) + size), type});
        bytes_.append(static_cast<const char *>(data), size);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
        return *this;
    }
    Request &add(uint16_t type, const std::string &text) { return add(type, text.c_str(), text.size() + 1); }
    Request &add(uint16_t type, uint32_t value) { return add(type, &value, sizeof value); }

    // What `fill` adds goes into an attribute of this type.
    template <typename Fill> Request &nest(uint16_t type, Fill fill) {
        const size_t start = bytes_.size();
        append(rtattr{0, type});
        fill(*this);
        const auto length = static_cast<uint16_t>(bytes_.size() - start);
        std::memcpy(bytes_.data() + start + offsetof(rtattr, rta_len), &length, sizeof length);
        return *this;
    }

    template <typename Part> void append(const Part &part) {
        bytes_.append(reinterpret_cast<const char *>(&part), sizeof part);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }

    const std::string &finish() {
        const auto length = static_cast<uint32_t>(bytes_.size());
        std::memcpy(bytes_.data() + offsetof(nlmsghdr, nlmsg_len), &length, sizeof length);
        return bytes_;
    }

private:
    std::string bytes_;
};

class Netlink {
public:
    Netlink()
        : socket_(static_cast<int>(must(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE), "netlink"))) {}

    void send(Request &request, const std::string &what) {
        const std::string &bytes = request.finish();
        must(::send(socket_.get(), bytes.data(), bytes.size(), 0), what);
        alignas(nlmsghdr) char answer[4096];
        must(recv(socket_.get(), answer, sizeof answer, 0), what);
        nlmsgerr result{};
        std::memcpy(&result, answer + NLMSG_HDRLEN, sizeof result);
        if (result.error == -EOPNOTSUPP)
            throw Failure(exit_no_box, "this machine allows no box: its kernel cannot " + what);
        errno = -result.error;
        must(result.error, what);
    }

private:
    Descriptor socket_;
};

ifinfomsg link_of(const std::string &name, bool up = false) {
    ifinfomsg link{};
    link.ifi_family = AF_UNSPEC;
    link.ifi_index = name.empty() ? 0 : static_cast<int>(if_nametoindex(name.c_str()));
    link.ifi_flags = up ? IFF_UP : 0;
    link.ifi_change = up ? IFF_UP : 0;
    return link;
}

// Locally administered, the same at each start: 02:41:50, the number, the port.
std::array<uint8_t, 6> hardware_address(int number, size_t port) {
    return {
        0x02, 0x41, 0x50, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number), static_cast<uint8_t>(port)};
}

void add_bridge(Netlink &netlink, const std::string &name) {
    Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, link_of("", true));
    request.add(IFLA_IFNAME, name);
    request.nest(IFLA_LINKINFO, [](Request &r) { r.add(IFLA_INFO_KIND, "bridge"); });
    netlink.send(request, "make bridge " + name);
}

struct Cable {
    std::string inside, outside;  // the names of its two ends
    std::array<uint8_t, 6> address;
    const char *into;  // the switch
};

void add_cable(Netlink &netlink, const Cable &cable, pid_t process_1) {
    Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, link_of("", true));
    request.add(IFLA_IFNAME, cable.outside).add(IFLA_MASTER, if_nametoindex(cable.into));
    request.nest(IFLA_LINKINFO, [&](Request &info) {
        info.add(IFLA_INFO_KIND, "veth");
        info.nest(IFLA_INFO_DATA, [&](Request &data) {
            data.nest(VETH_INFO_PEER, [&](Request &peer) {
                peer.append(ifinfomsg{});
                peer.add(IFLA_IFNAME, cable.inside).add(IFLA_ADDRESS, cable.address.data(), cable.address.size());
                peer.add(IFLA_NET_NS_PID, static_cast<uint32_t>(process_1));
            });
        });
    });
    netlink.send(request, "plug in " + cable.inside);
}

void set_up(Netlink &netlink, const std::string &name, const std::string &master = "") {
    Request request(RTM_NEWLINK, 0, link_of(name, true));
    if (!master.empty()) request.add(IFLA_MASTER, if_nametoindex(master.c_str()));
    netlink.send(request, "bring up " + name);
}

void add_address(Netlink &netlink, const std::string &name, const LanAddress &address) {
    ifaddrmsg message{};
    message.ifa_family = AF_INET;
    message.ifa_prefixlen = address.prefix;
    message.ifa_index = if_nametoindex(name.c_str());
    const uint32_t host_mask = ~0U >> address.prefix;
    Request request(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, message);
    request.add(IFA_LOCAL, htonl(address.address)).add(IFA_ADDRESS, htonl(address.address));
    request.add(IFA_BROADCAST, htonl(address.address | host_mask));
    netlink.send(request, "give " + name + " an address");
}

}  // namespace

LanAddress lan_address(const std::string &text, int number) {
    in_addr parsed{};
    if (text.empty()) return {0xc0a80000U + static_cast<uint32_t>(number)};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1)
        throw Failure(exit_usage, "\"" + text + "\" is no IPv4 address");
    return {ntohl(parsed.s_addr)};
}

std::string text_of(const LanAddress &address) {
    const in_addr network{htonl(address.address)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &network, text, sizeof text);
}

void make_or_join_switches(pid_t member) {
    if (member != 0) {
        const Descriptor network = open_file("/proc/" + std::to_string(member) + "/ns/net", O_RDONLY);
        must(setns(network.get(), CLONE_NEWNET), "join the network");
        return;
    }
    must(unshare(CLONE_NEWNET), "make a network");
    Netlink netlink;
    for (const char *name : {lan_switch, wan_switch}) add_bridge(netlink, name);
}

void plug_in(pid_t process_1, int number, int boot) {
    Netlink netlink;
    const std::string prefix = "p" + std::to_string(getpid()) + "." + std::to_string(boot % 1000) + ".";
    add_cable(netlink, {lan_port, prefix + "0", hardware_address(number, 0), lan_switch}, process_1);
    for (size_t i = 0; i < std::size(wan_ports); ++i)
        add_cable(netlink, {wan_ports[i], prefix + std::to_string(i + 1), hardware_address(number, i + 1), wan_switch},
                  process_1);
}

void bring_up(const LanAddress &address) {
    Netlink netlink;
    set_up(netlink, "lo");
    add_bridge(netlink, lan_bridge);
    set_up(netlink, lan_port, lan_bridge);
    add_address(netlink, lan_bridge, address);
    for (const char *port : wan_ports) set_up(netlink, port);
}

}  // namespace box
