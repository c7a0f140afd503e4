// box_entry.cpp: looks for the box's mark; without it, starts this program again through the apbox built beside it.
// Programs of the device's processor run under emulation, which cannot start apbox: those are started in a box.

#include "tests/support/box_entry.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace test {

bool in_box() { return access("/.apbox", F_OK) == 0; }

int restarts() {
    int boots = 1;
    if (in_box()) std::ifstream("/apbox/boot") >> boots;
    return boots - 1;
}

void enter_box(char **argv) {
    if (in_box()) return;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string apbox = (self.parent_path().parent_path() / "bin" / "apbox").string();
    std::vector<std::string> words{apbox, "run", "--", self.string()};
    for (char **word = argv + 1; *word != nullptr; ++word) words.emplace_back(*word);
    std::vector<char *> command;
    command.reserve(words.size() + 1);
    for (auto &word : words) command.push_back(word.data());
    command.push_back(nullptr);
    execv(apbox.c_str(), command.data());
    std::perror(apbox.c_str());
    std::exit(1);
}

}  // namespace test
