// scripted_store.h: a configuration store and a factory store in memory, which win over the host platform's. Include it
// in one source of a test program.
#pragma once

#include <cstring>
#include <map>
#include <string>

#include "applatform/config_store.h"

namespace test {

struct ScriptedStore {
    std::map<std::string, std::string> values;
    int writes = 0, commits = 0, commit_result = 1;

    int get(const char *key, char *value) const {
        const auto found = values.find(key);
        if (found == values.end()) return 0;
        std::memcpy(value, found->second.c_str(), found->second.size() + 1);
        return 1;
    }
    int set(const char *key, const char *value) {
        ++writes;
        values[key] = value;
        return 1;
    }
    int commit() {
        ++commits;
        return commit_result;
    }
};

inline ScriptedStore store, factory;

}  // namespace test

// NOLINTBEGIN(misc-definitions-in-headers): one source of a test program includes this
extern "C" {
int GetValue(const char *key, char *value) { return test::store.get(key, value); }
int SetValue(const char *key, const char *value) { return test::store.set(key, value); }
int UnSetValue(const char *key) { return static_cast<int>(test::store.values.erase(key)); }
int CommitCfm(void) { return test::store.commit(); }
int ApmibGetValue(const char *key, char *value) { return test::factory.get(key, value); }
int ApmibSetValue(const char *key, const char *value) { return test::factory.set(key, value); }
int ApmibCommitCfm(void) { return test::factory.commit(); }
}
// NOLINTEND(misc-definitions-in-headers)
