// config_store.cpp: the configuration store and the factory store as the firmware's programs call them. What is
// refused, a missing file and a failed system call give 0 and a line in the log, and nothing changed.

#include "applatform/config_store.h"

#include <algorithm>
#include <exception>
#include <iterator>

#include "applatform/commands.h"
#include "platform/host/working_set.h"

namespace {

using ap::host::config_store;
using ap::host::factory_store;

constexpr int level_error = 2;

// No exception leaves for a caller that may be C; running out of memory is a failure like others.
template <typename Action> int guarded(Action action) {
    try {
        return action() ? 1 : 0;
    } catch (const std::exception &error) {
        log_debug_print(__func__, __LINE__, level_error, "cfm", "%s", error.what());
        return 0;
    }
}

int get(ap::host::WorkingSet &store, const char *key, char *value) {
    if (key == nullptr || value == nullptr) return 0;
    return guarded([&] { return store.get(key, value); });
}

int set(ap::host::WorkingSet &store, const char *key, const char *value) {
    if (key == nullptr || value == nullptr) return 0;
    return guarded([&] {
        const char *reason = ap::host::refusal_of(key, value);
        if (reason == nullptr) return store.set(key, value);
        log_debug_print("SetValue", __LINE__, level_error, "cfm", "\"%.64s\" is refused: %s", key, reason);
        return false;
    });
}

bool replace_working_set(const ap::host::Entries &entries) {
    if (!entries.empty()) return config_store().replace(entries);
    log_debug_print(__func__, __LINE__, level_error, "cfm", "there are no values to replace the working set by");
    return false;
}

// An uploaded file with a malformed line is not one of ours, or damaged: the working set stays as it is.
bool upload() {
    ap::host::Entries all;
    for (const char *path : {"/webroot/default.cfg", "/webroot/default_url.cfg"}) {
        ap::host::ParsedText parsed;
        if (!ap::host::read_config_file(path, parsed) || !parsed.bad_lines.empty()) return false;
        std::ranges::move(parsed.entries, std::back_inserter(all));
    }
    return replace_working_set(all);
}

// The factory file is the device's own: what is malformed in it is left out.
bool restore() {
    ap::host::ParsedText parsed;
    if (!ap::host::read_config_file(config_store().files().factory_values, parsed)) return false;
    return replace_working_set(parsed.entries);
}

}  // namespace

int GetValue(const char *key, char *value) { return get(config_store(), key, value); }

int SetValue(const char *key, const char *value) { return set(config_store(), key, value); }

int UnSetValue(const char *key) {
    return key == nullptr ? 0 : guarded([&] { return config_store().unset(key); });
}

int CommitCfm(void) {
    return guarded([] { return config_store().commit(); });
}

int RestoreValue(void) { return guarded(restore); }

int UploadValue(void) { return guarded(upload); }

int ApmibGetValue(const char *key, char *value) { return get(factory_store(), key, value); }

int ApmibSetValue(const char *key, const char *value) { return set(factory_store(), key, value); }

int ApmibCommitCfm(void) {
    return guarded([] { return factory_store().commit(); });
}
