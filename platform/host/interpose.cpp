// interpose.cpp: the C library's calls under their own names, and the two small tables that decide who answers them.
//
// The functions here are called by everything in the process, from its first moment on and from the sanitizers' start:
// they need no constructor to have run, and for a descriptor that nobody adopted they cost one load. An adopted number
// remembers which file stands behind it, so that a number that was given out again behind our back (dup2, close_range)
// is not mistaken for the stand-in's.

#include "platform/host/interpose.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/owned.h"

namespace ap::host {

namespace {

// A function of the C library, looked up at its first call.
template <typename Function> class Next {
public:
    explicit constexpr Next(const char *name) : name_(name) {}

    template <typename... Arguments> auto operator()(Arguments... arguments) {
        Function function = found_.load(std::memory_order_relaxed);
        if (function == nullptr) found_.store(function = find(), std::memory_order_relaxed);
        return function(arguments...);
    }

private:
    Function find() const {
        void *symbol = dlsym(RTLD_NEXT, name_);
        if (symbol == nullptr) symbol = dlsym(dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD), name_);
        if (symbol == nullptr) std::abort();
        return reinterpret_cast<Function>(symbol);
    }

    const char *name_;
    std::atomic<Function> found_{nullptr};
};

constinit Next<int (*)(const char *, int, ...)> next_open{"open64"};
constinit Next<int (*)(int)> next_close{"close"};
constinit Next<ssize_t (*)(int, void *, size_t)> next_read{"read"};
constinit Next<ssize_t (*)(int, const void *, size_t)> next_write{"write"};
constinit Next<off64_t (*)(int, off64_t, int)> next_lseek{"lseek64"};
constinit Next<int (*)(int, unsigned long, ...)> next_ioctl{"ioctl"};
constinit Next<int (*)(int, int, int)> next_socket{"socket"};
constinit Next<int (*)(int, const sockaddr *, socklen_t)> next_bind{"bind"};
constinit Next<ssize_t (*)(int, const msghdr *, int)> next_sendmsg{"sendmsg"};
constinit Next<ssize_t (*)(int, msghdr *, int)> next_recvmsg{"recvmsg"};
constinit Next<ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t)> next_sendto{"sendto"};
constinit Next<ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *)> next_recvfrom{"recvfrom"};

struct Adopted {
    std::atomic<const StandIn *> stand_in{nullptr};
    uintptr_t note = 0;
    dev_t device = 0;
    ino_t file = 0;
};
constinit Adopted adopted[most_adopted];

struct ClaimedPath {
    const char *path;
    int (*open)(int flags);
};
struct ClaimedSocket {
    int domain, protocol;
    int (*make)(int type);
};

// Filled while the library is loaded, only read afterwards.
template <typename Claim> struct Claims {
    Claim entries[8];
    std::atomic<size_t> count;

    void add(const Claim &claim) {
        const size_t index = count.load(std::memory_order_relaxed);
        if (index >= std::size(entries)) std::abort();
        entries[index] = claim;
        count.store(index + 1, std::memory_order_release);
    }
    template <typename Matches> const Claim *find(Matches matches) const {
        const size_t known = count.load(std::memory_order_acquire);
        for (size_t i = 0; i < known; ++i) {
            if (matches(entries[i])) return &entries[i];
        }
        return nullptr;
    }
};
constinit Claims<ClaimedPath> claimed_paths{};
constinit Claims<ClaimedSocket> claimed_sockets{};

bool stands_behind(int fd, const Adopted &entry) {
    struct stat status;
    return fstat(fd, &status) == 0 && status.st_dev == entry.device && status.st_ino == entry.file;
}

// The entry of an adopted descriptor, or null.
Adopted *adopted_entry(int fd) {
    if (fd < 0 || fd >= most_adopted) return nullptr;
    Adopted &entry = adopted[fd];
    if (entry.stand_in.load(std::memory_order_acquire) == nullptr) return nullptr;
    if (stands_behind(fd, entry)) return &entry;
    entry.stand_in.store(nullptr, std::memory_order_release);
    return nullptr;
}

// The stand-in's answer to one kind of call, or null when the C library is to answer it.
template <typename Member> auto answer_of(int fd, Member member, uintptr_t &note) {
    const Adopted *entry = adopted_entry(fd);
    if (entry == nullptr) return decltype(StandIn{}.*member){nullptr};
    note = entry->note;
    return entry->stand_in.load(std::memory_order_relaxed)->*member;
}

// Only then has a call of open a third argument.
bool makes_a_file(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int open_path(const char *path, int flags, mode_t mode) {
    const auto *claim = path == nullptr ? nullptr : claimed_paths.find([&](const ClaimedPath &candidate) {
        return std::strcmp(candidate.path, path) == 0;
    });
    return claim != nullptr ? claim->open(flags) : next_open(path, flags, mode);
}

off64_t seek(int fd, off64_t offset, int whence) {
    uintptr_t note = 0;
    const auto answer = answer_of(fd, &StandIn::seek, note);
    return answer != nullptr ? answer(fd, note, offset, whence) : next_lseek(fd, offset, whence);
}

msghdr message_of(iovec &piece, void *address, socklen_t length) {
    msghdr message = {};
    message.msg_name = address;
    message.msg_namelen = length;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    return message;
}

}  // namespace

bool adopt(int fd, const StandIn &stand_in, uintptr_t note) {
    struct stat status;
    if (fd < 0 || fd >= most_adopted) return errno = EMFILE, false;
    if (fstat(fd, &status) != 0) return false;
    Adopted &entry = adopted[fd];
    entry.note = note;
    entry.device = status.st_dev;
    entry.file = status.st_ino;
    entry.stand_in.store(&stand_in, std::memory_order_release);
    return true;
}

int adopt_or_close(int fd, const StandIn &stand_in) {
    if (fd < 0 || adopt(fd, stand_in, 0)) return fd;
    const KeepErrno keep;
    libc::close(fd);
    return -1;
}

PathClaim::PathClaim(const char *path, int (*open_it)(int flags)) { claimed_paths.add({path, open_it}); }
SocketClaim::SocketClaim(int domain, int protocol, int (*make)(int type)) {
    claimed_sockets.add({domain, protocol, make});
}

namespace libc {

int open(const char *path, int flags, mode_t mode) { return next_open(path, flags, mode); }
int close(int fd) { return next_close(fd); }
ssize_t read(int fd, void *buffer, size_t size) { return next_read(fd, buffer, size); }
ssize_t write(int fd, const void *data, size_t size) { return next_write(fd, data, size); }
off64_t lseek(int fd, off64_t offset, int whence) { return next_lseek(fd, offset, whence); }
int ioctl(int fd, unsigned long request, void *argument) { return next_ioctl(fd, request, argument); }
int socket(int domain, int type, int protocol) { return next_socket(domain, type, protocol); }
int bind(int fd, const sockaddr *address, socklen_t length) { return next_bind(fd, address, length); }
ssize_t sendmsg(int fd, const msghdr *message, int flags) { return next_sendmsg(fd, message, flags); }
ssize_t recvmsg(int fd, msghdr *message, int flags) { return next_recvmsg(fd, message, flags); }

}  // namespace libc

}  // namespace ap::host

using ap::host::StandIn;

// The names that the C library's headers declare are redirected by _FILE_OFFSET_BITS and carry attributes of their own,
// so the replacements have other names here and take the real ones as symbols.
extern "C" {

int interposed_open(const char *path, int flags, ...) __asm__("open");
int interposed_open64(const char *path, int flags, ...) __asm__("open64");
int interposed_close(int fd) __asm__("close");
ssize_t interposed_read(int fd, void *buffer, size_t size) __asm__("read");
ssize_t interposed_write(int fd, const void *data, size_t size) __asm__("write");
long interposed_lseek(int fd, long offset, int whence) __asm__("lseek");
off64_t interposed_lseek64(int fd, off64_t offset, int whence) __asm__("lseek64");
int interposed_ioctl(int fd, unsigned long request, ...) __asm__("ioctl");
int interposed_socket(int domain, int type, int protocol) __asm__("socket");
int interposed_bind(int fd, const sockaddr *address, socklen_t length) __asm__("bind");
ssize_t interposed_sendmsg(int fd, const msghdr *message, int flags) __asm__("sendmsg");
ssize_t interposed_recvmsg(int fd, msghdr *message, int flags) __asm__("recvmsg");
ssize_t interposed_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                          socklen_t length) __asm__("sendto");
ssize_t interposed_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                            socklen_t *length) __asm__("recvfrom");
ssize_t interposed_send(int fd, const void *data, size_t size, int flags) __asm__("send");
ssize_t interposed_recv(int fd, void *buffer, size_t size, int flags) __asm__("recv");

int interposed_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ap::host::makes_a_file(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return ap::host::open_path(path, flags, mode);
}

int interposed_open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ap::host::makes_a_file(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return ap::host::open_path(path, flags, mode);
}

int interposed_close(int fd) {
    if (auto *entry = ap::host::adopted_entry(fd)) {
        const StandIn *stand_in = entry->stand_in.exchange(nullptr);
        if (stand_in != nullptr && stand_in->closing != nullptr) stand_in->closing(fd, entry->note);
    }
    return ap::host::next_close(fd);
}

ssize_t interposed_read(int fd, void *buffer, size_t size) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::read, note);
    return answer != nullptr ? answer(fd, note, buffer, size) : ap::host::next_read(fd, buffer, size);
}

ssize_t interposed_write(int fd, const void *data, size_t size) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::write, note);
    return answer != nullptr ? answer(fd, note, data, size) : ap::host::next_write(fd, data, size);
}

long interposed_lseek(int fd, long offset, int whence) {
    const off64_t position = ap::host::seek(fd, offset, whence);
    const long result = static_cast<long>(position);
    return result == position ? result : (errno = EOVERFLOW, -1);
}

off64_t interposed_lseek64(int fd, off64_t offset, int whence) { return ap::host::seek(fd, offset, whence); }

int interposed_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::control, note);
    return answer != nullptr ? answer(fd, note, request, argument) : ap::host::next_ioctl(fd, request, argument);
}

int interposed_socket(int domain, int type, int protocol) {
    const auto *claim = ap::host::claimed_sockets.find(
        [&](const auto &candidate) { return candidate.domain == domain && candidate.protocol == protocol; });
    return claim != nullptr ? claim->make(type) : ap::host::next_socket(domain, type, protocol);
}

int interposed_bind(int fd, const sockaddr *address, socklen_t length) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::bind, note);
    return answer != nullptr ? answer(fd, note, address, length) : ap::host::next_bind(fd, address, length);
}

ssize_t interposed_sendmsg(int fd, const msghdr *message, int flags) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::send, note);
    return answer != nullptr ? answer(fd, note, message, flags) : ap::host::next_sendmsg(fd, message, flags);
}

ssize_t interposed_recvmsg(int fd, msghdr *message, int flags) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::receive, note);
    return answer != nullptr ? answer(fd, note, message, flags) : ap::host::next_recvmsg(fd, message, flags);
}

ssize_t interposed_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t length) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::send, note);
    if (answer == nullptr) return ap::host::next_sendto(fd, data, size, flags, address, length);
    iovec piece = {const_cast<void *>(data), size};
    const msghdr message = ap::host::message_of(piece, const_cast<sockaddr *>(address), length);
    return answer(fd, note, &message, flags);
}

ssize_t interposed_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *address, socklen_t *length) {
    uintptr_t note = 0;
    const auto answer = ap::host::answer_of(fd, &StandIn::receive, note);
    if (answer == nullptr) return ap::host::next_recvfrom(fd, buffer, size, flags, address, length);
    iovec piece = {buffer, size};
    msghdr message = ap::host::message_of(piece, address, length != nullptr ? *length : 0);
    const ssize_t received = answer(fd, note, &message, flags);
    if (received >= 0 && length != nullptr) *length = message.msg_namelen;
    return received;
}

ssize_t interposed_send(int fd, const void *data, size_t size, int flags) {
    return interposed_sendto(fd, data, size, flags, nullptr, 0);
}

ssize_t interposed_recv(int fd, void *buffer, size_t size, int flags) {
    return interposed_recvfrom(fd, buffer, size, flags, nullptr, nullptr);
}

}  // extern "C"
