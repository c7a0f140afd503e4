// process_name.cpp: the name of this process, from the second field of "/proc/PID/stat", at most 31 characters.
//
// Readers see the kept name without a lock once it is complete; the mutex lets one thread write it.

#include "foundation/process_name.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/owned.h"

namespace ap {

namespace {

constexpr char unknown_name[] = "<null>";

pthread_mutex_t name_mutex = PTHREAD_MUTEX_INITIALIZER;
bool name_is_kept = false;
char kept_name[32];

enum class NameError { none, no_file, no_name };

using StatPath = char[sizeof "/proc//stat" + 11];

void build_stat_path(StatPath &path) { std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(getpid())); }

// Makes sure that the name is kept.
NameError keep_name(const char *path) {
    if (__atomic_load_n(&name_is_kept, __ATOMIC_ACQUIRE)) return NameError::none;
    const UniqueFile file = open_file(path);
    if (!file) return NameError::no_file;
    char name[sizeof kept_name] = {};
    if (std::fscanf(file.get(), "%*d (%31[^)]", name) != 1) return NameError::no_name;

    const MutexLock lock(name_mutex);
    if (name_is_kept) return NameError::none;
    std::memcpy(kept_name, name, sizeof kept_name);
    __atomic_store_n(&name_is_kept, true, __ATOMIC_RELEASE);
    return NameError::none;
}

}  // namespace

const char *self_name_quietly() {
    StatPath path;
    build_stat_path(path);
    return keep_name(path) == NameError::none ? kept_name : unknown_name;
}

}  // namespace ap

const char *get_self_pname(void) {
    ap::StatPath path;
    ap::build_stat_path(path);
    switch (ap::keep_name(path)) {
    case ap::NameError::none: return ap::kept_name;
    case ap::NameError::no_file:
        AP_ERROR("prod", "Failed(%d) to open file '%s', %s.", errno, path, std::strerror(errno));
        break;
    case ap::NameError::no_name: AP_ERROR("prod", "Failed to get pname from file `%s`", path); break;
    }
    return ap::unknown_name;
}
