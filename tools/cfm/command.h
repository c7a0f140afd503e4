// command.h: what the verbs of cfm share.
#pragma once

#include <string>
#include <vector>

#include "platform/host/working_set.h"

namespace cfm {

using Words = std::vector<std::string>;  // what stands behind the verb

enum Exit : int { exit_ok = 0, exit_failed = 1, exit_usage = 2 };

// Prints "cfm: MESSAGE" on standard error; returns exit_failed.
int fail(const std::string &message);

enum class Kind { settings, url_settings };  // URL settings are the keys that begin with "url."

// Prints the values of that kind, or writes them to the file that the words name; as JSON with `json`.
int show(ap::host::WorkingSet &store, Kind kind, bool json, const Words &words);

struct ImportOptions {
    bool skip_malformed;  // import the other lines; otherwise one malformed line refuses the whole file
    bool replace;         // values that the file does not name are removed
};
int import(ap::host::WorkingSet &store, const ImportOptions &options, const std::string &path);

}  // namespace cfm
