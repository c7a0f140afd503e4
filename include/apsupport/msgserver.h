/* msgserver.h: an epoll message server for daemons and the clients that talk to it.
 *
 * A daemon offers endpoints and gives its thread to the loop; other processes send it a message, or ask and wait for
 * the answer. A message is a string of bytes of at most 16384; the bytes travel as they are.
 *
 *     static int answer(struct ms_session *session, char *data, int length) {
 *         if (length > 0) ms_send(session, data, length);
 *         return 0;
 *     }
 *     int main(void) {
 *         if (ms_server("unix:echo", answer) == NULL) return 1;
 *         ms_run();
 *     }
 *     ...  got = ms_dialog("unix:echo", "hello", 5, reply, sizeof reply);      (in another process)
 *
 * Addresses: "tcp:IP:PORT", "udp:IP:PORT" (an empty IP is any address), "unix:NAME" (the file /var/socket/NAME) and
 * "netlink:PROTOCOL" (the kernel). An address that begins otherwise ends the whole process with exit(0).
 *
 * Caveats:
 * - A tcp or unix connection carries one message and at most one answer. What one read returns is the message: a local
 *   connection may cut it at 16000 bytes and more, tcp at 4000 and more.
 * - Every blocking call is bounded by time-outs of 5 seconds. Calls are made once: a partial send is a failure.
 * - One thread a process runs the loop, and only it may call the functions under "servers, loop and timers" and
 *   "dumps", and ms_send. ms_notify and ms_dialog may be called from any thread.
 * - Log lines "FUNCTION  [LINE]---:text" go to standard output, system errors to standard error.
 *
 * Type flags are 1 tcp, 2 udp, 4 unix, 8 netlink, 16 a server's own socket, 32 a peer. Where a function takes a type,
 * one of the first four decides. Results, unless told otherwise: 0 success, -1 failure.
 */
#ifndef APSUPPORT_MSGSERVER_H
#define APSUPPORT_MSGSERVER_H

#include <stdint.h>
#include <sys/socket.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- Endpoints and sockets: any thread --------------------------------------------------------------------------- */

/* Splits an address into `ip` (16 bytes), `port` (8), `proto` (4) and `name` (64), each with its NUL; a longer part is
 * cut. Only the parts that the scheme has are written; an `ip` that is empty at the end becomes "0.0.0.0". Returns the
 * type flag. */
unsigned int ms_get_parm(const char *address, char *ip, char *port, char *proto, char *name);

/* Resolves an address: a new socket address from the heap, which the caller frees, its length (16, 110 or 12) and, for
 * netlink only, the protocol number. The folder /var/socket is made for a unix address. `*resolved` is null when there
 * is no memory. An IP is taken as inet_addr reads it. Returns the type flag. */
unsigned int ms_get_addr(const char *address, struct sockaddr **resolved, int *length, int *proto);

/* A configured socket of a type: its descriptor, -1 when none could be made, 0 for an unknown type. */
int ms_socket(unsigned int type, int proto);

/* Makes a socket, close-on-exec, with buffers of 16384 bytes, time-outs of 5 seconds and address reuse. Returns the
 * descriptor, which the caller closes, or -1. */
int ms_creat_socket(int domain, int type, int proto);

int ms_bind(int fd, const struct sockaddr *address, int length);
int ms_listen_fd(int fd);                                           /* with a backlog of 5 */
int ms_connect(int fd, const struct sockaddr *address, int length); /* returns `fd`, or -1 */

/* Makes a server's socket of `fd`: binds it, tcp and unix also listen, a stale unix socket file is removed before.
 * Failures are logged, and the result is always 0. (A tcp socket that could not bind listens at a port of the
 * system's choice.) */
int ms_listen(int fd, unsigned int type, const struct sockaddr *address, int length);

/* Writes "address IP[A.B.C.D:PORT]" for a length of 16 or "address PATH[...]" for 110 into `buffer` of 128 bytes, and
 * nothing for any other length. Returns `buffer`. */
char *ms_addr_to_str(char *buffer, const struct sockaddr *address, int length);

/* ---- Servers, loop and timers: the loop's thread ----------------------------------------------------------------- */

/* A server's session lives as long as the process, a peer's for one call of the handler. */
struct ms_session;
struct ms_uptime {
    uint32_t seconds;    /* 0 */
    uint32_t subseconds; /* 4: milliseconds, in steps of 10 */
};                       /* 8 bytes */

/* Called with each message. `data` holds `length` bytes, is not terminated, and is valid during the call; the length is
 * what the receive returned: 0 when the peer ended without a message, negative when the receive failed. The result is
 * ignored. The connection is closed when the handler returns. It may call anything here but ms_run. */
typedef int (*ms_handler)(struct ms_session *session, char *data, int length);
typedef void (*ms_timer_callback)(void *argument, int length);

/* Offers an endpoint. Returns the server's session, null when it had no socket, no memory or no place in the loop. A
 * server that could not bind or listen is logged and returned all the same; it gets no messages. */
struct ms_session *ms_server(const char *address, ms_handler handler);

/* Runs the loop and never returns: handles what arrives, and after 50 ms without anything the timers that are due. */
void ms_run(void);

/* Calls `callback` once, with a copy of `length` argument bytes, when the uptime has reached now + seconds and
 * subseconds (milliseconds). The parts are added without carry: a subsecond sum of 1000 or more is reached when the
 * seconds have passed. Equal expiries fire in the order of adding. Nothing happens without memory. The callback may add
 * and delete timers, its own included. */
void ms_add_timer(ms_timer_callback callback, const void *argument, int length, unsigned int seconds,
                  unsigned int subseconds);

/* Deletes every timer with this callback and these argument bytes. */
void ms_del_timer(ms_timer_callback callback, const void *argument, int length);

/* Reads the system's uptime; zeros when it cannot be read. Returns `out`. Any thread. */
struct ms_uptime *ms_get_uptime(struct ms_uptime *out);

/* Both do nothing and return 0: servers end with their process. */
int ms_server_exit(void);
int ms_stop(void);

/* ---- Messages: ms_send in a handler, the others on any thread ---------------------------------------------------- */

/* Sends a message without waiting. Returns 0 after the attempt, whether it arrived or not, and -1 when no socket could
 * be made. */
int ms_notify(const char *address, const void *data, int length);

/* Sends a message and waits for the answer, 5 seconds at most. Returns the bytes received, 0 when the connection was
 * closed without an answer, or a negative value. The answer is not terminated. From netlink it may have 16384 bytes,
 * whatever `size` says: give it that much room. A udp client's port is its own: it gives up address reuse. */
int ms_dialog(const char *address, const void *data, int length, void *answer, int size);

/* Answers the peer of a handler's session. Returns 0 when all bytes went out. (To a netlink peer the bytes go without a
 * header, so it is no answer.) */
int ms_send(struct ms_session *session, const void *data, int length);

/* Sends through a socket of a type: tcp and unix connect to the address first, udp sends to it, netlink sends to the
 * kernel. Returns 0 when the send returned `length`, which a netlink send never does: it counts its header, and the
 * result is -1 though the message went out. */
int ms_send_addr(int fd, unsigned int type, const struct sockaddr *address, int address_length, const void *data,
                 int length);

/* Sends a netlink message of at most 16384 bytes to the kernel. Returns the bytes sent, header included, 0 without
 * data, or -1. */
int ms_netlink_send(int fd, const void *data, int length);

/* Receives a netlink message into `buffer` of 16384 bytes. Returns the payload's length as the message's header gives
 * it, bounded by the buffer; what did not arrive reads as zeros. -1 when nothing came or the length is no length. */
int ms_netlink_recv(int fd, void *buffer);

/* ---- Dumps on standard output: the loop's thread ----------------------------------------------------------------- */

void print_sock_list(void);           /* sock[I] = RECORD, fd = N, session = SESSION */
void print_session_server_list(void); /* server[I] = SESSION, fd = N.   and a line for each of its peers */
void print_resource_count(void);      /* descriptors, bytes, socket and session records in use */
void print_timer_list(void);          /* list[I] = RECORD, arg_p = ARGUMENT, time = EXPIRY, arg = TEXT */

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
