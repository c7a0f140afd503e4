// msg.cpp: `apctl msg`: sends a message to a message server's endpoint, asks it, or listens at one.
//
// What was asked for goes to standard output; the message server's own lines go to standard error.

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "foundation/file_io.h"
#include "tools/apctl/command.h"

namespace {

using apctl::Words;

constexpr size_t max_message = 16384;

constexpr char help[] =
    "usage: apctl msg notify ADDRESS TEXT|-\n"
    "       apctl msg ask    ADDRESS TEXT|- [--hex]\n"
    "       apctl msg listen ADDRESS [--answer TEXT | --run COMMAND] [--count N] [--hex]\n\n"
    "notify sends TEXT, or standard input for \"-\", and does not wait.\n"
    "ask    sends it and prints the answer: as text, or in hex when it is none or with --hex.\n"
    "       Without an answer the exit status is 1; the wait is bounded by 5 seconds.\n"
    "listen serves ADDRESS and prints what arrives. --answer answers with TEXT, --run with what COMMAND\n"
    "       prints, which gets the message as its standard input. --count ends after N messages.\n\n"
    "ADDRESS: tcp:IP:PORT, udp:IP:PORT, unix:NAME (under /var/socket) or netlink:PROTOCOL (the kernel).\n"
    "         An empty IP is any address. A message holds at most 16384 bytes.\n";

FILE *results = nullptr;  // standard output as it was

bool is_number(const std::string &text, unsigned long most) {
    return !text.empty() && text.size() <= 5 &&
           std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c); }) &&
           std::strtoul(text.c_str(), nullptr, 10) <= most;
}

// The library ends the process for a wrong address, with status 0: so it is looked at here. Empty: it is right.
std::string fault_of(const std::string &address) {
    const size_t scheme_end = address.find(':');
    const std::string scheme = address.substr(0, scheme_end);
    const std::string rest = scheme_end == std::string::npos ? "" : address.substr(scheme_end + 1);
    if (scheme == "netlink") return is_number(rest, 255) ? "" : "a netlink address is netlink:PROTOCOL";
    const bool is_name = !rest.empty() && rest.size() <= 63 && rest.find(':') == std::string::npos;
    if (scheme == "unix") return is_name ? "" : "a unix address is unix:NAME, at most 63 characters without \":\"";
    if (scheme != "tcp" && scheme != "udp") return "an address begins with tcp:, udp:, unix: or netlink:";
    const size_t colon = rest.find(':');
    const std::string ip = rest.substr(0, colon);
    in_addr parsed{};
    if (!ip.empty() && inet_pton(AF_INET, ip.c_str(), &parsed) != 1) return "\"" + ip + "\" is no IPv4 address";
    const bool has_port = colon != std::string::npos && is_number(rest.substr(colon + 1), 65535);
    return has_port ? "" : "a " + scheme + " address is " + scheme + ":IP:PORT";
}

bool is_text(const std::string &bytes) {
    return std::ranges::none_of(bytes, [](unsigned char c) { return std::iscntrl(c) && !std::strchr("\t\r\n", c); }) &&
           bytes.find('\0') == std::string::npos;
}

void print_hex(const std::string &bytes) {
    for (size_t start = 0; start < bytes.size(); start += 16) {
        std::string line;
        for (size_t i = start; i < std::min(start + 16, bytes.size()); ++i) {
            char pair[4];
            std::snprintf(pair, sizeof pair, "%02x ", static_cast<unsigned char>(bytes[i]));
            line += pair;
        }
        line.pop_back();
        std::fprintf(results, "%s\n", line.c_str());
    }
}

void print_message(const std::string &bytes, bool as_hex) {
    if (as_hex || !is_text(bytes))
        print_hex(bytes);
    else
        std::fprintf(results, "%s%s", bytes.c_str(), bytes.ends_with('\n') ? "" : "\n");
    std::fflush(results);
}

std::string read_all(int fd) {
    std::string bytes;
    char block[4096];
    for (ssize_t got = 0; (got = ap::read_full(fd, block, sizeof block)) > 0;)
        bytes.append(block, static_cast<size_t>(got));
    return bytes;
}

// What a shell command prints when it gets `input` as its standard input.
std::string output_of(const std::string &command, const std::string &input) {
    const ap::UniqueFd message(memfd_create("message", MFD_CLOEXEC));
    int ends[2];
    if (!message || !ap::write_full(message.get(), input.data(), input.size()) || pipe2(ends, O_CLOEXEC) != 0)
        return {};
    lseek(message.get(), 0, SEEK_SET);
    const ap::UniqueFd reader(ends[0]);
    ap::UniqueFd writer(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        dup2(message.get(), STDIN_FILENO);
        dup2(writer.get(), STDOUT_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    writer.reset();
    std::string output = read_all(reader.get());
    if (child > 0) ap::retry_interrupted([&] { return waitpid(child, nullptr, 0); });
    return output;
}

struct Listener {
    std::string answer, command;
    bool as_hex = false;
    long messages_left = -1;  // negative: without end
} listener;

int print_and_answer(ms_session *session, char *data, int length) {
    if (length <= 0) return std::fputs("apctl msg: a peer came without a message\n", stderr), 0;
    const std::string message(data, static_cast<size_t>(length));
    print_message(message, listener.as_hex);
    std::string answer = listener.command.empty() ? listener.answer : output_of(listener.command, message);
    if (answer.size() > max_message) {
        std::fputs("apctl msg: the answer is cut to 16384 bytes\n", stderr);
        answer.resize(max_message);
    }
    if (!answer.empty()) ms_send(session, answer.data(), static_cast<int>(answer.size()));
    if (listener.messages_left > 0 && --listener.messages_left == 0) std::exit(apctl::exit_ok);
    return 0;
}

int listen_at(const std::string &address, Words options) {
    std::string count;
    listener.as_hex = apctl::take_flag(options, "--hex");
    const bool has_answer = apctl::take_option(options, "--answer", listener.answer);
    const bool has_command = apctl::take_option(options, "--run", listener.command);
    if (apctl::take_option(options, "--count", count)) {
        if (!is_number(count, 99999) || count == "0") return apctl::usage_error("msg", "--count takes a number from 1");
        listener.messages_left = std::strtol(count.c_str(), nullptr, 10);
    }
    if (has_answer && has_command) return apctl::usage_error("msg", "--answer and --run exclude each other");
    if (!options.empty()) return apctl::usage_error("msg", "\"" + options.front() + "\" is not understood");
    if (ms_server(address.c_str(), print_and_answer) == nullptr) return apctl::exit_failed;
    ms_run();
    return apctl::exit_failed;
}

int send_message(const std::string &verb, const std::string &address, Words options) {
    const bool as_hex = verb == "ask" && apctl::take_flag(options, "--hex");
    if (options.size() != 1) return apctl::usage_error("msg", verb + " takes an address and one text, or \"-\"");
    const std::string message = options.front() == "-" ? read_all(STDIN_FILENO) : options.front();
    if (message.size() > max_message) return apctl::usage_error("msg", "a message holds at most 16384 bytes");
    const int length = static_cast<int>(message.size());
    if (verb == "notify")
        return ms_notify(address.c_str(), message.data(), length) == 0 ? apctl::exit_ok : apctl::exit_failed;

    std::string answer(max_message, '\0');
    const int got = ms_dialog(address.c_str(), message.data(), length, answer.data(), static_cast<int>(answer.size()));
    if (got <= 0) {
        std::fprintf(stderr, "apctl msg: no answer from %s\n", address.c_str());
        return apctl::exit_failed;
    }
    answer.resize(static_cast<size_t>(got));
    print_message(answer, as_hex);
    return apctl::exit_ok;
}

int run_msg(const Words &words) {
    if (words.size() < 2) return apctl::usage_error("msg", "it takes notify, ask or listen, and an address");
    const std::string &verb = words[0], &address = words[1];
    if (verb != "notify" && verb != "ask" && verb != "listen")
        return apctl::usage_error("msg", "\"" + verb + "\" is none of notify, ask, listen");
    if (const std::string fault = fault_of(address); !fault.empty()) return apctl::usage_error("msg", fault);

    results = fdopen(dup(STDOUT_FILENO), "w");
    if (results == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return std::perror("apctl msg"), apctl::exit_failed;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const Words options(words.begin() + 2, words.end());
    return verb == "listen" ? listen_at(address, options) : send_message(verb, address, options);
}

const apctl::Verb verb{"msg", "send a message to a daemon, ask it, or listen as one", help, run_msg,
                       apctl::Where::anywhere};

}  // namespace
