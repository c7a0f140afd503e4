// command.h: the verbs of apctl. Each source file of this folder adds its own: `static const apctl::Verb verb{...}`.
#pragma once

#include <string>
#include <vector>

namespace apctl {

using Words = std::vector<std::string>;  // what stands behind the verb

enum Exit : int { exit_ok = 0, exit_failed = 1, exit_usage = 2 };

// Most verbs work on a device, which on a PC is a device box; outside they would leave a store behind on the machine.
enum class Where { in_box, anywhere };

// One verb: its name, a line for the list of verbs, the whole text of `apctl NAME --help`, and what it does.
// `run` returns the exit status; the words never hold "--help" first, which the caller answers.
struct Verb {
    Verb(const char *name, const char *summary, const char *help, int (*run)(const Words &words),
         Where where = Where::in_box);

    const char *name, *summary, *help;
    int (*run)(const Words &words);
    Where where;
};

// Prints "apctl NAME: MESSAGE" and how to get help, on standard error; returns exit_usage.
int usage_error(const char *verb, const std::string &message);

// Takes "--json", or any other option that stands alone, out of the words; true when it was there.
bool take_flag(Words &words, const std::string &flag);

// Takes "OPTION VALUE" out of the words; true when it was there. A missing value leaves `value` empty.
bool take_option(Words &words, const std::string &option, std::string &value);

// True in a device box; otherwise prints that the verb works only there, on standard error.
bool in_device_box(const char *verb);

// A table for people: columns as wide as their longest cell, the first row the heading.
void print_table(const std::vector<std::vector<std::string>> &rows);

}  // namespace apctl
