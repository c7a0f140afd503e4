// environment.h: opens the LMDB environment of a working set, and the one way to change it.
#pragma once

#include <lmdb.h>
#include <memory>
#include <string_view>

#include "platform/host/config_sources.h"

namespace ap::host {

inline constexpr size_t working_set_limit = size_t{64} << 20;  // of the file, and of the address space that it takes
inline constexpr unsigned most_readers = 1000;

// Environments are never closed, since other threads may be reading.
struct Environment {
    MDB_env *handle = nullptr;
    MDB_dbi values = 0;
    MDB_txn *inherited_reader = nullptr;  // in a forked child: what the thread that forked read with
    Environment *inherited = nullptr;     // and what was open before this one
};

// Opens the files of a working set, and fills the set from `first_values` when it is fresh. The caller holds the start
// lock. The result is LMDB's; `environment` is touched only when it is 0.
int open_environment(const StoreFiles &files, Environment *&environment);

inline MDB_val bytes_of(std::string_view text) { return {text.size(), const_cast<char *>(text.data())}; }
inline std::string_view text_of(const MDB_val &bytes) {
    return {static_cast<const char *>(bytes.mv_data), bytes.mv_size};
}

// Keys that begin with "=" are the store's own; no configuration key does.
inline bool is_own_key(std::string_view key) { return key.starts_with('='); }

struct AbortTransaction {
    void operator()(MDB_txn *transaction) const { mdb_txn_abort(transaction); }
};
using OwnedTransaction = std::unique_ptr<MDB_txn, AbortTransaction>;

// Runs `change(transaction)` and commits, or aborts when it gives an error. The result is LMDB's.
template <typename Change> int write_once(const Environment &environment, Change change) {
    MDB_txn *begun = nullptr;
    if (const int error = mdb_txn_begin(environment.handle, nullptr, 0, &begun)) return error;
    OwnedTransaction transaction(begun);
    if (const int error = change(begun)) return error;
    return mdb_txn_commit(transaction.release());
}

int put_value(MDB_txn *transaction, MDB_dbi values, std::string_view key, std::string_view value);
int put_all(MDB_txn *transaction, MDB_dbi values, const Entries &entries);

// Marks the set as filled, so that no process fills it again. MDB_KEYEXIST when it is already.
int put_filled_mark(MDB_txn *transaction, MDB_dbi values);

// Frees the places of readers that were killed, and with them the pages that those held back. True when there were
// some.
bool clear_dead_readers(const Environment &environment);

// True when another thread or process is in the middle of a read, and thereby holds pages back for now.
bool has_reader_at_work(const Environment &environment);

void log_store_error(const char *path, int error);

}  // namespace ap::host
