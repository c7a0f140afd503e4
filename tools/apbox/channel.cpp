// channel.cpp: see channel.h. On the wire each word ends with a NUL; a message has at most 128 KiB and four
// descriptors.

#include "tools/apbox/channel.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>

#include "tools/apbox/failure.h"

namespace box {

namespace {

constexpr size_t most_descriptors = 4, longest_message = size_t{128} * 1024;

union Control {
    cmsghdr header;
    char bytes[CMSG_SPACE(most_descriptors * sizeof(int))];
};

void take_descriptors(msghdr &header, Message &message) {
    for (cmsghdr *part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(part) + i * sizeof fd, sizeof fd);
            message.descriptors.emplace_back(fd);
        }
    }
}

}  // namespace

int number_in(const std::string &word) {
    int number = 0;
    std::from_chars(word.data(), word.data() + word.size(), number);
    return number;
}

bool send_message(int socket, const Words &words, const std::vector<int> &descriptors) {
    std::string text;
    for (const std::string &word : words) text.append(word).push_back('\0');
    iovec body{text.data(), text.size()};
    Control control{};
    msghdr header{};
    header.msg_iov = &body;
    header.msg_iovlen = 1;
    if (!descriptors.empty()) {
        const size_t size = descriptors.size() * sizeof(int);
        header.msg_control = control.bytes;
        header.msg_controllen = CMSG_SPACE(size);
        cmsghdr *const part = CMSG_FIRSTHDR(&header);
        *part = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(part), descriptors.data(), size);
    }
    ssize_t sent = 0;
    do sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

std::optional<Message> receive_message(int socket) {
    std::string text(longest_message, '\0');
    iovec body{text.data(), text.size()};
    Control control{};
    msghdr header{};
    header.msg_iov = &body;
    header.msg_iovlen = 1;
    header.msg_control = control.bytes;
    header.msg_controllen = sizeof control.bytes;
    ssize_t got = 0;
    do got = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    while (got < 0 && errno == EINTR);
    if (got <= 0) return std::nullopt;
    Message message;
    take_descriptors(header, message);
    text.resize(static_cast<size_t>(got));
    for (size_t at = 0; at < text.size();) {
        message.words.emplace_back(text.c_str() + at);
        at += message.words.back().size() + 1;
    }
    return message;
}

std::pair<Descriptor, Descriptor> socket_pair() {
    int ends[2];
    must(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "socket pair");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace box
