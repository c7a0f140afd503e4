// records.h: what the files of the message server share: flags, lists, records, counters, log lines.
//
// The lists belong to the thread that runs the loop and are unlocked. The counters are relaxed 32-bit atomics, because
// ms_notify and ms_dialog touch them from any thread. Byte counts are fixed figures, the same on every processor.
#pragma once

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <sys/un.h>
#include <utility>

#include "apsupport/msgserver.h"

namespace ap {

enum : unsigned {
    type_tcp = 1,
    type_udp = 2,
    type_unix = 4,
    type_netlink = 8,
    role_server = 16,
    role_client = 32,
};
inline bool has_all(unsigned flags, unsigned wanted) { return (flags & wanted) == wanted; }
// The first flag of `order` that is set, or 0: which transport wins when flags name several is part of each operation.
inline unsigned first_of(unsigned flags, std::initializer_list<unsigned> order) {
    for (const unsigned flag : order)
        if ((flags & flag) != 0) return flag;
    return 0;
}

static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_un) == 2 + 108 && sizeof(sockaddr_nl) == 12);

enum : int {
    max_message = 16384,
    netlink_header_size = 4 + 2 + 2 + 4 + 4,
    max_frame = netlink_header_size + max_message
};

template <typename T> struct Hook { T *next, *previous; };

// A doubly linked list through a hook in its records; all zeros is the empty list. A removed record's links read 1
// and 2.
template <typename T, Hook<T> T::*hook> struct List {
    T *first, *last;

    static T *after(const T &entry) { return (entry.*hook).next; }
    void append(T &entry) { insert_before(nullptr, entry); }
    void insert_before(T *successor, T &entry) {  // null: at the end
        T *const predecessor = successor != nullptr ? (successor->*hook).previous : last;
        entry.*hook = {successor, predecessor};
        (predecessor != nullptr ? (predecessor->*hook).next : first) = &entry;
        (successor != nullptr ? (successor->*hook).previous : last) = &entry;
    }
    void remove(T &entry) {
        const auto [next, previous] = entry.*hook;
        (previous != nullptr ? (previous->*hook).next : first) = next;
        (next != nullptr ? (next->*hook).previous : last) = previous;
        entry.*hook = {std::bit_cast<T *>(uintptr_t{1}), std::bit_cast<T *>(uintptr_t{2})};
    }
};

struct ms_sock {
    int32_t fd;
    uint32_t flags;  // transport and role
    ms_session *session;
    Hook<ms_sock> hook;
    ms_sock *next_in_slot;  // behind it in its slot of the descriptor index, newer
};

struct ms_timer {
    Hook<ms_timer> hook;
    uint32_t expiry_seconds, expiry_subseconds;  // in the units of ms_get_uptime, without carry
    void *argument;                              // a heap copy
    int length;
    ms_timer_callback callback;
    uint32_t serial;  // grows with each timer that is added
};

}  // namespace ap

struct ms_session {
    ap::ms_sock *sock;
    ms_session *server;                                  // null for a server
    ap::Hook<ms_session> peer_hook;                      // in its server's peers
    ap::List<ms_session, &ms_session::peer_hook> peers;  // of a server
    sockaddr *address;                                   // owned, may be null
    int address_length;                                  // 16, 110, 12, or 0 without an address
    ms_handler handler;
    ap::Hook<ms_session> server_hook;  // in the list of servers
};

namespace ap {

// The lists: every socket record from the oldest on, the servers, and the timers by expiry.
extern List<ms_sock, &ms_sock::hook> socks;
extern List<ms_session, &ms_session::server_hook> servers;
extern List<ms_timer, &ms_timer::hook> timers;

struct Counters {
    int32_t open_fds, bytes, socks, sessions;
};
extern Counters counters;
inline void count(int32_t &counter, int change) { __atomic_fetch_add(&counter, change, __ATOMIC_RELAXED); }
inline int counted(const int32_t &counter) { return __atomic_load_n(&counter, __ATOMIC_RELAXED); }

// Prints on standard output and leaves errno as it was, for the perror that may follow.
void print_log(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A socket address on the heap, counted while it lives. `take` hands the block over, which stays counted.
class OwnedAddress {
public:
    OwnedAddress() = default;
    explicit OwnedAddress(sockaddr *record, int length) : record_(record), length_(length) {}
    static OwnedAddress allocate(int length);  // zeros; empty when there is no memory
    ~OwnedAddress();
    OwnedAddress(OwnedAddress &&other) noexcept
        : record_(std::exchange(other.record_, nullptr)), length_(std::exchange(other.length_, 0)) {}
    OwnedAddress(const OwnedAddress &) = delete;
    OwnedAddress &operator=(const OwnedAddress &) = delete;

    explicit operator bool() const { return record_ != nullptr; }
    sockaddr *get() const { return record_; }
    int length() const { return length_; }
    sockaddr *take() { return length_ = 0, std::exchange(record_, nullptr); }

private:
    sockaddr *record_ = nullptr;
    int length_ = 0;
};

// Addresses, in text and for a server or peer to come. Empty, after a line on standard error, when there is no memory.
struct AddressText {
    explicit AddressText(const sockaddr *address, int length) { ms_addr_to_str(text, address, length); }
    char text[128] = {};
};
OwnedAddress resolve(const char *address, unsigned &type, int &proto);
OwnedAddress new_peer_address(unsigned server_type);

// Sockets. A counted descriptor is one that ms_creat_socket made, or that was accepted and configured.
bool configure_socket(int fd);  // the options that every socket of the message server has
void close_on_exec(int fd);
void claim_port(int fd);  // of a client's datagram socket, before its first send: the port will be its own
void close_counted(int fd);

// Sessions. `open_session` takes address and descriptor: both are released when it fails, after a line on standard
// error.
ms_session *open_session(int fd, unsigned flags, OwnedAddress address, ms_session *server);
void discard_session(ms_session &session);
ms_sock *find_sock(int fd);  // the oldest record of a descriptor, or null

// The loop's epoll set.
bool watch(int fd);
void unwatch(int fd);

// Calls and releases the timers that are due.
void run_due_timers();

}  // namespace ap

#define MS_LOG(format, ...)                                                                                            \
    ::ap::print_log("%-10s[%-4d]---:" format "\n", __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
