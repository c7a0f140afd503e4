// store_plan.cpp: this program's own `GetValue` and `SetValue`, which the library calls as well. They win over the
// platform's, ask the plan first, and pass on to the platform when there is none.

#include "tools/apctl/store_plan.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <iterator>

#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "foundation/config_value.h"

namespace apctl {

namespace {

StorePlan *active_plan = nullptr;

using ReadValue = int (*)(const char *key, char *value);
using WriteValue = int (*)(const char *key, const char *value);

template <typename Function> Function platform(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int read_from_platform(const char *key, char *value) {
    static const auto read = platform<ReadValue>("GetValue");
    return read(key, value);
}
int write_to_platform(const char *key, const char *value) {
    static const auto write = platform<WriteValue>("SetValue");
    return write(key, value);
}

}  // namespace

StorePlan::StorePlan() { active_plan = this; }
StorePlan::~StorePlan() { active_plan = nullptr; }

const StorePlan::Change *StorePlan::find(const char *key) const {
    const auto found = places_.find(key);
    return found == places_.end() ? nullptr : &changes_[found->second];
}

void StorePlan::set(const char *key, const char *value) {
    const auto [place, is_new] = places_.try_emplace(key, changes_.size());
    if (!is_new) {
        changes_[place->second].after = value;
        return;
    }
    char before[ap::config_value_size] = {};
    const bool existed = read_from_platform(key, before) != 0;
    changes_.push_back({key, before, value, existed});
}

std::vector<StorePlan::Change> StorePlan::changes() const {
    std::vector<Change> real;
    std::ranges::copy_if(changes_, std::back_inserter(real), [](const Change &c) { return c.before != c.after; });
    return real;
}

bool apply(const std::vector<StorePlan::Change> &changes) {
    size_t written = 0;
    while (written < changes.size() &&
           __wrap_SetValue(changes[written].key.c_str(), changes[written].after.c_str()) != 0)
        ++written;
    if (written == changes.size() && prod_cfm_commit() != 0) return true;
    while (written > 0) {
        const StorePlan::Change &change = changes[--written];
        change.existed ? SetValue(change.key.c_str(), change.before.c_str()) : UnSetValue(change.key.c_str());
    }
    return false;
}

}  // namespace apctl

int GetValue(const char *key, char *value) {
    const apctl::StorePlan::Change *planned = apctl::active_plan == nullptr ? nullptr : apctl::active_plan->find(key);
    if (planned == nullptr) return apctl::read_from_platform(key, value);
    std::memcpy(value, planned->after.c_str(), planned->after.size() + 1);
    return 1;
}

int SetValue(const char *key, const char *value) {
    if (apctl::active_plan == nullptr) return apctl::write_to_platform(key, value);
    apctl::active_plan->set(key, value);
    return 1;
}
