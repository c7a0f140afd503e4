// gateway.cpp: the text-message gateway, HTTP on port 8009. What it gets for "/sys_port/gateway/" is a text message,
// and its request is printed; anything else is answered with 404.

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>

#include "foundation/file_io.h"
#include "tools/portal_peers/role.h"

namespace {

using namespace peers;

constexpr uint16_t gateway_port = 8009;
constexpr size_t longest_request = 8192;

ap::UniqueFd listening_socket() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(gateway_port);
    ap::UniqueFd server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(server.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!server || bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(server.get(), 8) != 0)
        server.reset();
    return server;
}

// The request's first line; empty when its head is not whole.
std::string read_request(const ap::UniqueFd &peer) {
    const timeval limit = {5, 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string request;
    while (request.find("\r\n\r\n") == std::string::npos) {
        char piece[1024];
        const ssize_t length = ap::retry_interrupted([&] { return read(peer.get(), piece, sizeof piece); });
        if (length <= 0 || request.size() > longest_request) return {};
        request.append(piece, static_cast<size_t>(length));
    }
    return request.substr(0, request.find("\r\n"));
}

void answer(const ap::UniqueFd &peer) {
    const std::string request = read_request(peer);
    const bool is_message = request.starts_with("GET /sys_port/gateway/?");
    std::printf("%s%s\n", is_message ? "" : "not found: ", request.c_str());
    const char *text = is_message ? "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok"
                                  : "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n";
    send(peer.get(), text, std::strlen(text), MSG_NOSIGNAL);
}

int serve(const Words &) {
    const ap::UniqueFd server = listening_socket();
    if (!server) return failed("port 8009");
    std::puts("ready");
    for (;;) {
        const ap::UniqueFd peer(
            ap::retry_interrupted([&] { return accept4(server.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
        if (!peer) return failed("port 8009");
        answer(peer);
    }
}

const Role role{"gateway", "the text-message gateway, HTTP on port 8009", serve};

}  // namespace
