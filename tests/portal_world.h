// portal_world.h: what the portal's tests share: accounts as records, requests, a socket on which broadcast frames
// arrive, and a server's answer to a datagram.
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
#include "foundation/owned.h"
#include "foundation/text.h"

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
inline const portal_web_request *at(const portal_web_request &request) { return &request; }

inline int log_in(const std::string &name, const std::string &mac, const std::string &password = "secret") {
    return tpi_ap_portal_check_web_user(at(request_of(name, mac, password)));
}
inline int log_out(const std::string &name, const std::string &mac) {
    return tpi_ap_portal_modify_web_user_state(at(request_of(name, mac)));
}
inline int remove(const std::string &name) { return tpi_ap_portal_del_web_user(at(request_of(name))); }
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

// Bytes from 0, 7, 14, ... on.
inline Bytes counted(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    return bytes;
}
inline void put(Bytes &bytes, size_t at, const Bytes &piece) {
    std::copy(piece.begin(), piece.end(), bytes.begin() + static_cast<long>(at));
}
inline Bytes joined(Bytes bytes, const Bytes &more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

// One of the portal's lines on standard output, as of file "portal" in "Debug->src/ap_portal/portal.c: ...".
inline testing::Matcher<const std::string &> line(const std::string &kind, const std::string &file,
                                                  const std::string &function, const std::string &text) {
    return testing::MatchesRegex(kind + "->src/ap_portal/" + file + ".c: " + function + "\\([0-9]+\\)--" + text);
}

// The next datagram of a socket; empty when none has come.
inline Bytes received_by(int fd, int flags = MSG_DONTWAIT, sockaddr *sender = nullptr, socklen_t *size = nullptr) {
    Bytes bytes(65536);
    const ssize_t length = recvfrom(fd, bytes.data(), bytes.size(), flags, sender, size);
    bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return bytes;
}

// Answers the next datagram of a socket, for at most five seconds; the datagram.
template <typename Address> Bytes answer_next(int fd, const Bytes &answer) {
    const timeval limit = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    Address from = {};
    socklen_t size = sizeof from;
    auto *const sender = reinterpret_cast<sockaddr *>(&from);
    Bytes question = received_by(fd, 0, sender, &size);
    sendto(fd, answer.data(), answer.size(), 0, sender, size);
    return question;
}

// A pair of datagram sockets in place of the raw one.
struct FrameLink {
    FrameLink() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
    uint32_t socket() const { return static_cast<uint32_t>(near.get()); }
    Bytes next_frame() const { return received_by(far.get()); }
    ap::UniqueFd near, far;
};

}  // namespace test
