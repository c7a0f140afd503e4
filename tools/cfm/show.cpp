// show.cpp: prints a store's values, as lines `key=value` in the order of their keys or as one JSON object.

#include <cerrno>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/file_io.h"
#include "platform/host/safe_file.h"
#include "tools/cfm/command.h"

namespace cfm {

namespace {

bool is_of_kind(std::string_view key, Kind kind) { return key.starts_with("url.") == (kind == Kind::url_settings); }

std::string lines_of(const ap::host::Entries &entries) {
    std::string text;
    for (const auto &[key, value] : entries) ap::host::append_line(text, key, value);
    return text;
}

std::string json_of(const ap::host::Entries &entries) {
    const ap::UniqueJson object(cJSON_CreateObject());
    for (const auto &[key, value] : entries) cJSON_AddStringToObject(object.get(), key.c_str(), value.c_str());
    const ap::HeapPtr<char> text(cJSON_Print(object.get()));
    if (!text) throw std::bad_alloc();
    return std::string(text.get()) + "\n";
}

// A device or a link is written to; a plain file is replaced, so that nobody finds half of it.
bool is_replaced(const char *path) {
    struct stat status;
    return lstat(path, &status) != 0 || S_ISREG(status.st_mode);
}

bool write_file(const std::string &path, const std::string &text) {
    if (is_replaced(path.c_str())) return ap::host::replace_file(path, path + ".next", text);
    const ap::UniqueFd file = ap::open_fd(path.c_str(), O_WRONLY | O_TRUNC);
    return file && ap::write_full(file.get(), text.data(), text.size());
}

}  // namespace

int show(ap::host::WorkingSet &store, Kind kind, bool json, const Words &words) {
    ap::host::Entries entries;
    const bool shown = store.visit([&](std::string_view key, std::string_view value) {
        if (is_of_kind(key, kind)) entries.push_back({std::string(key), std::string(value)});
    });
    if (!shown) return fail("the store cannot be read");
    const std::string text = json ? json_of(entries) : lines_of(entries);
    if (!words.empty()) return write_file(words[0], text) ? exit_ok : fail(words[0] + ": " + std::strerror(errno));
    const bool printed = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    return printed ? exit_ok : fail(std::string("standard output: ") + std::strerror(errno));
}

}  // namespace cfm
