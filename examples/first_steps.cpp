// first_steps.cpp: the library's main job in five short verbs: a batch of settings, a log line, an error log, a cipher.
//
//   first_steps batch KEY=VALUE...       writes the settings that differ, and commits when there were any
//   first_steps read KEY                 one setting, as text and as a number
//   first_steps chat MODULE SECONDS      says a line of level 4 ten times a second; the level table decides which show
//   first_steps complain MODULE LINES    writes error lines, which also go to /var/debug.MODULE.log
//   first_steps encipher|decipher FILE   in place

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include "apsupport/foundation.h"

namespace {

using Words = std::vector<std::string>;

int batch(const Words &settings) {
    int written = 0;
    prod_cfm_init();
    for (const std::string &setting : settings) {
        const size_t equals = std::min(setting.find('='), setting.size());
        const std::string value = equals < setting.size() ? setting.substr(equals + 1) : "";
        written += prod_cfm_set_val(setting.substr(0, equals).c_str(), value.c_str());
    }
    if (prod_cfm_is_change() == 0) return std::puts("nothing changed, nothing committed") < 0;
    if (prod_cfm_commit() == 0) return std::puts("the commit failed"), 1;
    return std::printf("%d of %zu written, committed\n", written, settings.size()) < 0;
}

int read(const Words &words) {
    char value[2308] = "";
    if (prod_cfm_get_val(words[0].c_str(), value) == 0) return std::puts("not set"), 1;
    return std::printf("%s, as a number %d\n", value, prod_cfm_get_int_val("%s", words[0].c_str())) < 0;
}

int chat(const Words &words) {
    const int lines = 10 * std::stoi(words[1]);
    for (int number = 1; number <= lines; ++number) {
        prod_debug(__func__, __LINE__, 4, words[0].c_str(), "line %d", number);
        usleep(100'000);
    }
    return 0;
}

int complain(const Words &words) {
    const int lines = std::stoi(words[1]);
    for (int number = 1; number <= lines; ++number)
        prod_debug(__func__, __LINE__, 2, words[0].c_str(), "complaint %d of %d about nothing in particular", number,
                   lines);
    return 0;
}

int encipher(const Words &words) { return aes_cbc128_encrypt_file(words[0].c_str()) > 0 ? 0 : 1; }

// A deciphered file still has its enciphered length: its text ends at the result.
int decipher(const Words &words) {
    const int length = aes_cbc128_decrypt_file(words[0].c_str());
    return length > 0 && truncate(words[0].c_str(), length) == 0 ? 0 : 1;
}

struct Verb {
    const char *name;
    size_t fewest_words;
    int (*run)(const Words &words);
};
constexpr Verb verbs[] = {{"batch", 1, batch},       {"read", 1, read},         {"chat", 2, chat},
                          {"complain", 2, complain}, {"encipher", 1, encipher}, {"decipher", 1, decipher}};

}  // namespace

int main(int argc, char **argv) {
    const Words words(argv + std::min(argc, 2), argv + argc);
    for (const Verb &verb : verbs)
        if (argc > 1 && verb.name == std::string(argv[1]) && words.size() >= verb.fewest_words) return verb.run(words);
    std::fputs("usage: first_steps batch|read|chat|complain|encipher|decipher WORD...\n", stderr);
    return 2;
}
