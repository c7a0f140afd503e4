// config.cpp: `apctl config`: reads values, and writes batches of them that are committed only when something changed.

#include <cstdio>

#include "apsupport/foundation.h"
#include "foundation/config_value.h"
#include "foundation/owned.h"
#include "tools/apctl/command.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl config get KEY... [--json]\n"
    "       apctl config set KEY=VALUE... [--commit]\n"
    "       apctl config unset KEY... [--commit]\n"
    "       apctl config list [PREFIX] [--json]\n"
    "       apctl config commit\n\n"
    "get     prints the value of one key, or lines KEY=VALUE for several; exit status 1 when one is not set.\n"
    "set     stores values. Those that a key holds already are left alone; the last line counts the others. Every\n"
    "        process sees a change at once.\n"
    "unset   removes keys.\n"
    "list    prints all values, or those of the keys that begin with PREFIX.\n"
    "commit  makes everything set so far survive a power cut. --commit does so behind a batch, if it changed\n"
    "        anything.\n";

struct Setting {
    std::string key, value;
    bool is_set = true;
};

int fail(const std::string &message) {
    std::fprintf(stderr, "apctl config: %s\n", message.c_str());
    return exit_failed;
}

void print_json(const std::vector<Setting> &settings) {
    const ap::UniqueJson object(cJSON_CreateObject());
    for (const auto &s : settings) {
        cJSON *value = s.is_set ? cJSON_CreateString(s.value.c_str()) : cJSON_CreateNull();
        cJSON_AddItemToObject(object.get(), s.key.c_str(), value);
    }
    const ap::HeapPtr<char> text(cJSON_Print(object.get()));
    if (text) std::puts(text.get());
}

int get(Words words) {
    const bool json = take_flag(words, "--json");
    if (words.empty()) return usage_error("config", "get takes one key or more");
    std::vector<Setting> settings;
    int status = exit_ok;
    for (const auto &key : words) {
        ap::ConfigValue value;
        const bool is_set = prod_cfm_get_val(key.c_str(), value.c_str()) != 0;
        settings.push_back({key, value.c_str(), is_set});
        if (!is_set) status = fail("\"" + key + "\" is not set");
    }
    if (json) return print_json(settings), status;
    for (const auto &s : settings) {
        if (s.is_set) std::printf("%s%s\n", words.size() == 1 ? "" : (s.key + "=").c_str(), s.value.c_str());
    }
    return status;
}

int commit() {
    if (prod_cfm_commit() == 0) return fail("the values could not be committed");
    std::puts("committed");
    return exit_ok;
}

// Ends a batch: a line that counts it, and the commit if it is wanted and there is something to commit.
int finish_batch(size_t changed, size_t unchanged, bool wants_commit) {
    std::printf("%zu changed, %zu unchanged\n", changed, unchanged);
    if (!wants_commit) return exit_ok;
    if (prod_cfm_is_change() != 0) return commit();
    std::puts("nothing to commit");
    return exit_ok;
}

bool holds(const Setting &setting) {
    ap::ConfigValue value;
    prod_cfm_get_val(setting.key.c_str(), value.c_str());
    return value.is(setting.value);
}

int set(Words words) {
    const bool wants_commit = take_flag(words, "--commit");
    std::vector<Setting> settings;
    for (const auto &word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0)
            return usage_error("config", "\"" + word + "\" is no KEY=VALUE");
        settings.push_back({word.substr(0, equals), word.substr(equals + 1)});
    }
    if (settings.empty()) return usage_error("config", "set takes one KEY=VALUE or more");

    prod_cfm_init();
    size_t changed = 0;
    for (const auto &s : settings) {
        if (prod_cfm_set_val(s.key.c_str(), s.value.c_str()) == 0) continue;
        if (!holds(s)) return fail("the store refuses \"" + s.key + "\"; nothing behind it was set or committed");
        ++changed;
    }
    return finish_batch(changed, settings.size() - changed, wants_commit);
}

int unset(Words words) {
    const bool wants_commit = take_flag(words, "--commit");
    if (words.empty()) return usage_error("config", "unset takes one key or more");
    prod_cfm_init();
    size_t changed = 0;
    for (const auto &key : words) changed += static_cast<size_t>(prod_cfm_unset_val(key.c_str()));
    return finish_batch(changed, words.size() - changed, wants_commit);
}

// Adds what the store's own command prints, lines KEY=VALUE, for keys that begin with `prefix`.
bool add_printed(const char *command, const std::string &prefix, std::vector<Setting> &settings) {
    FILE *pipe = popen(command, "re");
    if (pipe == nullptr) return false;
    char *line = nullptr;
    size_t size = 0;
    while (getline(&line, &size, pipe) > 0) {
        const std::string text(str_trim_right(line, '\n'));
        const size_t equals = text.find('=');
        if (equals == std::string::npos || text.compare(0, prefix.size(), prefix) != 0) continue;
        settings.push_back({text.substr(0, equals), text.substr(equals + 1)});
    }
    const ap::HeapPtr<char> owner(line);
    return pclose(pipe) == 0;
}

int list(Words words) {
    const bool json = take_flag(words, "--json");
    if (words.size() > 1) return usage_error("config", "list takes one prefix at most");
    const std::string prefix = words.empty() ? "" : words[0];
    std::vector<Setting> settings;
    if (!add_printed("cfm show", prefix, settings) || !add_printed("cfm urlshow", prefix, settings)) {
        return fail("the store's command cfm could not list its values");
    }
    if (json) return print_json(settings), exit_ok;
    for (const auto &s : settings) std::printf("%s=%s\n", s.key.c_str(), s.value.c_str());
    return exit_ok;
}

int run_config(const Words &words) {
    if (words.empty()) return usage_error("config", "what to do is missing");
    const std::string &action = words[0];
    const Words rest(words.begin() + 1, words.end());
    if (action == "get") return get(rest);
    if (action == "set") return set(rest);
    if (action == "unset") return unset(rest);
    if (action == "list") return list(rest);
    if (action == "commit" && rest.empty()) return commit();
    return usage_error("config", "there is no \"" + action + "\"");
}

const Verb verb{"config", "read, set and commit configuration values", help, run_config};

}  // namespace
