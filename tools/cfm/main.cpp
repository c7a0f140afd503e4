// main.cpp: cfm, the configuration store's own command. Finds the verb, takes its options, and runs it.

#include <algorithm>
#include <cstdio>
#include <exception>

#include "tools/cfm/command.h"

namespace cfm {

namespace {

constexpr char usage[] =
    "usage: cfm [--factory] VERB [ARGUMENT...]\n"
    "\n"
    "The access point's configuration store. Changes are seen by every process at once and last from `commit` on.\n"
    "\n"
    "  get KEY               print a value\n"
    "  set KEY VALUE         store a value\n"
    "  unset KEY             remove a value\n"
    "  show [FILE]           print all values but the URL settings, or write them to a file\n"
    "  urlshow [FILE]        the same for the URL settings, the keys that begin with \"url.\"\n"
    "  commit                make everything set so far survive a power cut\n"
    "  import FILE           take in a file of lines key=value; a malformed line is named and refuses the whole file\n"
    "\n"
    "  --factory             work on the factory store\n"
    "  --json                with show and urlshow: print one JSON object\n"
    "  --skip-malformed      with import: take the other lines in\n"
    "  --replace             with import: remove the values that the file does not name\n"
    "\n"
    "Exit status: 0 done, 1 failed or not there, 2 wrong use.\n";

struct Options {
    bool factory, json, skip_malformed, replace;
};

bool take_flag(Words &words, const char *flag) { return std::erase(words, flag) > 0; }

ap::host::WorkingSet &store_of(const Options &options) {
    return options.factory ? ap::host::factory_store() : ap::host::config_store();
}

int get(const Options &options, const Words &words) {
    char value[ap::host::longest_value + 1];
    if (!store_of(options).get(words[0], value)) return fail("\"" + words[0] + "\" is not set");
    return std::puts(value) < 0 ? exit_failed : exit_ok;
}

int set(const Options &options, const Words &words) {
    if (const char *reason = ap::host::refusal_of(words[0], words[1])) return fail(reason);
    return store_of(options).set(words[0], words[1]) ? exit_ok : fail("the store cannot be written");
}

int unset(const Options &options, const Words &words) {
    return store_of(options).unset(words[0]) ? exit_ok : fail("\"" + words[0] + "\" is not set");
}

int show_settings(const Options &options, const Words &words) {
    return show(store_of(options), Kind::settings, options.json, words);
}

int show_url_settings(const Options &options, const Words &words) {
    return show(store_of(options), Kind::url_settings, options.json, words);
}

int commit(const Options &options, const Words &) {
    return store_of(options).commit() ? exit_ok : fail("the values could not be committed; the log says why");
}

int import_file(const Options &options, const Words &words) {
    return import(store_of(options), {options.skip_malformed, options.replace}, words[0]);
}

struct Verb {
    const char *name;
    size_t least_words, most_words;
    int (*run)(const Options &options, const Words &words);
};
constexpr Verb verbs[] = {
    {"get", 1, 1, get},
    {"set", 2, 2, set},
    {"unset", 1, 1, unset},
    {"show", 0, 1, show_settings},
    {"urlshow", 0, 1, show_url_settings},
    {"commit", 0, 0, commit},
    {"import", 1, 1, import_file},
};

int print_usage(FILE *out) {
    std::fputs(usage, out);
    return out == stdout ? exit_ok : exit_usage;
}

// The words of `set` are data, whatever they look like; elsewhere options may stand anywhere.
Options take_options(Words &words) {
    Options options = {};
    options.factory = !words.empty() && words[0] == "--factory";
    if (options.factory) words.erase(words.begin());
    if (words.empty() || words[0] == "get" || words[0] == "set" || words[0] == "unset") return options;
    options.json = take_flag(words, "--json");
    options.skip_malformed = take_flag(words, "--skip-malformed");
    options.replace = take_flag(words, "--replace");
    return options;
}

int run(Words words) {
    const Options options = take_options(words);
    if (words.empty()) return print_usage(stderr);
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") return print_usage(stdout);
    const std::string name = words[0];
    words.erase(words.begin());
    const auto *verb = std::ranges::find_if(verbs, [&](const Verb &v) { return v.name == name; });
    if (verb != std::end(verbs) && words.size() == 1 && words[0] == "--help") return print_usage(stdout);
    if (verb == std::end(verbs) || words.size() < verb->least_words || words.size() > verb->most_words)
        return print_usage(stderr);
    return verb->run(options, words);
}

}  // namespace

int fail(const std::string &message) {
    std::fprintf(stderr, "cfm: %s\n", message.c_str());
    return exit_failed;
}

}  // namespace cfm

int main(int argc, char **argv) {
    try {
        return cfm::run(cfm::Words(argv + 1, argv + argc));
    } catch (const std::exception &error) {
        return cfm::fail(error.what());
    }
}
