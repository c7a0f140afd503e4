// ms_notify and ms_dialog from several threads at once: each its own socket, only the counters are shared.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/message_daemon.h"

namespace {

int echo(ms_session *session, char *data, int length) { return length > 0 ? ms_send(session, data, length) : 0; }

TEST(Clients, MayCallFromSeveralThreads) {
    test::MessageDaemon daemon([] {
        ms_server("unix:threads", echo);
        ms_server("udp:127.0.0.1:5000", echo);
    });
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

}  // namespace
