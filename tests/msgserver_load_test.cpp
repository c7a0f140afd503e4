// 50 client processes on unix and 5 on tcp ask one daemon 200,000 times in all: each answer is checked, none is lost,
// and the daemon ends with the memory that it had when it was warm.

#include <gtest/gtest.h>
#include <vector>

#include "tests/support/message_daemon.h"

// The address sanitizer keeps freed blocks aside, which would look like growth.
extern "C" const char *__asan_default_options() { return "quarantine_size_mb=0"; }

namespace {

int answer_twice(ms_session *session, char *data, int length) {
    std::string text(data, static_cast<size_t>(length > 0 ? length : 0));
    text = text == "counters" ? test::printed_by(print_resource_count) : text + text;
    return ms_send(session, text.data(), static_cast<int>(text.size()));
}

pid_t start_client(const char *address, int number, int questions) {
    const pid_t child = fork();
    if (child != 0) return child;
    for (int i = 0; i < questions; ++i) {
        const std::string question = std::to_string(number) + "/" + std::to_string(i);
        if (test::dialog(address, question) != question + question) _exit(1);
    }
    _exit(0);
}

long resident_kilobytes(pid_t process) {
    const std::string status = test::read_text("/proc/" + std::to_string(process) + "/status");
    return std::stol(status.substr(status.find("VmRSS:") + 6));
}

TEST(Load, NoAnswerIsLostAndMemoryStaysFlat) {
    test::MessageDaemon daemon([] {
        std::freopen("/dev/null", "w", stdout);
        ms_server("unix:load", answer_twice), ms_server("tcp:127.0.0.1:5000", answer_twice);
    });
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(test::dialog("unix:load", "warm"), "warmwarm");
    const std::string counters = test::dialog("unix:load", "counters");
    const long memory = resident_kilobytes(daemon.pid());

    std::vector<pid_t> clients;
    clients.reserve(50 + 5);
    for (int i = 0; i < 50; ++i) clients.push_back(start_client("unix:load", i, 3500));
    for (int i = 0; i < 5; ++i) clients.push_back(start_client("tcp:127.0.0.1:5000", i, 5000));
    for (const pid_t client : clients) {
        int status = -1;
        waitpid(client, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(test::dialog("unix:load", "counters"), counters);
    EXPECT_LE(resident_kilobytes(daemon.pid()), memory + 2048);  // one lost block a message would be three times that
}

}  // namespace
