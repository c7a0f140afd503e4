// made_up.cpp: see made_up.h.

#include "tools/apbox/made_up.h"

#include <algorithm>
#include <cctype>
#include <unistd.h>

#include "tools/apbox/failure.h"

namespace box {

namespace {

bool is_number(const std::string &name) {
    return std::ranges::all_of(name, [](unsigned char c) { return std::isdigit(c) != 0; });
}

}  // namespace

void link_entries(const fs::path &from, const fs::path &to, const fs::path &seen_as) {
    make_folder(to);
    std::error_code none;  // a folder that is not there has no entries
    for (const auto &entry : fs::directory_iterator(from, none)) {
        const std::string name = entry.path().filename();
        if (!is_number(name)) link_to(seen_as / name, to / name);
    }
}

void link_processes(const fs::path &shown, const fs::path &seen_as, int first, int end) {
    const std::string prefix = seen_as.string() + "/", place = shown.string() + "/";
    for (int process = first; process < end; ++process) {
        const std::string number = std::to_string(process);
        if (symlink((prefix + number).c_str(), (place + number).c_str()) != 0 && errno != EEXIST)
            must(-1, place + number);
    }
}

MadeUpFolder::MadeUpFolder(fs::path real, fs::path shown, fs::path seen_as)
    : real_(std::move(real)), shown_(std::move(shown)), seen_as_(std::move(seen_as)) {
    link_entries(real_, shown_, seen_as_);
}

void MadeUpFolder::open_up(const fs::path &below) {
    const fs::path place = shown_ / below;
    if (fs::is_directory(fs::symlink_status(place))) return;
    unlink(place.c_str());
    link_entries(real_ / below, place, seen_as_ / below);
}

void MadeUpFolder::add(const fs::path &source, const fs::path &below) {
    for (const auto &entry : fs::directory_iterator(source)) {
        const fs::path name = below / entry.path().filename();
        if (entry.is_directory()) {
            open_up(name);
            add(entry.path(), name);
        } else {
            place_file(entry.path(), shown_ / name);
        }
    }
}

void MadeUpFolder::add_files(const fs::path &source) {
    if (fs::is_directory(source)) add(source, {});
}

}  // namespace box
