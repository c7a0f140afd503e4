// A daemon on every transport, talked to over real sockets: what its handler sees, what comes back, what stays behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <netinet/in.h>

#include "tests/support/message_daemon.h"

using test::connected_to;
using test::dialog;
using testing::AnyOf;
using testing::HasSubstr;

namespace {

std::string lengths;  // of the messages so far, in the daemon
constexpr std::pair<const char *, void (*)()> dumps[] = {
    {"counters", print_resource_count}, {"socks", print_sock_list}, {"sessions", print_session_server_list}};

// Answers a few words, and everything else with itself.
int answer(ms_session *session, char *data, int length) {
    lengths += std::to_string(length) + " ";
    if (length <= 0) return 0;
    std::string text(data, static_cast<size_t>(length));
    if (text == "twice") ms_send(session, "once", 4);
    if (text == "lengths") text = lengths;
    for (const auto &[word, print] : dumps)
        if (text == word) text = test::printed_by(print);
    ms_send(session, text.data(), static_cast<int>(text.size()));
    return 7;
}

constexpr const char *addresses[] = {"unix:all", "tcp:127.0.0.1:5000", "udp:127.0.0.1:5000"};

class Server : public testing::Test {
protected:
    test::MessageDaemon daemon{[] {
        test::write_text("/var/socket/all", "stale");
        for (const char *address : addresses) ms_server(address, answer);
    }};
};

TEST_F(Server, CarriesWholeMessages) {
    const std::pair<const char *, size_t> largest[] = {
        {addresses[0], 16000}, {addresses[1], 4000}, {addresses[2], 16384}};
    for (const auto &[address, size] : largest) {
        std::string message;
        for (size_t i = 0; i < size; ++i) message += static_cast<char>(i * 7);
        for (const size_t part : {size_t{1}, size_t{333}, size})
            EXPECT_EQ(dialog(address, message.substr(0, part)), message.substr(0, part)) << address;
    }
}

TEST_F(Server, HandlesOneMessageAConnection) {
    for (const char *address : {"unix:all", "tcp:127.0.0.1:5000"}) {
        const ap::UniqueFd fd = connected_to(address);
        char buffer[16] = {};
        send(fd.get(), "first", 5, 0);
        EXPECT_EQ(recv(fd.get(), buffer, sizeof buffer, MSG_WAITALL), 5);
        EXPECT_STREQ(buffer, "first");
        send(fd.get(), "second", 6, MSG_NOSIGNAL);
        EXPECT_LE(recv(fd.get(), buffer, sizeof buffer, 0), 0);
    }
    EXPECT_EQ(dialog("unix:all", "lengths"), "5 5 7 ");
}

TEST_F(Server, CallsTheHandlerOnEmptyAndFailedReceives) {
    connected_to("unix:all").reset();
    EXPECT_EQ(dialog("unix:all", "lengths"), "0 7 ");
    const linger reset_at_close = {1, 0};
    ap::UniqueFd fd = connected_to("tcp:127.0.0.1:5000");
    setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &reset_at_close, sizeof reset_at_close);
    fd.reset();
    EXPECT_EQ(ms_notify("udp:127.0.0.1:5000", "", 0), 0);
    EXPECT_EQ(dialog("udp:127.0.0.1:5000", "x"), "x");
    EXPECT_THAT(dialog("tcp:127.0.0.1:5000", "lengths"), AnyOf("0 7 -1 0 1 7 ", "0 7 0 -1 1 7 ", "0 7 0 1 -1 7 "));
    for (const char *line :
         {"(^|\n)ms_listen \\[[0-9 ]{4}\\]---:server listen fd\\[[0-9]+\\] at /var/socket/all\nms_listen .*:5000\n",
          "server fd\\[[0-9]+\\] : accept new cli fd\\[[0-9]+\\], from address PATH\\[\\]\n",
          "ms_recv   .*Recv TCP msg form fd\\[[0-9]+\\], addr = address PATH\\[\\], len = 0\n",
          "Recv TCP msg form fd\\[[0-9]+\\], addr = address IP\\[127.0.0.1:[0-9]+\\], len = -1\n",
          "ms_udp_recv\\[.*Recv msg form fd\\[[0-9]+\\], addr = address IP\\[127.0.0.1:[0-9]+\\], len = 1\nms_recv ",
          "ms_recv   \\[.*Recv UDP msg form fd\\[[0-9]+\\], addr = address IP\\[127.0.0.1:[0-9]+\\], len = 1\n"})
        EXPECT_THAT(daemon.log(), testing::ContainsRegex(line));
}

TEST_F(Server, SurvivesPeersThatVanishAndSilentOnes) {
    const ap::UniqueFd one = connected_to("unix:all"), other = connected_to("tcp:127.0.0.1:5000");
    kill(daemon.pid(), SIGSTOP);
    for (const char *address : {"unix:all", "tcp:127.0.0.1:5000"})
        for (int i = 0; i < 4; ++i) ms_notify(address, "twice", 5);  // gone before the two answers
    kill(daemon.pid(), SIGCONT);
    for (const char *address : addresses) EXPECT_EQ(dialog(address, "alive"), "alive");
    EXPECT_THAT(daemon.log(), HasSubstr("---:send error, send len = -1, data len = 5\n"));
    EXPECT_THAT(dialog("unix:all", "counters"), HasSubstr("sock_num = 6, session_num = 6"));
}

TEST_F(Server, EndsWithTheCountersThatItBeganWith) {
    const std::string before = dialog("unix:all", "counters");
    // Three servers and the unix peer that asks: 4 socket and session records, and each address counts twice.
    const std::string bytes = std::to_string(4 * (20 + 36) + 2 * (110 + 16 + 16 + 110));
    EXPECT_THAT(before, testing::MatchesRegex(".*---:Resource use info\n.*---:open fd num = 4\n.*---:memuse = " +
                                              bytes + ", sock_num = 4, session_num = 4\n"));
    const int descriptors = test::open_descriptors();
    for (const char *address : addresses)
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(dialog(address, "again"), "again");
    EXPECT_EQ(dialog("unix:all", "counters"), before);
    EXPECT_EQ(test::open_descriptors(), descriptors);
    EXPECT_THAT(test::printed_by(print_resource_count), HasSubstr("memuse = 0, sock_num = 0, session_num = 0\n"));
}

TEST_F(Server, ListsItsSocketsAndSessions) {
    EXPECT_THAT(dialog("unix:all", "socks"),
                testing::ContainsRegex(
                    "sock\\[0\\] = 0x[0-9a-f]+, fd = [0-9]+, session = 0x[0-9a-f]+\n(.*\n){2}.*sock\\[3\\] = "));
    EXPECT_THAT(dialog("udp:127.0.0.1:5000", "sessions"),
                testing::ContainsRegex(
                    "server\\[0\\] = (0x[0-9a-f]+), fd = [0-9]+\\.\n.*server\\[1\\] = .*\n.*server\\[2\\] = .*\n"
                    ".*server\\[2\\] = 0x[0-9a-f]+, client\\[0\\] = 0x[0-9a-f]+ sock = 0x[0-9a-f]+\n$"));
}

TEST(NetlinkServer, GetsThePayloadAndAnswersWithoutAHeader) {
    const ap::UniqueFd sender(socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK));
    if (!sender) GTEST_SKIP() << "no netlink between programs here";
    test::MessageDaemon daemon([] { ms_server("netlink:2", answer), ms_server("unix:beside", answer); });
    sockaddr_nl to{AF_NETLINK, 0, static_cast<uint32_t>(daemon.pid()), 0};
    const struct {
        nlmsghdr header = {16 + 5, 0, 0, 0, 0};
        char payload[5] = {'h', 'e', 'l', 'l', 'o'};
    } frame;
    ASSERT_EQ(sendto(sender.get(), &frame, 16 + 5, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 16 + 5);
    while (daemon.lines_with("Recv Netlink") == 0) ASSERT_NE(dialog("unix:beside", "and now"), "failed");
    EXPECT_THAT(daemon.log(), testing::ContainsRegex("Recv Netlink msg form fd\\[[0-9]+\\], len = 5\n"));
    EXPECT_THAT(daemon.log(), HasSubstr("send error, send len = -1, data len = 5\n"));
    EXPECT_THAT(dialog("unix:beside", "counters"), HasSubstr("sock_num = 3, session_num = 3"));
}

}  // namespace
