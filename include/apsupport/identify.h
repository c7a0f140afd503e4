/* identify.h: client operating systems and the cast filter.

       char os[32] = "";
       ap_client_identify_get_os_info("AA:BB:CC:00:00:01", os);
       if (*os != '\0') printf("the client runs %s\n", os);

   Caveats
   - Texts that are handed out take at most 32 bytes with the NUL.
   - Results are 0 and 255 where nothing else is said. Nothing here keeps state or takes a lock; every function may be
     called from any thread. */
#ifndef APSUPPORT_IDENTIFY_H
#define APSUPPORT_IDENTIFY_H

#include <cjson/cJSON.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- client operating system -------------------------------------------------------------------------------------- */

/* The client's operating system from "/var/type_identify.json", as `get_os_info_by_identify_json` gives it. Without the
   file 0, and `os_out` stays as it was. */
int ap_client_identify_get_os_info(const char *mac, char *os_out);

/* The "os" of the client's entry. Where that leaves `os_out` empty, an entry of one of the maker's own cameras gives
   "linux". 255 when the file cannot be read or is no JSON. */
int get_os_info_by_identify_json(const char *mac, char *os_out);

/* Asks the user-information service. 255, after a line on standard output, without an answer or with one for another
   client. */
int get_os_info_by_user_info(const char *mac, char *os_out);

/* Copies text member `key` of the first entry whose "mac" begins with the given text; the empty text when it has none.
   0, also when no entry matches, which leaves `out` alone; 255 when the file cannot be read or is no JSON. */
int get_string_value_form_identify_json_by_mac(const char *mac, char *out, const char *key);

/* The file's array; null when the file is missing or no JSON. The caller releases it with `cJSON_Delete`. */
cJSON *file_type_identify_get_terminal_arry(void);

/* ---- cast filter -------------------------------------------------------------------------------------------------- */

/* Loads the kernel module of the multicast and broadcast filter. Always 1. */
int ap_cast_filter_init(void);

/* Empties the filter. A device that does not open is waited for, 3 seconds in all; then, or when it refuses, 255. */
int ap_cast_filter_clear(void);

/* Command 0 turns the filter off, 1 turns it on with `value`; any other is logged and gives 0. Requests 17 to 20 go to
   "/dev/castfilter", each with the address of an int (20: none). Waits and fails like `ap_cast_filter_clear`. */
int ap_cast_filter_set(int command, int value);

/* ---- sockets ------------------------------------------------------------------------------------------------------ */

/* A new IPv4 datagram socket that the caller closes; -1 after a line on standard output. */
int init_net_udp_sock(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
