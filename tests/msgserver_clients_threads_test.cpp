// ms_notify and ms_dialog from several threads at once: each its own socket, only the counters are shared.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/message_daemon.h"

namespace {

TEST(Clients, MayCallFromSeveralThreads) {
    const auto echo = [](ms_session *session, char *data, int length) { return ms_send(session, data, length); };
    test::MessageDaemon daemon([&] { ms_server("unix:threads", echo), ms_server("udp:127.0.0.1:5000", echo); });
    const auto ask_often = [](int client) {
        for (int i = 0; i < 250; ++i) {
            const std::string question = std::to_string(client) + " asks " + std::to_string(i);
            EXPECT_EQ(test::dialog("unix:threads", question), question);
            EXPECT_EQ(test::dialog("udp:127.0.0.1:5000", question), question);
            EXPECT_EQ(ms_notify("unix:threads", question.data(), static_cast<int>(question.size())), 0);
            EXPECT_EQ(ms_notify("unix:nobody", "", 0), 0);
        }
    };
    std::thread clients[] = {std::thread(ask_often, 1), std::thread(ask_often, 2), std::thread(ask_often, 3)};
    for (auto &client : clients) client.join();
    EXPECT_THAT(test::printed_by(print_resource_count),
                testing::ContainsRegex("open fd num = 0\n.*memuse = 0, sock_num = 0, session_num = 0\n"));
}

// A datagram client's port is its own, whatever other sockets with address reuse ask for.
TEST(Clients, GetNoAnswerOfAnother) {
    sockaddr_in address{AF_INET, htons(5001), {htonl(INADDR_LOOPBACK)}, {}};
    auto *const peer = reinterpret_cast<sockaddr *>(&address);
    socklen_t length = sizeof address;
    const ap::UniqueFd server(ms_socket(2, 0)), other(ms_socket(2, 0));
    ASSERT_EQ(ms_bind(server.get(), peer, 16), 0);
    std::thread client([] { EXPECT_EQ(test::dialog("udp:127.0.0.1:5001", "question"), "answer"); });
    char question[16];
    EXPECT_EQ(recvfrom(server.get(), question, sizeof question, 0, peer, &length), 8);
    EXPECT_EQ(ms_bind(other.get(), peer, 16), -1);
    EXPECT_EQ(sendto(server.get(), "answer", 6, 0, peer, length), 6);
    client.join();
}

}  // namespace
