// radio_private_ie.cpp: the virtual driver's private information elements: a switch and numbered ports, kept for each
// access point in the world's state. What travels through them is the subject of private_lines.cpp.

#include <algorithm>

#include "applatform/wireless_driver.h"
#include "foundation/byte_order.h"
#include "platform/host/private_lines.h"
#include "platform/host/radio_call.h"

namespace ap::host {

namespace {

std::string text_at(const uint8_t *bytes, size_t size) {
    const auto *text = reinterpret_cast<const char *>(bytes);
    return {text, strnlen(text, size)};
}

PrivatePort port_of(const uint8_t *request) {
    PrivatePort port;
    port.port = request[0];
    port.type = request[1];
    port.max_length = ap::load_le<int>(request + 52);
    port.interfaces = text_at(request + 3, 48);
    port.payload_name = text_at(request + 64, 32);
    return port;
}

// Runs action(elements) on this access point's elements; its result is the call's. Lines follow what it changed.
template <typename Action> int on_elements(const char *call, Action action) {
    WorldAccess access;
    if (!access) return -1;
    if (const Fault *fault = access->meet_fault(call, "")) return fault->result;
    if (access->own() == nullptr) return -1;
    const int result = action(access->change().private_elements[access->own()->name]);
    follow_ports(*access);
    return result;
}

}  // namespace

}  // namespace ap::host

using namespace ap::host;

// A port that exists already is set up anew.
int uwb_private_ie_create_port(const void *request96) {
    return on_elements(__func__, [&](PrivateElements &elements) {
        const PrivatePort port = port_of(static_cast<const uint8_t *>(request96));
        if (!elements.on) return -1;
        std::erase_if(elements.ports, [&](const PrivatePort &other) { return other.port == port.port; });
        elements.ports.push_back(port);
        return 0;
    });
}

int uwb_private_ie_destory_port(int port) {
    return on_elements(__func__, [&](PrivateElements &elements) {
        return std::erase_if(elements.ports, [&](const PrivatePort &other) { return other.port == port; }) > 0 ? 0 : -1;
    });
}

int uwb_private_ie_switch(int on) {
    return on_elements(__func__, [&](PrivateElements &elements) { return elements.on = on != 0, 0; });
}
