// cast_filter.cpp: "/dev/castfilter", the character device of the multicast and broadcast filter.
//
// The filter's state is the file "/var/run/cast_filter", readable for people: one line "enabled VALUE cleared TIMES".
// Like the module's own memory it lasts until the device restarts. The descriptor is one of that file, so that the
// kernel's locks on it keep processes apart. Requests 17 to 20 are answered, every other with ENOTTY.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "foundation/file_io.h"
#include "platform/host/interpose.h"

namespace ap::host {

namespace {

constexpr char state_path[] = "/var/run/cast_filter";

enum Request : unsigned long { enable = 17, disable = 18, set_value = 19, clear = 20 };

struct FilterState {
    int enabled = 0, value = 0;
    unsigned int cleared = 0;
};

class FileLock {
public:
    explicit FileLock(int fd) : fd_(fd) {
        retry_interrupted([&] { return flock(fd_, LOCK_EX); });
    }
    ~FileLock() {
        const KeepErrno keep;
        flock(fd_, LOCK_UN);
    }
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

private:
    int fd_;
};

// What cannot be read is a filter that has just been made.
FilterState read_state(int fd) {
    char text[96] = {};
    FilterState state;
    if (pread(fd, text, sizeof text - 1, 0) <= 0) return {};
    // NOLINTNEXTLINE(cert-err34-c): our own line, and the fields are counted
    if (std::sscanf(text, "enabled %d value %d cleared %u", &state.enabled, &state.value, &state.cleared) != 3)
        return {};
    return state;
}

int write_state(int fd, const FilterState &state) {
    char text[96];
    const int length =
        std::snprintf(text, sizeof text, "enabled %d value %d cleared %u\n", state.enabled, state.value, state.cleared);
    if (ftruncate(fd, 0) != 0) return -1;
    return pwrite(fd, text, static_cast<size_t>(length), 0) == length ? 0 : -1;
}

int control_filter(int fd, uintptr_t, unsigned long request, void *argument) {
    if (request < Request::enable || request > Request::clear) return errno = ENOTTY, -1;
    if (request != Request::clear && argument == nullptr) return errno = EFAULT, -1;
    const FileLock lock(fd);
    FilterState state = read_state(fd);
    int number = 0;
    if (request != Request::clear) std::memcpy(&number, argument, sizeof number);
    switch (request) {
    case Request::enable:
    case Request::disable: state.enabled = number; break;
    case Request::set_value: state.value = number; break;
    default: state.value = 0, ++state.cleared;
    }
    return write_state(fd, state);
}

constexpr StandIn filter_stand_in = {.control = control_filter};

const PathClaim claim("/dev/castfilter", [](int flags) {
    return adopt_or_close(libc::open(state_path, O_RDWR | O_CREAT | (flags & O_CLOEXEC), 0644), filter_stand_in);
});

}  // namespace

}  // namespace ap::host
