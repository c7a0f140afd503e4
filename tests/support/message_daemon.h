// message_daemon.h: a message server in a child process, with its log in a file, and raw sockets to talk to it by hand.
#pragma once

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tests/support/capture.h"

namespace test {

inline std::string dialog(const std::string &address, const std::string &question) {
    std::string answer(16384, '\0');
    const int got =
        ms_dialog(address.c_str(), question.data(), static_cast<int>(question.size()), answer.data(), 16384);
    return got < 0 ? "failed" : answer.substr(0, static_cast<size_t>(got));
}

// A socket connected to "unix:NAME" or to "tcp:...:PORT" on this machine, without the library and its counters.
inline ap::UniqueFd connected_to(const std::string &address) {
    const std::string last_part = address.substr(address.rfind(':') + 1);
    sockaddr_un local{AF_UNIX, {}};
    ap::copy_text(local.sun_path, "/var/socket/" + last_part);
    sockaddr_in internet{
        AF_INET, htons(static_cast<uint16_t>(ap::to_int(last_part.c_str()))), {htonl(INADDR_LOOPBACK)}, {}};
    const bool is_local = address.starts_with("unix:");
    const auto *const to = is_local ? reinterpret_cast<sockaddr *>(&local) : reinterpret_cast<sockaddr *>(&internet);
    ap::UniqueFd fd(socket(to->sa_family, SOCK_STREAM, 0));
    if (connect(fd.get(), to, is_local ? sizeof local : sizeof internet) != 0) fd.reset();
    return fd;
}

// `offer` runs in the child: it makes the servers and timers; then the child gives its thread to the loop.
class MessageDaemon {
public:
    explicit MessageDaemon(const std::function<void()> &offer) {
        int ends[2];
        if (pipe(ends) != 0) return;
        std::fflush(stdout);
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            dup2(open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644), STDOUT_FILENO);
            std::setvbuf(stdout, nullptr, _IOLBF, 0);
            offer();
            close(ends[1]);
            ms_run();
        }
        close(ends[1]);
        char end_of_pipe;
        static_cast<void>(read(ends[0], &end_of_pipe, 1));
        close(ends[0]);
    }
    ~MessageDaemon() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    MessageDaemon(const MessageDaemon &) = delete;
    MessageDaemon &operator=(const MessageDaemon &) = delete;

    pid_t pid() const { return child_; }
    std::string log() const { return read_text(log_); }
    int lines_with(const std::string &text) const {
        const std::string all = log();
        int count = 0;
        for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) ++count;
        return count;
    }

private:
    std::string log_ = "/tmp/message_daemon." + std::to_string(getpid()) + "." + std::to_string(++made_);
    pid_t child_ = -1;
    static inline int made_ = 0;
};

}  // namespace test
