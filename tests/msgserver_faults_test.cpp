// What goes wrong: no descriptors, refused options, servers that cannot bind, answers that never come, and descriptors
// that change hands within one batch of events. Where nobody answers, a socket's time-out of 5 seconds lasts 30 ms.

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sstream>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <vector>

#include "tests/support/message_daemon.h"

using test::connected_to;
using test::dialog;
using testing::HasSubstr;

static std::string options_set;  // " NAME=VALUE" for each
static int refused_option = -1;
static bool time_out_soon = false;
static std::vector<int> scripted_events;  // descriptors that a daemon's next wait reports, when the script may run

extern "C" int setsockopt(int fd, int level, int name, const void *value, socklen_t size) noexcept {
    options_set += " " + std::to_string(name) + "=" + std::to_string(*static_cast<const int *>(value));
    if (name == refused_option) return errno = ENOMEM, -1;
    const timeval short_timeout = {0, 30'000};
    if (time_out_soon && (name == SO_RCVTIMEO || name == SO_SNDTIMEO)) value = &short_timeout;
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, size));
}

extern "C" int epoll_wait(int set, epoll_event *events, int most, int timeout_ms) {
    const int count = static_cast<int>(scripted_events.size());
    while (count > 0 && access("/tmp/script_may_run", F_OK) != 0) usleep(1000);
    for (int i = 0; i < count; ++i) events[i] = {EPOLLIN, {.fd = scripted_events[static_cast<size_t>(i)]}};
    scripted_events.clear();
    return count > 0 ? count : epoll_pwait(set, events, most, timeout_ms, nullptr);
}

namespace {

int echo(ms_session *session, char *data, int length) { return length > 0 ? ms_send(session, data, length) : 0; }

std::string counters() { return test::printed_by(print_resource_count); }

// The descriptors in the list of sockets, oldest first, each with the text of its session.
std::vector<std::pair<int, std::string>> listed_socks() {
    std::vector<std::pair<int, std::string>> socks;
    std::istringstream lines(test::printed_by(print_sock_list));
    for (std::string line; std::getline(lines, line);)
        socks.emplace_back(std::stoi(line.substr(line.find("fd = ") + 5)), line.substr(line.find("session = ") + 10));
    return socks;
}

// Leaves this process `spare` descriptors that it may still open. Returns the limit as it was.
rlimit limit_descriptors(int spare) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int next = dup(STDIN_FILENO);
    close(next);
    const rlimit lowered = {static_cast<rlim_t>(next + spare), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
    return before;
}

TEST(Faults, ARefusedOptionLeavesNoSocketBehind) {
    const std::pair<int, int> options[] = {
        {SO_RCVBUF, 16384}, {SO_SNDBUF, 16384}, {SO_RCVTIMEO, 5}, {SO_SNDTIMEO, 5}, {SO_REUSEADDR, 1}};
    const int descriptors = test::open_descriptors();
    const std::string before = counters();
    std::string expected;
    for (const auto &[name, value] : options) {
        options_set.clear();
        refused_option = name;
        EXPECT_THAT(test::printed_by([] { EXPECT_EQ(ms_creat_socket(AF_UNIX, SOCK_STREAM, 0), -1); }),
                    HasSubstr("]---:init nl_socket ERROR\n"));
        EXPECT_EQ(options_set, expected += " " + std::to_string(name) + "=" + std::to_string(value));
    }
    refused_option = -1;
    EXPECT_EQ(test::open_descriptors(), descriptors);
    EXPECT_EQ(counters(), before);
}

TEST(Faults, WithoutDescriptorsCallsFailAndLeaveNothingBehind) {
    const std::string before = counters();
    const int descriptors = test::open_descriptors();
    for (const int spare : {0, 1}) {  // 1: a server's socket can be made, the loop's epoll set cannot
        const rlimit saved = limit_descriptors(spare);
        EXPECT_EQ(ms_server("unix:poor", echo), nullptr);
        EXPECT_EQ(ms_notify("udp:127.0.0.1:9", "x", 1), spare - 1);
        EXPECT_EQ(dialog("unix:poor", "x"), "failed");
        setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(test::open_descriptors(), descriptors);
        EXPECT_EQ(counters() + test::printed_by(print_sock_list) + test::printed_by(print_session_server_list), before);
    }
}

TEST(Faults, ADaemonAtItsDescriptorLimitServesAgainWhenPeersLeave) {
    test::MessageDaemon daemon([] {
        ms_server("unix:narrow", echo), ms_server("udp:127.0.0.1:5000", echo);
        limit_descriptors(2);
    });
    std::vector<ap::UniqueFd> holders;
    while (daemon.lines_with("ERROR : accept address PATH[/var/socket/narrow] error\n") == 0) {
        if (holders.size() < 5) holders.push_back(connected_to("unix:narrow"));
        usleep(1000);
    }
    EXPECT_EQ(dialog("udp:127.0.0.1:5000", "still here"), "still here");
    holders.clear();
    EXPECT_EQ(dialog("unix:narrow", "at last"), "at last");
    EXPECT_LT(daemon.lines_with("ERROR : accept"), 200);
}

TEST(Faults, AServerThatCannotBindIsReturnedAndDoesNotKeepTheLoopBusy) {
    test::MessageDaemon daemon([] {
        test::write_text("/var/socket/nowhere/file", "a folder stands where the socket should be");
        EXPECT_NE(ms_server("unix:nowhere", echo), nullptr);
        EXPECT_NE(ms_server("tcp:127.0.0.1:5000", echo), nullptr);
        ms_add_timer([](void *, int) { std::puts("idle"); }, nullptr, 0, 0, 0);
    });
    while (daemon.lines_with("idle\n") == 0) usleep(1000);
    EXPECT_EQ(dialog("tcp:127.0.0.1:5000", "hello"), "hello");
    EXPECT_THAT(daemon.log(), testing::ContainsRegex("ms_bind .*ERROR : bind fd = [0-9]+\nms_listen_fd.*ERROR : listen "
                                                     "fd = [0-9]+\n.*server listen fd"));
    EXPECT_EQ(daemon.lines_with("ERROR : accept"), 1);
}

TEST(Faults, ADialogWithoutAnAnswerFailsWithinTheTimeOut) {
    test::MessageDaemon silent([] {
        for (const char *address : {"udp:127.0.0.1:5000", "unix:silent"})
            ms_server(address, [](ms_session *, char *, int) { return 0; });
    });
    kill(silent.pid(), SIGSTOP);
    time_out_soon = true;
    const std::tuple<const char *, int, const char *> cases[] = {
        {"udp:127.0.0.1:5000", EAGAIN, ""},
        {"unix:silent", EAGAIN, ""},
        {"udp:127.0.0.1:5009", EAGAIN, ""},
        {"tcp:127.0.0.1:5009", ENOTCONN, "ERROR : connect address IP[127.0.0.1:5009] error\n"},
        {"unix:nobody", EINVAL, "ERROR : connect address PATH[/var/socket/nobody] error\n"}};
    for (const auto &[nobody, error, logged] : cases) {
        SCOPED_TRACE(nobody);
        bool fails = false;
        EXPECT_THAT(test::printed_by([&, address = nobody, code = error] {
                        fails = dialog(address, "anybody?") == "failed" && errno == code;
                    }),
                    testing::EndsWith(logged));
        EXPECT_TRUE(fails);
        EXPECT_EQ(ms_notify(nobody, "anybody?", 8), 0);
    }
    time_out_soon = false;
}

TEST(Faults, WhatCannotBeSentIsAFailure) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    const ap::UniqueFd one(ends[0]), other(ends[1]);
    const std::tuple<unsigned, int, int> cases[] = {{2, -1, -1}, {2, 1, 0}, {0, 1, -1}, {0, 0, 0}};  // type, length
    for (const auto &[type, length, result] : cases)
        EXPECT_EQ(ms_send_addr(one.get(), type, nullptr, 0, "x", length), result);
    EXPECT_EQ(ms_netlink_send(one.get(), nullptr, 1), 0);
    EXPECT_EQ(ms_netlink_send(one.get(), "x", 0), 0);
    EXPECT_EQ(ms_netlink_send(one.get(), std::string(16385, 'x').data(), 16385), -1);
    EXPECT_EQ(ms_send(nullptr, "x", 1), -1);
}

TEST(Netlink, AsksTheKernelForARoute) {
    std::string question("\x7f\0\0\1\0\0\0\0\0\0\xff\0\0\0\0\0\0\0\0\0", 20), answer;
    const std::string printed = test::printed_by([&] { answer = dialog("netlink:10", question); });
    if (answer == "failed") GTEST_SKIP() << "no route lookup here";
    EXPECT_EQ(answer.size(), 20U);
    EXPECT_EQ(answer.substr(0, 4), question.substr(0, 4));
    EXPECT_THAT(printed, HasSubstr("---:send error, ret = 36, len = 20\n"));  // the header counts as sent
}

// One batch: a's message, whose handler closes b's descriptor; a connection, which gets that number; b's stale event.
// The oldest record of the number is b's, so it reads what the newcomer sent. The newcomer's record stays, and so
// serves the next connection with that number.
TEST(Loop, AReusedDescriptorBelongsToItsOldestRecord) {
    test::MessageDaemon daemon([] {
        ms_server("unix:reuse", [](ms_session *session, char *data, int length) {
            static const auto first = listed_socks();  // the server, b, a, and who asked first
            const int server = first[0].first, b = first[1].first, a = first[2].first;
            std::string text(data, static_cast<size_t>(std::max(length, 0)));
            std::ostringstream own;
            own << session;
            if (text == "script") scripted_events = {a, server, b};
            if (text == "a") close(b);
            if (text == "new") text = own.str() == first[1].second ? "b's" : "own";
            const auto now = listed_socks();
            if (text == "socks") text = now[1].first == b && now[2].first == b && now.size() == 3 ? "b twice" : "other";
            return ms_send(session, text.data(), static_cast<int>(text.size()));
        });
    });
    const ap::UniqueFd b = connected_to("unix:reuse"), a = connected_to("unix:reuse");
    EXPECT_EQ(dialog("unix:reuse", "script"), "script");
    const ap::UniqueFd newcomer = connected_to("unix:reuse");
    send(a.get(), "a", 1, 0);
    send(newcomer.get(), "new", 3, 0);
    test::write_text("/tmp/script_may_run", "");
    char answer[4] = {};
    EXPECT_EQ(recv(newcomer.get(), answer, sizeof answer, 0), 3);
    EXPECT_STREQ(answer, "b's");
    EXPECT_EQ(recv(b.get(), answer, sizeof answer, 0), 0);
    EXPECT_EQ(dialog("unix:reuse", "socks"), "b twice");
    EXPECT_EQ(dialog("unix:reuse", "again"), "again");
}

}  // namespace
