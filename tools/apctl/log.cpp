// log.cpp: `apctl log`: the debug levels that all processes share, and the error log of a module.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tools/apctl/command.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl log show [MODULE...] [--json]\n"
    "       apctl log set MODULE LEVEL\n"
    "       apctl log watch [--for SECONDS] [--json]\n"
    "       apctl log errors MODULE [--last LINES] [--json]\n\n"
    "show    lists the debug levels of all modules, or of those that are named; exit status 1 when one has none.\n"
    "set     raises or lowers a module's level in every process at once. LEVEL is a number, or F (1, fatal),\n"
    "        E (2, error), D (3, debug), I (4, information), T (5, trace), or off (0), which removes the module.\n"
    "watch   prints every change of a level, until it is interrupted or the time is over.\n"
    "errors  prints the error log of a module, \"/var/debug.MODULE.log\", or its last lines.\n";

constexpr char letters[] = "-FEDIT";  // by level
constexpr useconds_t watch_interval_us = 100000;

int fail(const std::string &message) {
    std::fprintf(stderr, "apctl log: %s\n", message.c_str());
    return exit_failed;
}

std::string letter_of(unsigned int level) { return {letters[level < sizeof letters - 1 ? level : 0]}; }

void print_json(const cJSON *json, bool in_one_line = false) {
    const ap::HeapPtr<char> text(in_one_line ? cJSON_PrintUnformatted(json) : cJSON_Print(json));
    if (text) std::puts(text.get());
}

using Levels = std::map<std::string, unsigned int>;

// The levels as they are at this moment; false when there is no table.
bool read_levels(Levels &levels) {
    const dbg_info *shared = get_dbg_info();
    if (shared == nullptr) return false;
    const dbg_info table = *shared;
    levels.clear();
    unsigned int left = table.count;
    for (const dbg_slot &slot : table.slots) {
        if (left == 0 || (slot.word & 1) == 0) continue;
        levels.emplace(ap::field_text(slot.name), slot.word >> 1);
        --left;
    }
    return true;
}

int show(Words words) {
    const bool json = take_flag(words, "--json");
    Levels levels, chosen;
    if (!read_levels(levels)) return fail("the table of levels cannot be attached");
    int status = exit_ok;
    for (const auto &module : words) {
        const auto found = levels.find(module);
        if (found == levels.end()) {
            status = fail("\"" + module + "\" has no level");
        } else {
            chosen.insert(*found);
        }
    }
    if (words.empty()) chosen = levels;
    const ap::UniqueJson object(cJSON_CreateObject());
    std::vector<std::vector<std::string>> rows = {{"MODULE", "LEVEL", "MARK"}};
    for (const auto &[module, level] : chosen) {
        cJSON_AddNumberToObject(object.get(), module.c_str(), level);
        rows.push_back({module, std::to_string(level), letter_of(level)});
    }
    json ? print_json(object.get()) : print_table(rows);
    return status;
}

// False when the word is no level.
bool parse_level(const std::string &word, unsigned int &level) {
    if (word == "off") return level = 0, true;
    const char *letter = word.size() == 1 && word[0] != '-' ? std::strchr(letters, word[0]) : nullptr;
    if (letter != nullptr) return level = static_cast<unsigned int>(letter - letters), true;
    char *end = nullptr;
    const unsigned long number = std::strtoul(word.c_str(), &end, 10);
    if (word.empty() || word[0] < '0' || word[0] > '9' || *end != '\0' || number > 0x7fffffff) return false;
    return level = static_cast<unsigned int>(number), true;
}

int set(const Words &words) {
    unsigned int level = 0;
    if (words.size() != 2) return usage_error("log", "set takes a module and a level");
    if (words[0].empty() || words[0].size() >= sizeof(dbg_slot::name)) {
        return usage_error("log", "a module's name has 1 to 31 characters");
    }
    if (!parse_level(words[1], level)) return usage_error("log", "\"" + words[1] + "\" is no level");
    if (set_dbg_level(words[0].c_str(), level) == 1) return exit_ok;
    return fail("the table of levels holds 100 modules already, or cannot be attached");
}

void print_change(const std::string &module, unsigned int before, unsigned int after, bool json) {
    if (!json) {
        std::printf("%s: %u -> %u\n", module.c_str(), before, after);
        return;
    }
    const ap::UniqueJson object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "module", module.c_str());
    cJSON_AddNumberToObject(object.get(), "before", before);
    cJSON_AddNumberToObject(object.get(), "after", after);
    print_json(object.get(), true);
}

unsigned int level_in(const Levels &levels, const std::string &module) {
    const auto found = levels.find(module);
    return found == levels.end() ? 0 : found->second;
}

void print_changes(const Levels &before, const Levels &after, bool json) {
    for (const auto &[module, level] : before) {
        if (level_in(after, module) == 0) print_change(module, level, 0, json);
    }
    for (const auto &[module, level] : after) {
        const unsigned int old_level = level_in(before, module);
        if (old_level != level) print_change(module, old_level, level, json);
    }
    std::fflush(stdout);
}

int watch(Words words) {
    const bool json = take_flag(words, "--json");
    std::string seconds;
    const bool ends = take_option(words, "--for", seconds);
    if (!words.empty()) return usage_error("log", "watch takes no \"" + words[0] + "\"");
    if (ends && (str_isdigit(seconds.c_str()) == 0 || seconds[0] == '-'))
        return usage_error("log", "--for takes seconds");
    const uint64_t end_ms = get_now_ms() + std::strtoull(seconds.c_str(), nullptr, 10) * 1000;
    Levels before, now;
    if (!read_levels(before)) return fail("the table of levels cannot be attached");
    while (!ends || get_now_ms() < end_ms) {
        usleep(watch_interval_us);
        read_levels(now);
        print_changes(before, now, json);
        before = now;
    }
    return exit_ok;
}

int errors(Words words) {
    const bool json = take_flag(words, "--json");
    std::string last = "0";
    take_option(words, "--last", last);
    if (words.size() != 1 || words[0].empty() || words[0].find('/') != std::string::npos) {
        return usage_error("log", "errors takes the name of one module");
    }
    if (str_isdigit(last.c_str()) == 0 || last[0] == '-') return usage_error("log", "--last takes a number of lines");
    const std::string path = "/var/debug." + words[0] + ".log";
    std::ifstream file(path);
    if (!file) return fail("there is no \"" + path + "\"");

    const size_t most = std::strtoul(last.c_str(), nullptr, 10);
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
        if (most != 0 && lines.size() > most) lines.pop_front();
    }
    const ap::UniqueJson array(cJSON_CreateArray());
    for (const auto &line : lines) {
        if (!json) std::puts(line.c_str());
        cJSON_AddItemToArray(array.get(), cJSON_CreateString(line.c_str()));
    }
    if (json) print_json(array.get());
    return exit_ok;
}

int run_log(const Words &words) {
    if (words.empty()) return usage_error("log", "what to do is missing");
    const std::string &action = words[0];
    const Words rest(words.begin() + 1, words.end());
    if (action == "show") return show(rest);
    if (action == "set") return set(rest);
    if (action == "watch") return watch(rest);
    if (action == "errors") return errors(rest);
    return usage_error("log", "there is no \"" + action + "\"");
}

const Verb verb{"log", "debug levels of all processes, and error logs", help, run_log};

}  // namespace
