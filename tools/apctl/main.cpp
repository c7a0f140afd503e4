// main.cpp: apctl, one command-line tool over the library. Finds the verb, answers --help, runs it.

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <unistd.h>
#include <vector>

#include "tools/apctl/command.h"

namespace apctl {

namespace {

std::vector<const Verb *> &verbs() {
    static std::vector<const Verb *> all;
    return all;
}

int print_overview(FILE *out) {
    std::fputs("usage: apctl VERB [ARGUMENT...]\n\nOne tool over the access point's support library.\n\n", out);
    for (const Verb *verb : verbs()) std::fprintf(out, "  %-14s %s\n", verb->name, verb->summary);
    std::fputs("\n`apctl VERB --help` tells more. Exit status: 0 done, 1 failed, 2 wrong use.\n", out);
    return out == stdout ? exit_ok : exit_usage;
}

bool asks_for_help(const std::string &word) { return word == "--help" || word == "-h" || word == "help"; }

}  // namespace

Verb::Verb(const char *verb_name, const char *verb_summary, const char *verb_help, int (*verb_run)(const Words &words),
           Where verb_where)
    : name(verb_name), summary(verb_summary), help(verb_help), run(verb_run), where(verb_where) {
    auto &all = verbs();
    all.insert(std::ranges::find_if(all, [&](const Verb *other) { return std::string(other->name) > verb_name; }),
               this);
}

int usage_error(const char *verb, const std::string &message) {
    std::fprintf(stderr, "apctl %s: %s\nTry `apctl %s --help`.\n", verb, message.c_str(), verb);
    return exit_usage;
}

bool take_flag(Words &words, const std::string &flag) {
    const auto found = std::ranges::find(words, flag);
    if (found == words.end()) return false;
    words.erase(found);
    return true;
}

bool take_option(Words &words, const std::string &option, std::string &value) {
    const auto found = std::ranges::find(words, option);
    if (found == words.end()) return false;
    const auto behind = found + 1;
    value = behind == words.end() ? std::string() : *behind;
    words.erase(found, behind == words.end() ? behind : behind + 1);
    return true;
}

bool in_device_box(const char *verb) {
    if (access("/.apbox", F_OK) == 0) return true;
    std::fprintf(stderr, "apctl %s: only in a device box (apbox run -- ...)\n", verb);
    return false;
}

// How many columns of a screen a text takes; its bytes where it is no UTF-8.
static size_t columns_of(const std::string &text) {
    static const bool is_utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    std::wstring wide(text.size(), L'\0');
    const size_t length = is_utf8 ? std::mbstowcs(wide.data(), text.c_str(), wide.size()) : std::string::npos;
    const int columns = length > wide.size() ? -1 : wcswidth(wide.c_str(), length);
    return columns < 0 ? text.size() : static_cast<size_t>(columns);
}

void print_table(const std::vector<std::vector<std::string>> &rows) {
    std::vector<size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns_of(row[i]));
    }
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] - columns_of(row[i]) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        std::puts(line.c_str());
    }
}

static int run(int argc, char **argv) {
    if (argc < 2) return print_overview(stderr);
    const std::string name = argv[1];
    if (asks_for_help(name)) return print_overview(stdout);
    const auto found = std::ranges::find_if(verbs(), [&](const Verb *verb) { return verb->name == name; });
    if (found == verbs().end()) {
        std::fprintf(stderr, "apctl: there is no verb \"%s\"; `apctl --help` lists them.\n", name.c_str());
        return exit_usage;
    }
    const Words words(argv + 2, argv + argc);
    if (!words.empty() && asks_for_help(words.front())) return std::fputs((*found)->help, stdout), exit_ok;
    if ((*found)->where == Where::in_box && !in_device_box((*found)->name)) return exit_failed;
    return (*found)->run(words);
}

}  // namespace apctl

int main(int argc, char **argv) { return apctl::run(argc, argv); }
