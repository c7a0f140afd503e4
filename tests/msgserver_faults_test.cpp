// What goes wrong: no descriptors, refused options, servers that cannot bind, answers that never come, lying netlink
// headers, and descriptors that change hands within one batch of events. Where nobody answers, a socket's time-out of 5
// seconds lasts 30 ms.

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

static std::vector<int> options_set;
static int refused_option = -1;
static bool time_out_soon = false;
static std::vector<int> scripted_events;  // descriptors that a daemon's next wait reports, when the script may run

extern "C" int setsockopt(int fd, int level, int name, const void *value, socklen_t size) noexcept {
    options_set.push_back(name);
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

std::vector<int> sock_fds() {
    std::vector<int> fds;
    const std::string list = test::printed_by(print_sock_list);
    for (size_t at = list.find("fd = "); at != std::string::npos; at = list.find("fd = ", at + 1))
        fds.push_back(std::stoi(list.substr(at + 5)));
    return fds;
}

std::string session_of(int fd, const ms_session *session) {
    std::ostringstream text;
    text << "fd = " << fd << ", session = " << static_cast<const void *>(session) << "\n";
    return text.str();
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
    const std::vector<int> all = {SO_RCVBUF, SO_SNDBUF, SO_RCVTIMEO, SO_SNDTIMEO, SO_REUSEADDR};
    const int descriptors = test::open_descriptors();
    const std::string before = counters();
    for (size_t i = 0; i < all.size(); ++i) {
        options_set.clear();
        refused_option = all[i];
        int fd = 0;
        EXPECT_THAT(test::printed_by([&] { fd = ms_creat_socket(AF_UNIX, SOCK_STREAM, 0); }),
                    HasSubstr("]---:init nl_socket ERROR\n"));
        EXPECT_EQ(fd, -1);
        EXPECT_THAT(options_set, testing::ElementsAreArray(all.data(), i + 1));
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
        if (spare == 0) {
            EXPECT_EQ(ms_notify("udp:127.0.0.1:9", "x", 1), -1);
            EXPECT_EQ(dialog("unix:poor", "x"), "failed");
        }
        setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(test::open_descriptors(), descriptors);
        EXPECT_EQ(counters(), before);
    }
    EXPECT_EQ(test::printed_by(print_sock_list) + test::printed_by(print_session_server_list), "");
}

TEST(Faults, ADaemonAtItsDescriptorLimitServesAgainWhenPeersLeave) {
    test::MessageDaemon daemon([] {
        ms_server("unix:narrow", echo);
        ms_server("udp:127.0.0.1:5000", echo);
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
    EXPECT_THAT(
        daemon.log(),
        testing::ContainsRegex("ms_bind .*ERROR : bind fd = [0-9]+\n.*ERROR : listen fd = [0-9]+\n.*server listen fd"));
    EXPECT_EQ(daemon.lines_with("ERROR : accept"), 1);
}

TEST(Faults, ADialogWithoutAnAnswerFailsWithinTheTimeOut) {
    test::MessageDaemon silent([] { ms_server("udp:127.0.0.1:5000", [](ms_session *, char *, int) { return 0; }); });
    const ap::UniqueFd listener(ms_socket(1, 0));
    sockaddr *address = nullptr;
    int length = 0;
    ms_get_addr("tcp:127.0.0.1:5001", &address, &length, nullptr);
    ms_listen(listener.get(), 1, address, length);
    std::free(address);
    time_out_soon = true;
    for (const char *nobody :
         {"udp:127.0.0.1:5000", "udp:127.0.0.1:5009", "tcp:127.0.0.1:5001", "tcp:127.0.0.1:5009", "unix:nobody"}) {
        SCOPED_TRACE(nobody);
        EXPECT_EQ(dialog(nobody, "anybody?"), "failed");
        EXPECT_EQ(ms_notify(nobody, "anybody?", 8), 0);
    }
    time_out_soon = false;
}

TEST(Faults, LengthsThatCannotBeSentAreFailures) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    const ap::UniqueFd one(ends[0]), other(ends[1]);
    EXPECT_EQ(ms_send_addr(one.get(), 2, nullptr, 0, "x", -1), -1);
    EXPECT_EQ(ms_send_addr(one.get(), 2, nullptr, 0, "x", 1), 0);
    EXPECT_EQ(ms_send_addr(one.get(), 0, nullptr, 0, "x", 1), -1);
    EXPECT_EQ(ms_send_addr(one.get(), 0, nullptr, 0, "x", 0), 0);
    EXPECT_EQ(ms_netlink_send(one.get(), nullptr, 1), 0);
    EXPECT_EQ(ms_netlink_send(one.get(), "x", 0), 0);
    EXPECT_EQ(ms_netlink_send(one.get(), std::string(16385, 'x').data(), 16385), -1);
    EXPECT_EQ(ms_send(nullptr, "x", 1), -1);
}

TEST(Netlink, TheHeaderDecidesHowMuchComesBack) {
    const struct {
        const char *what;
        uint32_t header_length;
        size_t arrived;
        int expected;
    } cases[] = {
        {"as it says", 16 + 5, 16 + 5, 5},           {"only a header", 16, 16, 0},
        {"less than a header", 15, 16 + 5, -1},      {"nothing", 0, 16 + 5, -1},
        {"cut in the header", 16 + 5, 3, 5},         {"more than arrived", 16 + 100, 16 + 5, 100},
        {"less than arrived", 16 + 2, 16 + 5, 2},    {"all that fits", 16 + 16384, 16 + 16384, 16384},
        {"one too much", 16 + 16385, 16 + 5, 16384}, {"4 GiB", 0xffffffff, 16 + 5, 16384},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
        const ap::UniqueFd sender(ends[0]), receiver(ends[1]);
        std::string frame(16 + 16384, 'p');
        frame.replace(0, 16, 16, '\0').replace(0, 4, reinterpret_cast<const char *>(&c.header_length), 4);
        ASSERT_EQ(send(sender.get(), frame.data(), c.arrived, 0), static_cast<ssize_t>(c.arrived));
        std::string payload(16384 + 1, 'u');
        EXPECT_EQ(ms_netlink_recv(receiver.get(), payload.data()), c.expected);
        const size_t filled = static_cast<size_t>(std::max(c.expected, 0));
        const size_t real = std::min(filled, c.arrived - std::min<size_t>(c.arrived, 16));
        EXPECT_EQ(payload,
                  std::string(real, 'p') + std::string(filled - real, '\0') + std::string(16385 - filled, 'u'));
    }
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
            static const std::vector<int> fds = sock_fds();  // of the server, b, a, and who asked first
            static const std::string first_list = test::printed_by(print_sock_list);
            std::string text(data, static_cast<size_t>(std::max(length, 0)));
            if (text == "script") scripted_events = {fds[2], fds[0], fds[1]};
            if (text == "a") close(fds[1]);
            if (text == "new") text = first_list.find(session_of(fds[1], session)) != std::string::npos ? "b's" : "own";
            if (text == "socks") text = sock_fds() == std::vector{fds[0], fds[1], fds[1]} ? "server, b, b" : "not so";
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
    EXPECT_EQ(dialog("unix:reuse", "socks"), "server, b, b");
    EXPECT_EQ(dialog("unix:reuse", "again"), "again");
}

}  // namespace
