// network.h: a box's network interfaces.
//
// A box has br0, its LAN bridge, with the port eth0, and eth1 to eth4, its WAN ports. Each port is one end of a cable;
// the other end is plugged into a switch, a bridge in the namespace of the boxes' keepers: "lan" for eth0, "wan" for
// the others. So boxes of one network reach each other, and nothing of it exists on the machine's own network.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace box {

struct LanAddress {
    uint32_t address;  // as the host counts
    uint8_t prefix = 24;
};

// "A.B.C.D"; without a text 192.168.0.N, N being the box's number. Throws when the text is no address.
LanAddress lan_address(const std::string &text, int number);
std::string text_of(const LanAddress &address);

// Gives this process a network of its own that holds the two switches, or joins the one of the keeper `member`.
void make_or_join_switches(pid_t member);

// Plugs the ports of the box with this number into the switches; their other ends appear in the network of process 1.
// `boot` keeps the names apart from those of the box's last start: the kernel takes its time to remove them.
void plug_in(pid_t process_1, int number, int boot);

// For process 1: brings up the loopback, the bridge with its address and the ports.
void bring_up(const LanAddress &address);

}  // namespace box
