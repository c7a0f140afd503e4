// working_set.cpp: reads and writes of the working set, and what happens to it when a process forks or a thread ends.
//
// Readers never block and make no system call: each thread keeps one read transaction a set, which it renews and resets
// around a read, so that a thread that does nothing holds no old pages back. Writers take turns through LMDB's robust
// mutex, which outlives a killed owner. The set lies in memory (/var), so nothing is synced here.

#include "platform/host/working_set.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/host/process_lock.h"

namespace ap::host {

namespace {

constexpr unsigned set_count = 2;

constinit WorkingSet sets[set_count] = {
    WorkingSet({"configuration", "/var/run/cfm.db", "/var/run/cfm.start", "/var/run/cfm.commit", "/cfg/cfm.cfg",
                "/cfg/cfm.cfg.before", "/cfg/cfm.cfg.next", "/webroot_ro/default.cfg"},
               0),
    WorkingSet({"factory", "/var/run/apmib.db", "/var/run/apmib.start", "/var/run/apmib.commit", "/cfg/apmib.cfg",
                "/cfg/apmib.cfg.before", "/cfg/apmib.cfg.next", "/webroot_ro/factory.cfg"},
               1),
};

// The thread's read transactions, reset between two reads; null before the first.
constinit thread_local MDB_txn *readers[set_count] = {};

pthread_key_t thread_end_key;

struct ResetTransaction {
    void operator()(MDB_txn *transaction) const { mdb_txn_reset(transaction); }
};

// True when the value was there.
bool copy_value(MDB_txn *transaction, MDB_dbi values, std::string_view key, char *value) {
    MDB_val name = bytes_of(key), found;
    if (mdb_get(transaction, values, &name, &found) != 0) return false;
    const size_t length = std::min(found.mv_size, longest_value);
    std::memcpy(value, found.mv_data, length);
    value[length] = '\0';
    return true;
}

int visit_all(MDB_txn *transaction, MDB_dbi values, const Visitor &visitor) {
    MDB_cursor *opened = nullptr;
    if (const int error = mdb_cursor_open(transaction, values, &opened)) return error;
    const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> cursor(opened, mdb_cursor_close);
    MDB_val key, value;
    int error;
    while ((error = mdb_cursor_get(opened, &key, &value, MDB_NEXT)) == 0)
        if (!is_own_key(text_of(key))) visitor(text_of(key), text_of(value));
    return error == MDB_NOTFOUND ? 0 : error;
}

constexpr unsigned writes_between_checks = 256;  // for killed readers, so that the file does not grow until it is full
constexpr int most_retries = 200;                // of a write that has no room, one millisecond apart
constexpr useconds_t retry_us = 1000;

bool is_out_of_room(int error) { return error == MDB_MAP_FULL || error == ENOSPC; }

// The pages of an old state serve again when nobody reads it: its reader was killed, or will be done in a moment.
bool can_get_room(const Environment &environment) {
    if (clear_dead_readers(environment)) return true;
    if (!has_reader_at_work(environment)) return false;
    usleep(retry_us);
    return true;
}

}  // namespace

WorkingSet &config_store() { return sets[0]; }
WorkingSet &factory_store() { return sets[1]; }

// Around a fork no thread holds the mutexes, and the child starts without an environment: what it inherits is kept
// where it can be found, and never released. A thread that ends gives its places in the tables of readers back.
struct ProcessHooks {
    static void before_fork() {
        for (WorkingSet &set : sets) {
            pthread_mutex_lock(&set.commit_mutex_);
            pthread_mutex_lock(&set.open_mutex_);
        }
    }
    static void unlock_all() {
        for (WorkingSet &set : sets) {
            pthread_mutex_unlock(&set.open_mutex_);
            pthread_mutex_unlock(&set.commit_mutex_);
        }
    }
    static void in_child() {
        for (WorkingSet &set : sets) {
            MDB_txn *reader = std::exchange(readers[set.index_], nullptr);
            Environment *environment = set.environment_.exchange(nullptr);
            if (environment == nullptr) continue;
            environment->inherited_reader = reader;
            environment->inherited = std::exchange(set.inherited_, environment);
        }
        unlock_all();
    }
    static void at_thread_end(void *) {
        for (const WorkingSet &set : sets) {
            MDB_txn *reader = std::exchange(readers[set.index_], nullptr);
            if (reader != nullptr) mdb_txn_abort(reader);
        }
    }
    // Before any thread can fork or open a set.
    [[gnu::constructor]] static void install() {
        pthread_atfork(before_fork, unlock_all, in_child);
        pthread_key_create(&thread_end_key, at_thread_end);
    }
};

const Environment *WorkingSet::open() {
    mkdir("/var/run", 0755);
    const ProcessLock start(open_mutex_, files_.start_lock);
    Environment *environment = environment_.load(std::memory_order_relaxed);
    if (environment != nullptr) return environment;
    const int error = start ? open_environment(files_, environment) : errno;
    if (error != 0 && error != open_error_) log_store_error(files_.working_set, error);
    open_error_ = error;
    environment_.store(environment, std::memory_order_release);
    return environment;
}

// The thread's own transaction, renewed; null when there is no room for one more reader.
inline MDB_txn *WorkingSet::begin_read(const Environment &environment) const {
    MDB_txn *transaction = readers[index_];
    if (transaction == nullptr) [[unlikely]]
        return attach_reader(environment);
    return mdb_txn_renew(transaction) == 0 ? transaction : nullptr;
}

MDB_txn *WorkingSet::attach_reader(const Environment &environment) const {
    MDB_txn *transaction = nullptr;
    const auto begin = [&] { return mdb_txn_begin(environment.handle, nullptr, MDB_RDONLY, &transaction); };
    int error = begin();
    if (error == MDB_READERS_FULL && clear_dead_readers(environment)) error = begin();
    if (error != 0) return nullptr;
    pthread_setspecific(thread_end_key, readers);
    return readers[index_] = transaction;
}

template <typename Action> inline void WorkingSet::read(const Environment &environment, Action action) {
    if (MDB_txn *transaction = begin_read(environment)) [[likely]] {
        const std::unique_ptr<MDB_txn, ResetTransaction> reset_at_end(transaction);
        action(transaction);
        return;
    }
    // With the table of readers full of living ones, the read takes a writer's turn and changes nothing.
    write_once(environment, [&](MDB_txn *transaction) {
        action(transaction);
        return ECANCELED;
    });
}

bool WorkingSet::get(std::string_view key, char *value) {
    const Environment *environment = opened();
    if (environment == nullptr || key.empty() || is_own_key(key)) return false;
    bool found = false;
    read(*environment, [&](MDB_txn *transaction) { found = copy_value(transaction, environment->values, key, value); });
    return found;
}

bool WorkingSet::visit(const Visitor &visitor) {
    const Environment *environment = opened();
    if (environment == nullptr) return false;
    int error = MDB_BAD_TXN;
    read(*environment, [&](MDB_txn *transaction) { error = visit_all(transaction, environment->values, visitor); });
    if (error != 0) log_store_error(files_.working_set, error);
    return error == 0;
}

template <typename Change> bool WorkingSet::write(Change change) {
    const Environment *environment = opened();
    if (environment == nullptr) return false;
    const auto change_values = [&](MDB_txn *transaction) { return change(transaction, environment->values); };
    if (writes_.fetch_add(1, std::memory_order_relaxed) % writes_between_checks == 0) clear_dead_readers(*environment);
    int error = write_once(*environment, change_values);
    for (int left = most_retries; left > 0 && is_out_of_room(error) && can_get_room(*environment); --left)
        error = write_once(*environment, change_values);
    if (error != 0 && error != MDB_NOTFOUND) log_store_error(files_.working_set, error);
    return error == 0;
}

bool WorkingSet::set(std::string_view key, std::string_view value) {
    return write([=](MDB_txn *transaction, MDB_dbi values) { return put_value(transaction, values, key, value); });
}

bool WorkingSet::unset(std::string_view key) {
    if (key.empty() || key.size() > longest_key || is_own_key(key)) return false;
    return write([=](MDB_txn *transaction, MDB_dbi values) {
        MDB_val name = bytes_of(key);
        return mdb_del(transaction, values, &name, nullptr);
    });
}

bool WorkingSet::merge(const Entries &entries) {
    return write([&](MDB_txn *transaction, MDB_dbi values) { return put_all(transaction, values, entries); });
}

bool WorkingSet::replace(const Entries &entries) {
    return write([&](MDB_txn *transaction, MDB_dbi values) {
        if (const int error = mdb_drop(transaction, values, 0)) return error;
        if (const int error = put_filled_mark(transaction, values)) return error;
        return put_all(transaction, values, entries);
    });
}

}  // namespace ap::host
