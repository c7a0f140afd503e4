// process_lock.h: a lock that threads and processes share: a mutex of this process and, under it, a record lock on a
// file. The kernel drops the record lock when its process ends, however it ends, and a forked child never inherits it.
#pragma once

#include <pthread.h>

#include "foundation/owned.h"

namespace ap::host {

class ProcessLock {
public:
    // Waits for the lock. No two ProcessLocks of one process may name the same file with different mutexes: closing a
    // file drops all of the process's record locks on it.
    ProcessLock(pthread_mutex_t &mutex, const char *path);

    // False, with errno set, when the file cannot be had; then nothing that the lock guards may be done.
    explicit operator bool() const { return held_; }

private:
    ap::MutexLock mutex_;
    ap::UniqueFd file_;
    bool held_ = false;
};

}  // namespace ap::host
