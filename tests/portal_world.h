// portal_world.h: what the portal's tests share: accounts as records, requests, the kernel module's end of the channel,
// and a socket on which broadcast frames arrive.
#pragma once

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <vector>

#include "apsupport/portal.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "platform/host/portal_netlink.h"

namespace test {

using Bytes = std::vector<uint8_t>;

template <size_t N> void fill_field(char (&field)[N], const std::string &text) {
    std::memcpy(field, text.data(), std::min(text.size(), N));  // a full field has no NUL
}

struct Account {
    std::string name, password = "secret";
    uint32_t shared = 0;
    std::vector<std::string> macs = {};
    std::string expiry_date = {}, previous_name = {};
};

inline portal_web_record record_of(const Account &account) {
    portal_web_record record = {};
    record.shared = account.shared;
    record.expires = account.expiry_date.empty() ? 0 : 1;
    fill_field(record.expiry_date, account.expiry_date);
    fill_field(record.previous_name, account.previous_name);
    fill_field(record.user_name, account.name);
    fill_field(record.password, account.password);
    for (size_t i = 0; i < account.macs.size(); ++i) fill_field(record.macs[i], account.macs[i]);
    return record;
}

inline int add(const Account &account) {
    const portal_web_record record = record_of(account);
    return tpi_ap_portal_add_web_user(1, &record);
}

inline portal_web_request request_of(const std::string &name, const std::string &mac = {},
                                     const std::string &password = "secret") {
    portal_web_request request = {};
    fill_field(request.user_name, name);
    fill_field(request.password, password);
    fill_field(request.mac, mac);
    return request;
}

inline int log_in(const std::string &name, const std::string &mac, const std::string &password = "secret") {
    const portal_web_request request = request_of(name, mac, password);
    return tpi_ap_portal_check_web_user(&request);
}
inline int log_out(const std::string &name, const std::string &mac) {
    const portal_web_request request = request_of(name, mac);
    return tpi_ap_portal_modify_web_user_state(&request);
}
inline int remove(const std::string &name) {
    const portal_web_request request = request_of(name);
    return tpi_ap_portal_del_web_user(&request);
}
// -1 for an unknown name.
inline int state_of(const std::string &name) {
    portal_web_request request = request_of(name);
    return tpi_get_web_state(&request) == 0 ? static_cast<int>(request.state) : -1;
}

// "02:00:00:00:01:05" for 261.
inline std::string mac_number(unsigned int number) {
    char text[18];
    std::snprintf(text, sizeof text, "02:00:00:00:%02X:%02X", number >> 8 & 0xFF, number & 0xFF);
    return text;
}

inline std::string hex(const Bytes &bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

// The next datagram of a socket; empty when none has come.
inline Bytes received_by(int fd) {
    Bytes bytes(65536);
    const ssize_t length = recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return bytes;
}

// A pair of datagram sockets in place of the raw one.
struct FrameLink {
    FrameLink() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) return;
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
    ap::UniqueFd near, far;
};

// The kernel module's end of netlink protocol 29.
struct PortalModule {
    ap::UniqueFd fd = ap::host::open_portal_module();

    // A request whose sender is waited for at most five seconds; empty when none came.
    Bytes next(uint32_t &sender) const {
        const timeval limit = {5, 0};
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        Bytes bytes(65536);
        sockaddr_nl from = {};
        socklen_t size = sizeof from;
        const ssize_t length =
            recvfrom(fd.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
        sender = from.nl_pid;
        bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return bytes;
    }
    void answer(uint32_t receiver, const Bytes &payload) const {
        Bytes message(16);
        ap::store_le(message.data(), static_cast<uint32_t>(16 + payload.size()));
        message.insert(message.end(), payload.begin(), payload.end());
        const sockaddr_nl to = ap::host::netlink_address(receiver);
        sendto(fd.get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }
};

}  // namespace test
