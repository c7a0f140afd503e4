// import.cpp: takes in a file of lines `key=value`, in one transaction: other processes see all of it or nothing.

#include <cstdio>

#include "platform/host/safe_file.h"
#include "tools/cfm/command.h"

namespace cfm {

int import(ap::host::WorkingSet &store, const ImportOptions &options, const std::string &path) {
    std::string content, error;
    if (!ap::host::read_whole_file(path.c_str(), content, error)) return fail(path + ": " + error);
    const ap::host::ParsedText parsed = ap::host::parse_config_text(content);
    for (const auto &bad : parsed.bad_lines) std::fprintf(stderr, "%s:%zu: %s\n", path.c_str(), bad.number, bad.reason);
    if (!parsed.bad_lines.empty() && !options.skip_malformed) return fail("nothing was imported");
    if (parsed.entries.empty()) return fail(path + " holds no values");

    const bool imported = options.replace ? store.replace(parsed.entries) : store.merge(parsed.entries);
    if (!imported) return fail("the store cannot be written; nothing was imported");
    std::printf("%zu lines imported, %zu left out\n", parsed.entries.size(), parsed.bad_lines.size());
    return exit_ok;
}

}  // namespace cfm
