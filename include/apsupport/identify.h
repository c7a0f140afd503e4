/* identify.h: client operating systems and the cast filter. */
#ifndef APSUPPORT_IDENTIFY_H
#define APSUPPORT_IDENTIFY_H

#include <cjson/cJSON.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* client operating system */
int ap_client_identify_get_os_info(const char *mac, char *os_out);
int get_os_info_by_identify_json(const char *mac, char *os_out);
int get_os_info_by_user_info(const char *mac, char *os_out);
int get_string_value_form_identify_json_by_mac(const char *mac, char *out, const char *key);
cJSON *file_type_identify_get_terminal_arry(void);

/* cast filter */
int ap_cast_filter_init(void);
int ap_cast_filter_clear(void);
int ap_cast_filter_set(int command, int value);

/* sockets */
int init_net_udp_sock(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
