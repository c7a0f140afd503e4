// verbs.cpp: run and start become a box's keeper; the other verbs talk to process 1 of a box that is up.

#include "tools/apbox/verbs.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"
#include "tools/apbox/keeper.h"
#include "tools/apbox/registry.h"

namespace box {

namespace {

constexpr int stop_timeout_ms = 10'000;

int run(const Options &options) {
    Claim claim = Claim::take(options.name, options.network, false);
    return keep_box(options, claim, false, [] {});
}

void leave_terminal(const fs::path &console) {
    setsid();
    const Descriptor nothing = open_file("/dev/null", O_RDONLY);
    const Descriptor output = open_file(console, O_WRONLY | O_CREAT | O_APPEND);
    dup2(nothing.get(), STDIN_FILENO);
    dup2(output.get(), STDOUT_FILENO);
    dup2(output.get(), STDERR_FILENO);
}

// The background process of `start`: tells the one in front "up" NAME or "failed" STATUS WHY.
[[noreturn]] void be_background(const Options &options, int front) {
    int status = exit_failed;
    try {
        Claim claim = Claim::take(options.name, options.network, true);
        leave_terminal(claim.folder / "console");
        status = keep_box(options, claim, true, [&] { send_message(front, {"up", claim.info.name}); });
    } catch (const Failure &failure) {
        send_message(front, {"failed", std::to_string(failure.status), failure.what()});
    } catch (const std::exception &failure) {
        send_message(front, {"failed", std::to_string(exit_failed), failure.what()});
    }
    _exit(status);
}

int start(const Options &options) {
    auto [here, there] = socket_pair();
    std::fflush(nullptr);
    if (must(fork(), "start") == 0) {
        here.reset();
        be_background(options, there.get());
    }
    there.reset();
    const auto message = receive_message(here.get());
    if (!message) throw Failure(exit_failed, "the box did not start");
    if (message->words[0] == "failed") throw Failure(number_in(message->words[1]), message->words[2]);
    std::puts(message->words[1].c_str());
    return exit_ok;
}

Descriptor call(const BoxInfo &box) {
    Descriptor socket(static_cast<int>(must(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "control socket")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = box_folder(box.name) / "control";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    must(connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), "box " + box.name);
    return socket;
}

Descriptor watch_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2}) sigaddset(&set, number);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return Descriptor(static_cast<int>(must(signalfd(-1, &set, SFD_CLOEXEC), "signals")));
}

int enter(const Options &options) {
    const BoxInfo box = find_box(options.name);
    const Descriptor socket = call(box), signals = watch_signals();
    Words request = {"enter", fs::current_path()};
    request.insert(request.end(), options.command.begin(), options.command.end());
    if (!send_message(socket.get(), request, {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}))
        throw Failure(exit_failed, "box " + box.name + " does not answer");
    for (;;) {
        pollfd waits[] = {{socket.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
        if (poll(waits, std::size(waits), -1) < 0 && errno != EINTR) must(-1, "wait");
        signalfd_siginfo info{};
        if (waits[1].revents != 0 && read(signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
            send_message(socket.get(), {"signal", std::to_string(info.ssi_signo)});
        if (waits[0].revents == 0) continue;
        const auto answer = receive_message(socket.get());
        return answer ? number_in(answer->words.back()) : 128 + SIGKILL;  // the box went down under it
    }
}

int stop(const Options &options) {
    std::vector<BoxInfo> boxes;
    if (options.all || !options.network.empty()) {
        for (BoxInfo &box : living_boxes())
            if (options.all || box.network == options.network) boxes.push_back(box);
    } else {
        boxes.push_back(find_box(options.name));
    }
    for (const BoxInfo &box : boxes) send_message(call(box).get(), {"stop"});
    for (const BoxInfo &box : boxes)
        if (!wait_until_gone(box.name, stop_timeout_ms))
            throw Failure(exit_failed, "box " + box.name + " does not end");
    return exit_ok;
}

// Returns when the device is up again, or gone.
int power_cut(const Options &options) {
    const BoxInfo box = find_box(options.name);
    if (!send_message(call(box).get(), {"power-cut", options.off ? "off" : "on"}))
        throw Failure(exit_failed, "box " + box.name + " does not answer");
    if (options.off) return wait_until_gone(box.name, stop_timeout_ms) ? exit_ok : exit_failed;
    for (int waited_ms = 0; waited_ms < stop_timeout_ms; waited_ms += 10) {
        for (const BoxInfo &now : living_boxes())
            if (now.name == box.name && now.boots > box.boots) return exit_ok;
        if (wait_until_gone(box.name, 0)) return exit_ok;
        usleep(10 * 1000);
    }
    throw Failure(exit_failed, "box " + box.name + " does not start again");
}

// Names and folders hold no control characters that a user could not read; quotes and backslashes are escaped.
std::string json_text(const std::string &text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += static_cast<unsigned char>(c) < ' ' ? '?' : c;
    }
    return quoted + "\"";
}

void print_json(const std::vector<BoxInfo> &boxes) {
    std::string text;
    for (const BoxInfo &box : boxes) {
        text += text.empty() ? "\n  {" : ",\n  {";
        text += "\"name\": " + json_text(box.name) + ", \"network\": " + json_text(box.network);
        text += ", \"address\": " + json_text(box.address) + ", \"state\": " + json_text(box.state);
        text += ", \"boots\": " + std::to_string(box.boots) + ", \"keep\": " + json_text(box.keep);
        text += ", \"console\": " + json_text(box_folder(box.name) / "console") + "}";
    }
    std::printf("[%s%s]\n", text.c_str(), text.empty() ? "" : "\n");
}

int list(const Options &options) {
    const auto boxes = living_boxes();
    if (options.json) {
        print_json(boxes);
        return exit_ok;
    }
    std::printf("%-16s %-12s %-15s %-9s %-5s %s\n", "NAME", "NETWORK", "ADDRESS", "STATE", "BOOTS", "KEPT IN");
    for (const BoxInfo &box : boxes) {
        const std::string network = box.network.empty() ? "-" : box.network, keep = box.keep.empty() ? "-" : box.keep;
        std::printf("%-16s %-12s %-15s %-9s %-5d %s\n", box.name.c_str(), network.c_str(), box.address.c_str(),
                    box.state.c_str(), box.boots, keep.c_str());
    }
    return exit_ok;
}

int help(const Options &) {
    print_help();
    return exit_ok;
}

constexpr struct {
    const char *name;
    int (*run)(const Options &options);
} verb_table[] = {{"run", run},   {"start", start}, {"enter", enter},
                  {"stop", stop}, {"list", list},   {"power-cut", power_cut},
                  {"help", help}, {"--help", help}, {"-h", help}};

}  // namespace

int run_verb(const Options &options) {
    for (const auto &verb : verb_table)
        if (options.verb == verb.name) return verb.run(options);
    throw Failure(exit_usage, "there is no verb \"" + options.verb + "\"");
}

}  // namespace box
