// box_entry.cpp: looks for the box's mark; without it, starts this program again through the apbox built beside it.

#include "tests/support/box_entry.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace test {

bool in_box() { return access("/.apbox", F_OK) == 0; }

void enter_box(char **argv) {
    if (in_box()) return;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string apbox = (self.parent_path().parent_path() / "bin" / "apbox").string();
    std::vector<std::string> words{apbox, "run", "--", self.string()};
    for (char **word = argv + 1; *word != nullptr; ++word) words.emplace_back(*word);
    std::vector<char *> command;
    for (auto &word : words) command.push_back(word.data());
    command.push_back(nullptr);
    execv(apbox.c_str(), command.data());
    std::perror(apbox.c_str());
    std::exit(1);
}

}  // namespace test
