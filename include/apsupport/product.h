/* product.h: product profile, system tools, interface helpers and the system log list. */
#ifndef APSUPPORT_PRODUCT_H
#define APSUPPORT_PRODUCT_H

#include <stdint.h>
#include <stdio.h>
#include <cjson/cJSON.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* product profile */
int profile_init_product_config(int commit);
cJSON *create_product_profile(const char *profile_id);
void delete_product_profile(cJSON *product);
int get_config_from_profile(const cJSON *product, const char *key, char *buf, int size);
int profile_start_gpio(const cJSON *product);

/* system tools */
struct device_info {
    char     host_name[64];         /* 0 */
    char     vendor[64];            /* 64 */
    char     model[64];             /* 128 */
    char     hardware_version[32];  /* 192 */
    char     software_version[32];  /* 224 */
    char     build_time[32];        /* 256 */
    uint32_t uptime;                /* 288 */
};                                  /* 292 bytes */
int systool_enable_watchdog(void);
int systool_disable_watchdog(void);
int systool_feed_watchdog(void);
void systool_kill_all_process(int type);
int systool_file_handle(int type, char *buffer, int length);
void systool_restore(void);
void systool_reboot(void);
void systool_restore_reboot(void);
int systool_get_value_with_popen(const char *command, char *out);
int systool_get_value_in_default_cfg(const char *key, char *out);
int systool_get_int_value_in_default_cfg(const char *key);
int get_compile_date_time(char *out);
int get_device_info(void *unused, struct device_info *out);
int signal_led_type(int index);
int iof_gpio_set_active_low(int gpio, int value);
int storm_ctl_enable(int bridge, const char *port);
int get_sys_mode(void);

/* interfaces, ports, LEDs */
const char *get_eth_name(int id);
const char *ifaddrs_get_lan_ifname(void);
const char *ifaddrs_get_wan_ifname(int wan, int kind, int proto);
const char *ifaddrs_get_wan_ifname_gw(int wan, int proto);
int get_port_link_status(int port);
int hal_get_port_link_status(int port);
int hal_get_eth_status(int port, unsigned int *speed, unsigned int *duplex);
int get_lan_port_id_by_index(int index);
int get_portid_by_phyid(int phy);
int get_wan_port_id_by_index(void);
int hal_set_all_led(int mode);
int lock_set(int fd, int type);
int getIfMac(const char *ifname, char *out);
int get_mac_address(const char *ip, char *out);
int str2mac(const char *text, char *out);
int saveWlanDefaultMac(void);
int setWlanDefaultMac(void);
int getWlanDefaultMac(char *out);
int get_eth0_cur_rate(unsigned int *rate_a, unsigned int *rate_b);

/* system log list

   The newest lines of the system log, for a page:

       struct log_entry entries[100] = {0};
       int count = 0;
       if (file_syslog_get_lists(entries, 0, &count, 100) == 0) show(entries, count);

   Lines have the form "TIME;TYPE_NUMBER;MESSAGE" (1 System, 2 Web Filter, 3 to 6 WAN, 8 LAN DHCP) or
   "TIME [TYPE] [MODULE]: MESSAGE" (shown as "System" or "Debug"). Nothing is kept between calls. */
struct log_entry {
    char     lead[16];              /* 0: the caller's, never written */
    char     time[32];              /* 16 */
    char     type[16];              /* 48 */
    char     message[256];          /* 64 */
};                                  /* 320 bytes */

/* Reads the log at "syslogs.system.path", or "/var/logs.txt", into at most `max` entries, the oldest first. A `logtype`
   other than 0 takes only numbered lines of that type. `count` receives the number of lines looked at: an entry whose
   line was not taken stays as it was and counts all the same, so clear the entries before. 0; 1 when the file cannot be
   opened or there is no memory. */
int file_syslog_get_lists(struct log_entry *list, int logtype, int *count, int max);

/* The same from the position of a stream, which is read to its end and left open. Empty lines are left out; a line of more
   than 255 characters counts as several. Takes `max` blocks of 256 bytes while it runs. 1: no memory, nothing written. */
int reverse_read_file(FILE *fp, struct log_entry *list, int logtype, int *count, int max);

/* Parses one line into entry `index`. 0; 1 when it has neither form or another type, the entry unchanged. */
int file_syslog_set_log_list_param(struct log_entry *list, const char *line, int logtype, int index);

/* Makes the first character upper case. */
void capitalize(char *s);

/* Replaces a type by "Debug", in a field of `length` bytes, unless its first `length` characters are those of "System". */
void sys_log__msgtype_convert(char *type, int length);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
