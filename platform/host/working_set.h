// working_set.h: the values that all processes of the device share, in one LMDB environment.
//
// Caveats. A process keeps what it opened until it ends. A forked child opens its own; what it inherits (three
// descriptors and a mapping, until it executes another program) is left alone, because releasing it would release what
// the parent still uses. A visitor must not read or write the set that it visits.
#pragma once

#include <atomic>
#include <pthread.h>

#include "platform/host/environment.h"

namespace ap::host {

class WorkingSet {
public:
    // `index` is the set's own place among the sets of a process. Opening waits for the first access.
    constexpr WorkingSet(const StoreFiles &files, unsigned index) : files_(files), index_(index) {}

    // Copies the value with its NUL, at most longest_value + 1 bytes. On a miss `value` stays as it is.
    bool get(std::string_view key, char *value);

    // Each of these is one transaction: it happens whole or, when the result is false, not at all.
    bool set(std::string_view key, std::string_view value);
    bool unset(std::string_view key);
    bool merge(const Entries &entries);
    bool replace(const Entries &entries);

    // Shows all values as they were at one moment, in the order of their keys. False when the set cannot be read.
    bool visit(const Visitor &visitor);

    // Writes the committed copy; then everything set so far survives a power cut. On failure the old copy stands.
    bool commit();

    const StoreFiles &files() const { return files_; }

private:
    friend struct ProcessHooks;

    const Environment *opened() {
        const Environment *environment = environment_.load(std::memory_order_acquire);
        return environment != nullptr ? environment : open();
    }
    const Environment *open();
    MDB_txn *begin_read(const Environment &environment) const;
    MDB_txn *attach_reader(const Environment &environment) const;
    template <typename Action> void read(const Environment &environment, Action action);
    template <typename Change> bool write(Change change);

    const StoreFiles files_;
    const unsigned index_;
    std::atomic<Environment *> environment_ = nullptr;
    std::atomic<unsigned> writes_ = 0;
    Environment *inherited_ = nullptr;
    int open_error_ = 0;                                        // of the last attempt, so that a log line comes once
    pthread_mutex_t open_mutex_ = PTHREAD_MUTEX_INITIALIZER;    // guards opening, with the start lock
    pthread_mutex_t commit_mutex_ = PTHREAD_MUTEX_INITIALIZER;  // guards committing, with the commit lock
};

// The two sets of this process: the configuration store's and the factory store's.
WorkingSet &config_store();
WorkingSet &factory_store();

}  // namespace ap::host
