// msgserver_dialog_bench.cpp: a dialog with an echo daemon over unix and udp, against the same exchange without the
// message server: once with its socket options and its log lines, once wholly bare. Each daemon is a process of its
// own.

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "bench/support/compare.h"

namespace {

constexpr char message[] = "a question of thirty-two bytes..";
constexpr int message_length = sizeof message - 1;

enum class Style { bare, configured };

struct Endpoint {
    int domain, type;
    sockaddr_storage address;
    socklen_t length;
};

Endpoint unix_endpoint(const char *name) {
    Endpoint endpoint{AF_UNIX, SOCK_STREAM, {}, sizeof(sockaddr_un)};
    auto &record = reinterpret_cast<sockaddr_un &>(endpoint.address);
    record.sun_family = AF_UNIX;
    std::snprintf(record.sun_path, sizeof record.sun_path, "/var/socket/%s", name);
    return endpoint;
}

Endpoint udp_endpoint(int port) {
    Endpoint endpoint{AF_INET, SOCK_DGRAM, {}, sizeof(sockaddr_in)};
    auto &record = reinterpret_cast<sockaddr_in &>(endpoint.address);
    record.sin_family = AF_INET;
    record.sin_port = htons(static_cast<uint16_t>(port));
    record.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return endpoint;
}

const sockaddr *address_of(const Endpoint &endpoint) { return reinterpret_cast<const sockaddr *>(&endpoint.address); }

void configure(int fd, Style style) {
    if (style == Style::bare) return;
    const int size = 16384, on = 1;
    const timeval timeout = {5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

void log_line(Style style, const char *what, int fd, const char *from, int length) {
    if (style == Style::configured)
        std::printf("%-10s[%-4d]---:%s fd[%d], addr = %s, len = %d\n", __func__, __LINE__, what, fd, from, length);
}

int connection_from(int server, Style style) {
    sockaddr_un peer{};
    socklen_t length = sizeof peer;
    const int fd = accept(server, reinterpret_cast<sockaddr *>(&peer), &length);
    log_line(style, "accept", fd, peer.sun_path, 0);
    configure(fd, style);
    return fd;
}

void answer_connection(int fd, Style style) {
    char buffer[16384];
    const auto got = recv(fd, buffer, sizeof buffer, 0);
    log_line(style, "Recv", fd, "", static_cast<int>(got));
    if (got > 0) send(fd, buffer, static_cast<size_t>(got), MSG_NOSIGNAL);
    close(fd);
}

void answer_datagram(int server, Style style) {
    char buffer[16384], from[INET_ADDRSTRLEN];
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const auto got = recvfrom(server, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&peer), &length);
    if (style == Style::configured) inet_ntop(AF_INET, &peer.sin_addr, from, sizeof from);
    log_line(style, "Recv", server, from, static_cast<int>(got));
    log_line(style, "Recv UDP", server, from, static_cast<int>(got));
    if (got >= 0) sendto(server, buffer, static_cast<size_t>(got), 0, reinterpret_cast<sockaddr *>(&peer), length);
}

// What a daemon with several endpoints cannot do without: one epoll set over servers and connections.
void serve_by_events(int server, bool datagrams) {
    const int set = epoll_create1(0);
    const auto add = [&](int fd) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
    };
    add(server);
    for (;;) {
        epoll_event events[20];
        const int ready = epoll_wait(set, events, 20, 50);
        for (int i = 0; i < ready; ++i) {
            const int fd = events[i].data.fd;
            if (datagrams)
                answer_datagram(fd, Style::configured);
            else if (fd == server)
                add(connection_from(server, Style::configured));
            else
                answer_connection(fd, Style::configured);
        }
    }
}

void serve_plainly(const Endpoint &endpoint, Style style) {
    const int server = socket(endpoint.domain, endpoint.type, 0);
    configure(server, style);
    if (bind(server, address_of(endpoint), endpoint.length) != 0) std::perror("bind"), _exit(1);
    const bool datagrams = endpoint.type == SOCK_DGRAM;
    if (!datagrams) listen(server, 5);
    if (style == Style::configured) serve_by_events(server, datagrams);
    for (;;) {
        if (datagrams)
            answer_datagram(server, style);
        else
            answer_connection(connection_from(server, style), style);
    }
}

int ask_plainly(const Endpoint &endpoint, Style style, char *answer, size_t size) {
    const int fd = socket(endpoint.domain, endpoint.type, 0);
    configure(fd, style);
    if (endpoint.type == SOCK_DGRAM) {
        sendto(fd, message, message_length, 0, address_of(endpoint), endpoint.length);
    } else if (connect(fd, address_of(endpoint), endpoint.length) == 0) {
        send(fd, message, message_length, MSG_NOSIGNAL);
    }
    const auto got = recv(fd, answer, size, 0);
    close(fd);
    return static_cast<int>(got);
}

int echo(ms_session *session, char *data, int length) { return length > 0 ? ms_send(session, data, length) : 0; }

void serve_with_message_server(const char *address) {
    ms_server(address, echo);
    ms_run();
}

// A process that serves until this one ends; what it prints goes nowhere.
void start_daemon(const std::function<void()> &serve) {
    if (fork() != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (std::freopen("/dev/null", "w", stdout) != nullptr) serve();
    _exit(1);
}

void expect_echo(benchmark::State &state, int got, const char *answer) {
    if (got != message_length || std::memcmp(answer, message, message_length) != 0) state.SkipWithError("no echo");
}

template <typename Ask> void run_dialogs(benchmark::State &state, Ask ask) {
    char answer[16384];
    for (auto _ : state) expect_echo(state, ask(answer, sizeof answer), answer);
}

void MessageServerDialog(benchmark::State &state, const char *address) {
    run_dialogs(state, [=](char *answer, size_t size) {
        return ms_dialog(address, message, message_length, answer, static_cast<int>(size));
    });
}
void PlainDialog(benchmark::State &state, const Endpoint &endpoint, Style style) {
    run_dialogs(state, [&](char *answer, size_t size) { return ask_plainly(endpoint, style, answer, size); });
}

BENCHMARK_CAPTURE(MessageServerDialog, unix, "unix:ours")->UseRealTime()->Repetitions(5);
BENCHMARK_CAPTURE(PlainDialog, unix_configured, unix_endpoint("configured"), Style::configured)
    ->UseRealTime()
    ->Repetitions(5);
BENCHMARK_CAPTURE(PlainDialog, unix_bare, unix_endpoint("bare"), Style::bare)->UseRealTime()->Repetitions(5);
BENCHMARK_CAPTURE(MessageServerDialog, udp, "udp:127.0.0.1:5001")->UseRealTime()->Repetitions(5);
BENCHMARK_CAPTURE(PlainDialog, udp_configured, udp_endpoint(5002), Style::configured)->UseRealTime()->Repetitions(5);
BENCHMARK_CAPTURE(PlainDialog, udp_bare, udp_endpoint(5003), Style::bare)->UseRealTime()->Repetitions(5);

}  // namespace

int main(int argc, char **argv) {
    mkdir("/var/socket", 0777);
    start_daemon([] { serve_with_message_server("unix:ours"); });
    start_daemon([] { serve_plainly(unix_endpoint("configured"), Style::configured); });
    start_daemon([] { serve_plainly(unix_endpoint("bare"), Style::bare); });
    start_daemon([] { serve_with_message_server("udp:127.0.0.1:5001"); });
    start_daemon([] { serve_plainly(udp_endpoint(5002), Style::configured); });
    start_daemon([] { serve_plainly(udp_endpoint(5003), Style::bare); });
    usleep(200'000);
    return bench::run_and_compare(
        argc, argv,
        {
            {"unix dialog, options and lines alike", "MessageServerDialog/unix/repeats:5/real_time",
             "PlainDialog/unix_configured/repeats:5/real_time", 1.1},
            {"unix dialog, wholly bare", "MessageServerDialog/unix/repeats:5/real_time",
             "PlainDialog/unix_bare/repeats:5/real_time", 0},
            {"udp dialog, options and lines alike", "MessageServerDialog/udp/repeats:5/real_time",
             "PlainDialog/udp_configured/repeats:5/real_time", 1.1},
            {"udp dialog, wholly bare", "MessageServerDialog/udp/repeats:5/real_time",
             "PlainDialog/udp_bare/repeats:5/real_time", 0},
        });
}
