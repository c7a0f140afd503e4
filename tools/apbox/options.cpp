// options.cpp: one table of options, each with the verbs that take it.

#include "tools/apbox/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "tools/apbox/failure.h"

namespace box {

namespace {

using Setter = void (*)(Options &, const std::string &value);

struct Option {
    const char *name, *verbs;
    bool takes_value;
    Setter set;
};

std::string absolute(const std::string &path) { return std::filesystem::absolute(path).lexically_normal(); }

// Names become file names, and part of the names of network interfaces' folders.
std::string checked_name(const std::string &name) {
    const auto plain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; };
    if (name.empty() || name.size() > 32 || name[0] == '-' || !std::ranges::all_of(name, plain))
        throw Failure(exit_usage, "\"" + name + "\" is no name: at most 32 letters, digits, \"-\" and \"_\"");
    return name;
}

double checked_factor(const std::string &text) {
    char *end = nullptr;
    const double factor = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !(factor >= 0.01 && factor <= 10000))
        throw Failure(exit_usage, "--clock takes a factor from 0.01 to 10000, not \"" + text + "\"");
    return factor;
}

int checked_count(const std::string &text) {
    int count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size() || count < 0)
        throw Failure(exit_usage, "--restarts takes a number, not \"" + text + "\"");
    return count;
}

constexpr const char *starting = "run start";

const Option option_table[] = {
    {"--name", "run start", true, [](Options &o, const std::string &v) { o.name = checked_name(v); }},
    {"--network", "run start stop", true, [](Options &o, const std::string &v) { o.network = checked_name(v); }},
    {"--address", starting, true, [](Options &o, const std::string &v) { o.address = v; }},
    {"--keep", starting, true, [](Options &o, const std::string &v) { o.keep = absolute(v); }},
    {"--clock", starting, true, [](Options &o, const std::string &v) { o.clock = checked_factor(v); }},
    {"--scenario", starting, true, [](Options &o, const std::string &v) { o.scenario = absolute(v); }},
    {"--tree", starting, true, [](Options &o, const std::string &v) { o.tree = absolute(v); }},
    {"--bin", starting, true, [](Options &o, const std::string &v) { o.programs.push_back(absolute(v)); }},
    {"--show", starting, true, [](Options &o, const std::string &v) { o.shown.push_back(absolute(v)); }},
    {"--writable", starting, true, [](Options &o, const std::string &v) { o.writable.push_back(absolute(v)); }},
    {"--restarts", "run", true, [](Options &o, const std::string &v) { o.restarts = checked_count(v); }},
    {"--bus", starting, false, [](Options &o, const std::string &) { o.bus = true; }},
    {"--json", "list", false, [](Options &o, const std::string &) { o.json = true; }},
    {"--off", "power-cut", false, [](Options &o, const std::string &) { o.off = true; }},
    {"--all", "stop", false, [](Options &o, const std::string &) { o.all = true; }},
};

bool has_word(std::string_view words, std::string_view word) {
    if (word.empty()) return false;
    for (size_t at = 0; at < words.size(); at += word.size()) {
        at = words.find(word, at);
        if (at == std::string_view::npos) return false;
        const size_t end = at + word.size();
        if ((at == 0 || words[at - 1] == ' ') && (end == words.size() || words[end] == ' ')) return true;
    }
    return false;
}

const Option &find_option(const std::string &verb, const std::string &name) {
    const auto fits = [&](const Option &o) { return name == o.name && has_word(o.verbs, verb); };
    const auto found = std::ranges::find_if(option_table, fits);
    if (found == std::end(option_table))
        throw Failure(exit_usage, "`apbox " + verb + "` takes no " + name + "; `apbox help` tells more");
    return *found;
}

void check(const Options &options) {
    const bool names_a_box = has_word("start stop enter power-cut", options.verb);
    if (!names_a_box && options.verb != "run" && !options.name.empty())
        throw Failure(exit_usage, "`apbox " + options.verb + "` takes no name");
    if (has_word("run enter", options.verb) && options.command.empty())
        throw Failure(exit_usage, "`apbox " + options.verb + "` needs a command behind \"--\"");
    if (has_word("stop list power-cut", options.verb) && !options.command.empty())
        throw Failure(exit_usage, "`apbox " + options.verb + "` takes no command");
}

}  // namespace

Options parse_options(int argc, char **argv) {
    Options options;
    options.verb = argc > 1 ? argv[1] : "";
    if (!has_word("run start stop enter list power-cut help --help -h", options.verb))
        throw Failure(exit_usage, "there is no verb \"" + options.verb + "\"; `apbox help` lists them");
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--") {
            options.command.assign(argv + i + 1, argv + argc);
            break;
        }
        if (!word.starts_with("-") && options.name.empty() && options.verb != "run") {
            options.name = checked_name(word);
            continue;
        }
        if (!word.starts_with("-"))
            throw Failure(exit_usage, "\"" + word + "\" is not understood; a command stands behind \"--\"");
        const Option &option = find_option(options.verb, word);
        if (option.takes_value && i + 1 == argc) throw Failure(exit_usage, word + " needs a value");
        option.set(options, option.takes_value ? argv[++i] : "");
    }
    check(options);
    return options;
}

void print_help() {
    std::fputs(
        R"(usage: apbox run [OPTION...] -- COMMAND...        run a command on a device of its own; it ends with the command
       apbox start [NAME] [OPTION...] [-- INIT...]  start a device in the background, with an init script if given
       apbox enter [NAME] -- COMMAND...            run a command on a device that is up
       apbox list [--json]                         the devices that are up
       apbox power-cut [NAME] [--off]              cut the power; it starts again from what was synced, unless --off
       apbox stop [NAME | --network NAME | --all]  shut down

A device box: the access point's own files, processes, network and flash, apart from the machine's.

  --name NAME       what the box is called, for `enter`, `stop` and `power-cut`
  --network NAME    put it on a virtual network with every other box that names it
  --address A.B.C.D its LAN address, mask 255.255.255.0 (192.168.0.N, N counting the boxes of its network)
  --keep DIR        keep /cfg, /mnt and flash in DIR beyond the box's end
  --clock FACTOR    let time pass FACTOR times as fast
  --scenario FILE   the surroundings: radios, neighbours, clients
  --restarts N      of `run`: give up when the command restarts the device more often (1000)
  --bus             start the message bus (always there for `start` and --network)
  --bin DIR         put DIR first on the PATH
  --show DIR        keep DIR visible, read-only      --writable DIR  keep DIR visible and writable
  --tree DIR        copy DIR over the device's files

Without NAME, the only device that is up is meant. Exit status: the command's; 1 failed, 2 wrong use, 77 this machine
allows no box. In a box, `kill 1` restarts the device and `kill -PWR 1` cuts its power; /apbox/boot counts its starts.
)",
        stdout);
}

}  // namespace box
