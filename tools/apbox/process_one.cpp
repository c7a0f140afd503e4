// process_one.cpp: see process_one.h. One thread, one poll loop; it never waits for a single process.

#include "tools/apbox/process_one.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <poll.h>
#include <span>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"
#include "tools/apbox/made_up.h"
#include "tools/apbox/mounts.h"
#include "tools/apbox/rights.h"
#include "tools/apbox/spawn.h"
#include "tools/apbox/sync_watch.h"

namespace box {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds grace{500};  // from SIGTERM to SIGKILL

int exit_status(int wait_status) {
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

// Keeps /proc's links to the process folders ahead of the last process number.
class ProcessLinks {
public:
    ProcessLinks() : load_(open_file(real_proc / "loadavg", O_RDONLY)) { reach(first_links); }

    void catch_up() {
        char text[128] = "";
        if (pread(load_.get(), text, sizeof text - 1, 0) <= 0) return;
        const char *last = std::strrchr(text, ' ');  // the fifth word: the last process number given out
        if (last != nullptr) reach(number_in(std::string(last + 1, std::strcspn(last + 1, "\n"))) + ahead);
    }

private:
    static constexpr int first_links = 512, ahead = 512, step = 512, most = 65536;

    void reach(int number) {
        if (number <= end_ || end_ >= most) return;
        const int end = (number + step - 1) / step * step;
        link_processes("/proc", real_proc, end_, end);
        end_ = end;
    }

    Descriptor load_;
    int end_ = 1;
};

class ProcessOne {
public:
    explicit ProcessOne(const Start &start, Descriptor kept)
        : start_(start), channel_(start.channel), store_(std::move(kept)), signals_(open_signals()) {
        store_.load();
    }

    [[noreturn]] void run() {
        if (start_.has_bus) {
            bus_start_ = start_process({"/sbin/bus_start.sh"}, "/");
        } else {
            start_command();
        }
        while (!is_finished()) serve();
        finish();
    }

private:
    struct Visitor {
        Descriptor socket;
        pid_t process = 0;
    };

    enum class End { none, ended, restart };

    static Descriptor open_signals() {
        sigset_t set;
        sigemptyset(&set);
        for (const int number : {SIGCHLD, SIGTERM, SIGUSR1, SIGUSR2, SIGPWR}) sigaddset(&set, number);
        sigprocmask(SIG_SETMASK, &set, nullptr);
        for (const int number : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGTSTP, SIGTTOU}) std::signal(number, SIG_IGN);
        return Descriptor(static_cast<int>(must(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signals")));
    }

    void report(const Words &words) const { send_message(channel_, words); }

    pid_t start_process(const Words &command, const std::string &folder, const std::vector<int> &streams = {}) {
        Spawned spawned = spawn(command, folder, streams, start_.command_signals);
        if (spawned.sync_reports.ok()) sync_reports_.push_back(std::move(spawned.sync_reports));
        return spawned.process;
    }

    void start_command() {
        if (!start_.options->command.empty()) command_ = start_process(start_.options->command, start_.folder);
        report({"up"});
    }

    // Shuts down: everything gets SIGTERM now, what is left after the grace time SIGKILL.
    void shut_down(End end) {
        if (end_ != End::none) return;
        end_ = end;
        deadline_ = Clock::now() + grace;
        kill(-1, SIGTERM);
    }

    [[noreturn]] void cut_power(bool stay_off) {
        report({stay_off ? "off" : "power-cut"});
        _exit(0);
    }

    bool is_finished() const { return end_ != End::none && (no_process_left_ || Clock::now() >= deadline_); }

    [[noreturn]] void finish() {
        kill(-1, SIGKILL);
        while (!no_process_left_) reap(0);
        try {
            store_.sync_all();
        } catch (const std::exception &failure) {
            std::fprintf(stderr, "apbox: not everything was kept: %s\n", failure.what());
        }
        if (end_ == End::restart) {
            report({"restart"});
        } else {
            report({"ended", std::to_string(status_)});
        }
        _exit(0);
    }

    void reap(int flags) {
        int status = 0;
        pid_t process = 0;
        while ((process = waitpid(-1, &status, flags)) > 0) {
            if (process == bus_start_) {
                bus_start_ = 0;
                if (end_ == End::none) start_command();
            } else if (process == command_) {
                status_ = exit_status(status);
                command_ = 0;
                if (!start_.lives_on) shut_down(End::ended);
            }
            const auto visitor = std::ranges::find(visitors_, process, &Visitor::process);
            if (visitor == visitors_.end()) continue;
            send_message(visitor->socket.get(), {"status", std::to_string(exit_status(status))});
            visitors_.erase(visitor);
        }
        no_process_left_ = process < 0 && errno == ECHILD;
    }

    void take_signals() {
        signalfd_siginfo info{};
        while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
            switch (info.ssi_signo) {
            case SIGCHLD: reap(WNOHANG); break;
            case SIGTERM: shut_down(End::restart); break;
            case SIGPWR: cut_power(false);
            default: shut_down(End::ended);
            }
        }
        if (end_ != End::none) reap(WNOHANG);
    }

    // The keeper asks for signals to the command; when it is gone, so is the box.
    void take_keeper_message() {
        const auto message = receive_message(channel_);
        if (!message) _exit(1);
        if (message->words[0] == "stop" || command_ == 0) {
            shut_down(End::ended);
        } else {
            kill(command_, number_in(message->words.back()));
        }
    }

    void take_visitor() {
        Descriptor socket(accept4(start_.control, nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.ok()) visitors_.push_back({std::move(socket)});
    }

    // Requests: "enter" FOLDER WORD... with three descriptors; "signal" N; "stop"; "power-cut" "on" or "off". False
    // when the visitor has gone.
    bool serve_visitor(Visitor &visitor) {
        const auto message = receive_message(visitor.socket.get());
        if (!message) {
            if (visitor.process > 0) kill(visitor.process, SIGHUP);
            return false;
        }
        const Words &words = message->words;
        if (words[0] == "stop") shut_down(End::ended);
        if (words[0] == "power-cut") cut_power(words.size() > 1 && words[1] == "off");
        if (words[0] == "signal" && words.size() == 2 && visitor.process > 0)
            kill(visitor.process, number_in(words[1]));
        if (words[0] == "enter" && words.size() > 2 && message->descriptors.size() == 3 && end_ == End::none) {
            std::vector<int> streams;
            for (const Descriptor &stream : message->descriptors) streams.push_back(stream.get());
            visitor.process = start_process({words.begin() + 2, words.end()}, words[1], streams);
        }
        return true;
    }

    void serve() {
        // Whoever comes while the device goes down is served by the next process 1.
        const int control = end_ == End::none ? start_.control : -1;
        std::vector<pollfd> waits = {{signals_.get(), POLLIN, 0}, {channel_, POLLIN, 0}, {control, POLLIN, 0}};
        for (const Visitor &visitor : visitors_) waits.push_back({visitor.socket.get(), POLLIN, 0});
        for (const Descriptor &reports : sync_reports_) waits.push_back({reports.get(), POLLIN, 0});
        const size_t visitor_count = visitors_.size();
        if (poll(waits.data(), waits.size(), 50) < 0 && errno != EINTR) _exit(1);
        links_.catch_up();
        serve_sync_reports(std::span(waits).subspan(3 + visitor_count));
        serve_visitors(std::span(waits).subspan(3, visitor_count));
        if (waits[2].revents != 0) take_visitor();
        if (waits[1].revents != 0) take_keeper_message();
        take_signals();
    }

    void serve_sync_reports(std::span<const pollfd> waits) {
        auto reports = sync_reports_.begin();
        for (const pollfd &wait : waits) {
            const bool alive =
                (wait.revents & POLLIN) != 0 ? answer_sync(wait.fd, store_) : (wait.revents & POLLHUP) == 0;
            reports = alive ? std::next(reports) : sync_reports_.erase(reports);
        }
    }

    void serve_visitors(std::span<const pollfd> waits) {
        auto visitor = visitors_.begin();
        for (const pollfd &wait : waits) {
            const bool stays = wait.revents == 0 || serve_visitor(*visitor);
            visitor = stays ? std::next(visitor) : visitors_.erase(visitor);
        }
    }

    const Start &start_;
    const int channel_;
    KeptStore store_;
    Descriptor signals_;
    ProcessLinks links_;
    std::list<Descriptor> sync_reports_;
    std::list<Visitor> visitors_;
    pid_t command_ = 0, bus_start_ = 0;
    int status_ = 0;
    End end_ = End::none;
    Clock::time_point deadline_;
    bool no_process_left_ = false;
};

// An address-checked program refuses a library in front of its own unless it is told not to look.
void load_clock_into_programs(const Start &start) {
    const fs::path library = fs::path(start.programs).parent_path() / "lib/libapclock.so";
    if (!fs::exists(library)) throw Failure(exit_failed, library.string() + " is missing; --clock needs it");
    setenv("LD_PRELOAD", library.c_str(), 1);
    const char *options = std::getenv("ASAN_OPTIONS");
    const std::string others = options == nullptr ? "" : std::string(options) + ":";
    setenv("ASAN_OPTIONS", (others + "verify_asan_link_order=0").c_str(), 1);
}

void set_environment(const Start &start) {
    std::string path;
    for (const std::string &folder : start.options->programs) path += folder + ":";
    path += start.programs + ":/sbin:/bin:/usr/sbin:/usr/bin";
    setenv("PATH", path.c_str(), 1);
    if (!start.tree.clock.empty()) load_clock_into_programs(start);
    setenv("HOME", "/root", 1);
    setenv("USER", "root", 1);
    for (const char *name : {"TMPDIR", "TZ", "ENV", "BASH_ENV", "XDG_RUNTIME_DIR"}) unsetenv(name);
}

}  // namespace

void be_process_one(Start &start) {
    try {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        umask(0);
        Descriptor kept = open_file(start.kept, O_RDONLY | O_DIRECTORY);
        build_tree(start.tree);
        enter_own_spaces(start.tree.root / real_proc.relative_path(), start.is_machine_root);
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // the kernel forgets it when rights change
        send_message(start.channel, {"ports"});
        if (!receive_message(start.channel)) _exit(1);
        bring_up(start.address);
        finish_tree(start.tree);
        must(sethostname(start.host_name.c_str(), start.host_name.size()), "host name");
        drop_machine_rights();
        set_environment(start);
        ProcessOne(start, std::move(kept)).run();
    } catch (const Failure &failure) {
        send_message(start.channel, {"failed", std::to_string(failure.status), failure.what()});
    } catch (const std::exception &failure) {
        send_message(start.channel, {"failed", std::to_string(exit_failed), failure.what()});
    }
    _exit(1);
}

}  // namespace box
