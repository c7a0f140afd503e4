// ports_gpio.cpp: interface names by number, switch ports, and GPIO lines.
//
// A port is either an interface of this machine, whose link is the real one, or as the scenario gives it. GPIO lines
// are virtual; their values and locks are kept in the world's state.

#include <deque>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <mutex>
#include <string>
#include <sys/ioctl.h>

#include "applatform/interfaces.h"
#include "foundation/byte_order.h"
#include "platform/host/interface_call.h"
#include "platform/host/world.h"

namespace ap::host {

namespace {

struct BuiltInName {
    int id;
    const char *name;
};
constexpr BuiltInName built_in_names[] = {
    {0, "br0"}, {8, "eth0"}, {12, "eth1"}, {13, "eth2"}, {14, "eth3"}, {15, "eth4"},
};
const PortLink no_link{0, "", 0, 0, 0};

constexpr const char *gpio_folders[] = {"gpio0",  "gpio1",  "gpio2",  "gpio3",  "gpio4",  "gpio5",
                                        "gpio6",  "gpio7",  "gpio8",  "gpio9",  "gpio10", "gpio32",
                                        "gpio33", "gpio34", "gpio35", "gpio36", "gpio37"};

std::string name_of(int id) {
    WorldAccess access;
    if (access)
        for (const InterfaceName &interface : access->scenario().interfaces)
            if (interface.id == id) return interface.name;
    for (const BuiltInName &built_in : built_in_names)
        if (built_in.id == id) return built_in.name;
    return {};
}

// A text that stays where it is as long as the process lives, since callers keep the pointer.
const char *lasting(const std::string &text) {
    static std::mutex mutex;
    static std::deque<std::string> texts;
    const std::scoped_lock lock(mutex);
    for (const std::string &kept : texts)
        if (kept == text) return kept.c_str();
    return texts.emplace_back(text).c_str();
}

PortLink real_link(PortLink port) {
    const char *ifname = port.interface.c_str();
    ifreq flags = {};
    if (!call_interface(ifname, SIOCGIFFLAGS, flags)) return no_link;
    port.link = (flags.ifr_flags & IFF_RUNNING) != 0 ? 1 : 0;
    ethtool_cmd settings = {};
    settings.cmd = ETHTOOL_GSET;
    ifreq call = {};
    call.ifr_data = reinterpret_cast<char *>(&settings);
    if (!call_interface(ifname, SIOCETHTOOL, call)) return port;
    const unsigned int speed = ethtool_cmd_speed(&settings);
    if (speed != static_cast<unsigned int>(SPEED_UNKNOWN)) port.speed = static_cast<int>(speed);
    if (settings.duplex != DUPLEX_UNKNOWN) port.duplex = settings.duplex;
    return port;
}

// Runs action(line) on one GPIO line of this access point; its result is the call's.
template <typename Action> int on_line(const char *call, int line, Action action) {
    WorldAccess access;
    if (!access || line < 0) return -1;
    if (const Fault *fault = access->meet_fault(call, "")) return fault->result;
    const std::string name = access->own() == nullptr ? "" : access->own()->name;
    return action(access->change().gpio_lines[name][line]);
}

}  // namespace

}  // namespace ap::host

using namespace ap::host;

// Null for a number that has no interface.
const char *iof_eth_name_get(int id) {
    const std::string name = name_of(id);
    return name.empty() ? nullptr : lasting(name);
}

int iof_port_status_get(int port, void *record12) {
    WorldAccess access;
    if (!access) return -1;
    if (const Fault *fault = access->meet_fault(__func__, "")) return fault->result;
    for (const PortLink &known : access->scenario().ports) {
        if (known.port != port) continue;
        const PortLink link = known.interface.empty() ? known : real_link(known);
        auto *record = static_cast<uint8_t *>(record12);
        ap::store_le(record, link.link);
        ap::store_le(record + 4, link.speed);
        ap::store_le(record + 8, link.duplex);
        return 0;
    }
    return -1;
}

int iof_gpio_set(int line, int value) {
    return on_line(__func__, line, [&](GpioLine &gpio) { return gpio.value = value, 0; });
}

int iof_gpio_lock_get(int gpio, int *locked) {
    return on_line(__func__, gpio, [&](GpioLine &line) { return *locked = line.locked ? 1 : 0, 0; });
}

int iof_gpio_lock_set(int gpio, int locked) {
    return on_line(__func__, gpio, [&](GpioLine &line) { return line.locked = locked != 0, 0; });
}

const char *iof_gpio_dir_get(int gpio) {
    const std::string name = "gpio" + std::to_string(gpio);
    for (const char *folder : gpio_folders)
        if (name == folder) return folder;
    return nullptr;
}
