// store_plan.h: a change of the configuration tried out. While a plan lives, this program's writes are collected
// instead of stored, and its reads see them; so the library's own code tells what it would do.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace apctl {

class StorePlan {
public:
    struct Change {
        std::string key, before, after;
        bool existed;
    };

    StorePlan();
    ~StorePlan();
    StorePlan(const StorePlan &) = delete;
    StorePlan &operator=(const StorePlan &) = delete;

    void set(const char *key, const char *value);
    const Change *find(const char *key) const;

    // In the order in which the keys were first written; without those that end as they began.
    std::vector<Change> changes() const;

private:
    std::vector<Change> changes_;
    std::map<std::string, size_t> places_;  // of the keys among the changes
};

// Writes all changes and commits them; false, and the working set as it was, when a write or the commit fails.
bool apply(const std::vector<StorePlan::Change> &changes);

}  // namespace apctl
