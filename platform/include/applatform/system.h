/* system.h: processes, the system, character sets and neighbours in the firmware. */
#ifndef APPLATFORM_SYSTEM_H
#define APPLATFORM_SYSTEM_H

#ifdef __cplusplus
extern "C" {
#endif

/* Asks every process of that name to end and kills those that have not after a second; never the caller or process 1, and
   only in a device box. 0: none runs now; -1: not stopped. */
int monitor_stop(const char *name);
/* Non-zero: a process of that name runs, by its command name or the last part of its first argument. */
int monitor_check_exist(const char *name);
int proc_check_app(const char *name);
/* Seconds since the system started. */
unsigned int system_get_uptime(void);

/* 0: ASCII; 1: GB2312; 2: UTF-8. */
int system_get_code_format(const char *text);
/* `target` is "gb2312" or "utf8"; `out` has `size` bytes. 0: ok; -1: it does not fit or cannot be said in the target,
   `out` untouched. A text that is in the target already is copied. */
int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size);

/* To the datagram socket "/var/socket/api": the number (32 bits, the machine's byte order), then the text with its NUL.
   0: handed over; -1: nobody listens. */
int ap_comm_send_msg_to_api(int message, const char *text);
/* One packet to the sequenced-packet socket "/var/socket/user_info" and one back, within three seconds. 0 and an answer
   from `malloc`, at least `length` bytes and a NUL behind it, what did not come being zero; or -1. */
int send_msg_to_user_info(const void *request, void **answer, unsigned int length);

#ifdef __cplusplus
}
#endif

#endif
