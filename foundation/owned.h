// owned.h: owners of descriptors, streams, heap blocks, JSON documents and locks. A release never disturbs errno.
#pragma once

#include <cerrno>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <pthread.h>
#include <unistd.h>
#include <utility>

namespace ap {

class KeepErrno {
public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

private:
    int saved_;
};

class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.take()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) reset(other.take());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int take() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old < 0) return;
        const KeepErrno keep;
        close(old);
    }

private:
    int fd_;
};

struct Free {
    void operator()(void *block) const {
        const KeepErrno keep;
        std::free(block);
    }
};
struct CloseFile {
    void operator()(FILE *file) const {
        const KeepErrno keep;
        std::fclose(file);
    }
};
struct ClosePipe {
    void operator()(FILE *pipe) const {
        const KeepErrno keep;
        pclose(pipe);
    }
};
struct DeleteJson {
    void operator()(cJSON *json) const { cJSON_Delete(json); }
};

template <typename T> using HeapPtr = std::unique_ptr<T, Free>;  // from malloc, calloc, strdup, ...
using UniqueFile = std::unique_ptr<FILE, CloseFile>;
using UniquePipe = std::unique_ptr<FILE, ClosePipe>;
using UniqueJson = std::unique_ptr<cJSON, DeleteJson>;

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() {
        const KeepErrno keep;
        pthread_mutex_unlock(&mutex_);
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

private:
    pthread_mutex_t &mutex_;
};

}  // namespace ap
