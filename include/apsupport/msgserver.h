/* msgserver.h: an epoll message server for daemons and the clients that talk to it. */
#ifndef APSUPPORT_MSGSERVER_H
#define APSUPPORT_MSGSERVER_H

#include <stdint.h>
#include <sys/socket.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* endpoints and sockets */
unsigned int ms_get_parm(const char *address, char *ip, char *port, char *proto, char *name);
unsigned int ms_get_addr(const char *address, struct sockaddr **resolved, int *length, int *proto);
int ms_socket(unsigned int type, int proto);
int ms_creat_socket(int domain, int type, int proto);
int ms_bind(int fd, const struct sockaddr *address, int length);
int ms_listen_fd(int fd);
int ms_connect(int fd, const struct sockaddr *address, int length);
int ms_listen(int fd, unsigned int type, const struct sockaddr *address, int length);
char *ms_addr_to_str(char *buffer, const struct sockaddr *address, int length);

/* servers, loop and timers */
struct ms_session;
struct ms_uptime {
    uint32_t seconds;               /* 0 */
    uint32_t subseconds;            /* 4: milliseconds, in steps of 10 */
};                                  /* 8 bytes */
typedef int (*ms_handler)(struct ms_session *session, char *data, int length);
typedef void (*ms_timer_callback)(void *argument, int length);
struct ms_session *ms_server(const char *address, ms_handler handler);
void ms_run(void);
void ms_add_timer(ms_timer_callback callback, const void *argument, int length, unsigned int seconds, unsigned int subseconds);
void ms_del_timer(ms_timer_callback callback, const void *argument, int length);
struct ms_uptime *ms_get_uptime(struct ms_uptime *out);
int ms_server_exit(void);
int ms_stop(void);

/* messages */
int ms_notify(const char *address, const void *data, int length);
int ms_dialog(const char *address, const void *data, int length, void *answer, int size);
int ms_send(struct ms_session *session, const void *data, int length);
int ms_send_addr(int fd, unsigned int type, const struct sockaddr *address, int address_length, const void *data, int length);
int ms_netlink_send(int fd, const void *data, int length);
int ms_netlink_recv(int fd, void *buffer);

/* dumps */
void print_sock_list(void);
void print_session_server_list(void);
void print_resource_count(void);
void print_timer_list(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
