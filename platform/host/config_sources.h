// config_sources.h: where a store's values come from and where they are kept.
#pragma once

#include "platform/host/config_text.h"

namespace ap::host {

struct StoreFiles {
    const char *name;            // in log lines
    const char *working_set;     // the LMDB file; its own lock file has "-lock" behind the name
    const char *start_lock;      // held while a process opens the working set and fills an empty one
    const char *commit_lock;     // held while a committed copy is written
    const char *committed;       // the committed copy
    const char *before;          // the one before it
    const char *next;            // the one that is being written
    const char *factory_values;  // lines `key=value`
};

// The values that a fresh working set starts from: the committed copy, else the one before it, else the factory values,
// else none. Says which in the log.
Entries first_values(const StoreFiles &files);

// Reads a file of lines `key=value`. False, after a log line, when it cannot be read. Malformed lines are logged with
// their numbers.
bool read_config_file(const char *path, ParsedText &parsed);

}  // namespace ap::host
