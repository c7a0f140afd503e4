// interpose.h: stand-ins for kernel devices that a PC lacks. libapplatform.so is loaded before the C library and
// answers its calls (open, close, read, write, lseek, ioctl, socket, ...) for the stand-ins' own descriptors; every
// other call goes straight on to the C library.
//
// A stand-in's descriptor is a real one: the stand-in opens something of the kernel's behind it (a file, a socket) and
// adopts it, so that numbers, positions, polling and close-on-exec are the kernel's. What comes out of dup is not
// adopted.
//
//   static const PathClaim claim("/dev/castfilter", [](int flags) { ...; return adopt(fd, cast_filter, 0) ? fd : -1;
//   });
//
// All of it may be called from any thread. A descriptor must not be closed while another thread uses it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/socket.h>
#include <sys/types.h>

namespace ap::host {

// What a stand-in answers itself; a null entry leaves that call to the C library. `note` is what adopt was given.
struct StandIn {
    ssize_t (*read)(int fd, uintptr_t note, void *buffer, size_t size) = nullptr;
    ssize_t (*write)(int fd, uintptr_t note, const void *data, size_t size) = nullptr;
    off64_t (*seek)(int fd, uintptr_t note, off64_t offset, int whence) = nullptr;
    int (*control)(int fd, uintptr_t note, unsigned long request, void *argument) = nullptr;
    int (*bind)(int fd, uintptr_t note, const sockaddr *address, socklen_t length) = nullptr;
    ssize_t (*send)(int fd, uintptr_t note, const msghdr *message, int flags) = nullptr;
    ssize_t (*receive)(int fd, uintptr_t note, msghdr *message, int flags) = nullptr;
    void (*closing)(int fd, uintptr_t note) = nullptr;  // before the descriptor is closed
};

inline constexpr int most_adopted = 1024;  // descriptors at or above this number cannot be adopted

// Makes an open descriptor a stand-in's until it is closed; false, with errno set, when its number is too high.
// `stand_in` must live as long as the process.
bool adopt(int fd, const StandIn &stand_in, uintptr_t note);

// The descriptor, adopted; -1, with errno set, when it is none, or when it could not be adopted and was closed.
int adopt_or_close(int fd, const StandIn &stand_in);

// Says who opens a path, or makes the sockets of a protocol. Define one as a static object: it lives as long as the
// process. The function returns a descriptor that it adopted, or -1 with errno set.
class PathClaim {
public:
    PathClaim(const char *path, int (*open_it)(int flags));
};
class SocketClaim {
public:
    SocketClaim(int domain, int protocol, int (*make)(int type));
};

// The C library's own calls, for what a stand-in does behind its descriptors.
namespace libc {

int open(const char *path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void *buffer, size_t size);
ssize_t write(int fd, const void *data, size_t size);
off64_t lseek(int fd, off64_t offset, int whence);
int ioctl(int fd, unsigned long request, void *argument);
int socket(int domain, int type, int protocol);
int bind(int fd, const sockaddr *address, socklen_t length);
ssize_t sendmsg(int fd, const msghdr *message, int flags);
ssize_t recvmsg(int fd, msghdr *message, int flags);

}  // namespace libc

}  // namespace ap::host
