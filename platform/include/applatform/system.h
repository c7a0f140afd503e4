/* system.h: processes, the system, character sets and neighbours in the firmware. */
#ifndef APPLATFORM_SYSTEM_H
#define APPLATFORM_SYSTEM_H

#ifdef __cplusplus
extern "C" {
#endif

int monitor_stop(const char *name);
/* Non-zero: the process runs. */
int monitor_check_exist(const char *name);
int proc_check_app(const char *name);
/* Seconds since the system started. */
unsigned int system_get_uptime(void);

/* 0: ASCII; 1: GB2312; 2: UTF-8. */
int system_get_code_format(const char *text);
/* `target` is "gb2312" or "utf8"; at most `size` bytes with the NUL go into `out`. 0: ok. */
int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size);

int ap_comm_send_msg_to_api(int message, const char *text);
/* 0 and an answer from `malloc`, or -1. */
int send_msg_to_user_info(const void *request, void **answer, unsigned int length);

#ifdef __cplusplus
}
#endif

#endif
