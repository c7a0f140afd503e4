// config_sources.cpp: reads configuration files and committed images, and picks the one that a fresh working set starts
// from.

#include "platform/host/config_sources.h"

#include <sys/stat.h>

#include "applatform/commands.h"
#include "platform/host/safe_file.h"

namespace ap::host {

namespace {

constexpr int level_error = 2, level_information = 4;

bool file_exists(const char *path) {
    struct stat status;
    return lstat(path, &status) == 0;
}

// The values of an image. A missing one is no news, a damaged or unreadable one is.
bool read_image(const char *path, Entries &entries) {
    if (!file_exists(path)) return false;
    std::string content, error;
    if (!read_whole_file(path, content, error)) {
        log_debug_print(__func__, __LINE__, level_error, "cfm", "%s cannot be read: %s", path, error.c_str());
        return false;
    }
    ImageCheck check;
    check.add(content);
    if (!check.is_whole()) {
        log_debug_print(__func__, __LINE__, level_error, "cfm", "%s is damaged and is not used", path);
        return false;
    }
    entries = parse_config_text(content).entries;
    return true;
}

// Factory values are better than none: what is malformed in them is left out.
bool read_factory_values(const char *path, Entries &entries) {
    ParsedText parsed;
    if (!file_exists(path) || !read_config_file(path, parsed)) return false;
    entries = std::move(parsed.entries);
    return true;
}

}  // namespace

bool read_config_file(const char *path, ParsedText &parsed) {
    std::string content, error;
    if (!read_whole_file(path, content, error)) {
        log_debug_print(__func__, __LINE__, level_error, "cfm", "%s cannot be read: %s", path, error.c_str());
        return false;
    }
    parsed = parse_config_text(content);
    for (const BadLine &bad : parsed.bad_lines)
        log_debug_print(__func__, __LINE__, level_error, "cfm", "%s:%zu: %s", path, bad.number, bad.reason);
    return true;
}

Entries first_values(const StoreFiles &files) {
    const struct {
        const char *path;
        bool (*read)(const char *path, Entries &entries);
    } sources[] = {
        {files.committed, read_image}, {files.before, read_image}, {files.factory_values, read_factory_values}};
    Entries entries;
    for (const auto &[path, read] : sources) {
        if (!read(path, entries)) continue;
        log_debug_print(__func__, __LINE__, level_information, "cfm", "the %s store starts with %zu values of %s",
                        files.name, entries.size(), path);
        return entries;
    }
    log_debug_print(__func__, __LINE__, level_information, "cfm", "the %s store starts empty", files.name);
    return {};
}

}  // namespace ap::host
