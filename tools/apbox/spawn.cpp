// spawn.cpp: see spawn.h.

#include "tools/apbox/spawn.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"
#include "tools/apbox/sync_watch.h"

namespace box {

namespace {

void set_up_streams(const std::vector<int> &streams) {
    for (size_t i = 0; i < streams.size(); ++i) dup2(streams[i], static_cast<int>(i));
}

[[noreturn]] void execute(const std::vector<std::string> &command) {
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (const std::string &word : command) words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    const int error = errno;
    std::fprintf(stderr, "apbox: %s: %s%s\n", words[0], std::strerror(error),
                 error == ENOENT ? " in the box, which shows the checkout and what --show names" : "");
    std::fflush(stderr);
    _exit(error == ENOENT ? exit_not_found : exit_not_executable);
}

[[noreturn]] void be_command(const std::vector<std::string> &command, const std::string &folder,
                             const std::vector<int> &streams, const sigset_t &signals, int report_to) {
    set_up_streams(streams);
    for (const int number : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGTSTP, SIGTTOU}) std::signal(number, SIG_DFL);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    umask(022);
    if (chdir(folder.c_str()) != 0 && chdir("/root") != 0) _exit(exit_failed);
    {
        const Descriptor reports = watch_own_syncs();
        if (reports.ok()) send_message(report_to, {"reports"}, {reports.get()});
    }
    close(report_to);
    execute(command);
}

}  // namespace

Spawned spawn(const std::vector<std::string> &command, const std::string &folder, const std::vector<int> &streams,
              const sigset_t &signals) {
    auto [here, there] = socket_pair();
    const auto process = static_cast<pid_t>(must(fork(), "start a process"));
    if (process == 0) be_command(command, folder, streams, signals, there.get());
    there.reset();
    auto message = receive_message(here.get());
    return {process, message && !message->descriptors.empty() ? std::move(message->descriptors[0]) : Descriptor()};
}

}  // namespace box
