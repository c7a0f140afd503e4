/* product.h: product profile, system tools, interface helpers and the system log list.

   The start of a device, and a watchdog that is fed:

       profile_init_product_config(1);
       systool_enable_watchdog();
       for (;;) { systool_feed_watchdog(); sleep(20); }

   Caveats
   - Shell commands are fire and forget: their results count only where a result says so.
   - `systool_reboot` and its kin restart the device that they run on. */
#ifndef APSUPPORT_PRODUCT_H
#define APSUPPORT_PRODUCT_H

#include <cjson/cJSON.h>
#include <stdint.h>
#include <stdio.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- product profile ---------------------------------------------------------------------------------------------- */

/* Finds this unit's profile in "/etc/profile.json" by "sys.profile.id" (else by the factory store's id, which is then
   kept) and writes its defaults: all of them the first time, later only a few keys that newer firmware may have changed.
   A non-zero `commit` makes it persistent. Runs "/etc/init_gpio.sh" at the end. 0, also for a unit without a profile id;
   -1 when the file cannot be read, is no JSON, or holds no such profile. Not for several threads at once. */
int profile_init_product_config(int commit);

/* A copy of the product whose "model" is `profile_id`, which the caller releases with `delete_product_profile`; null,
   after a line in the log, when it cannot be had. */
cJSON *create_product_profile(const char *profile_id);
void delete_product_profile(cJSON *product);

/* Copies text member `key` into `buf`, which is cleared to its `size` before. 0; -1, `buf` unchanged, for a bad argument,
   a missing member, or a text that does not fit with its NUL. */
int get_config_from_profile(const cJSON *product, const char *key, char *buf, int size);

/* Writes the six keys of the product's "gpio" member, commits, and runs "/etc/init_gpio.sh"; a product without it only
   runs the script. 0; -1 for a null product or a missing key, with the keys before it written. */
int profile_start_gpio(const cJSON *product);

/* ---- system tools ------------------------------------------------------------------------------------------------- */

struct device_info {
    char host_name[64];        /* 0 */
    char vendor[64];           /* 64 */
    char model[64];            /* 128 */
    char hardware_version[32]; /* 192 */
    char software_version[32]; /* 224 */
    char build_time[32];       /* 256 */
    uint32_t uptime;           /* 288 */
};                             /* 292 bytes */
/* The hardware watchdog behind "/proc/watchdog" or, without it, "/proc/watchdog_cmd". The last command's result; -1 for a
   device without either. */
int systool_enable_watchdog(void);
int systool_disable_watchdog(void);
int systool_feed_watchdog(void);

/* Stops all services in their order. `type` tells who asks and keeps its own services: 0 to 3; any other stops none of
   theirs. Takes the LAN bridge down. */
void systool_kill_all_process(int type);

/* Type 0 writes the configuration to "/etc/tmp.cfg" for a download and copies that path into `buffer` (at least 13 bytes);
   takes a second. Type 2 takes in such a file's text, of `length` bytes or up to its NUL: the working set becomes what it
   says, but for this unit's own cloud identity. 0; -1, after a line in the log, for any other type, or when the default
   files cannot be written, the working set then unchanged. */
int systool_file_handle(int type, char *buffer, int length);

/* Back to factory values, persistently; takes 2 seconds. */
void systool_restore(void);

/* Syncs the logs and asks process 1 for a restart; returns after 3 seconds if that has not come about. */
void systool_reboot(void);
void systool_restore_reboot(void);

/* Runs a shell command, which must not hold text from outside, and copies the first line of its output, at most 127
   characters, without a terminator: clear `out` (127 bytes) before. 0; 1 when there is no output. */
int systool_get_value_with_popen(const char *command, char *out);

/* The text behind the first "=" of the first line of "/webroot_ro/default.cfg" that contains `key` anywhere, without a
   terminator as above. Always 0. A key that begins with "-" or is too long for the command is not looked for. */
int systool_get_value_in_default_cfg(const char *key, char *out);
int systool_get_int_value_in_default_cfg(const char *key); /* the same as a number; 0 when there is none */

/* When the firmware was built, "YYYY MM DD hh mm", 17 bytes with the NUL. 1. */
int get_compile_date_time(char *out);

/* Fills the whole record. Always 0. */
int get_device_info(void *unused, struct device_info *out);

/* 1 when "led.signal.index" is set and is `index`, else 0. */
int signal_led_type(int index);

/* Turns the polarity of GPIO line 0 to 10 or 32 to 37, `value` 0 or 1, under the line's lock. 0; -22 for a bad argument or
   an unknown line (which stays locked), -16 locked, -2 its file does not open, -5 it does not take the value, or the
   lock's own error. */
int iof_gpio_set_active_low(int gpio, int value);

/* Limits the multicast that a port of bridge "br<bridge>" takes in, where the kernel offers it. The last command's result,
   or 0. */
int storm_ctl_enable(int bridge, const char *port);

/* "sys.mode", 1 to 3; 3 when it is not set. */
int get_sys_mode(void);

/* ---- interfaces, ports, LEDs -------------------------------------------------------------------------------------- */

/* The name of the platform's interface `id`: 0 the LAN, 8 the uplink, 12 to 15 the WANs. A static text, or null. */
const char *get_eth_name(int id);
const char *ifaddrs_get_lan_ifname(void);

/* The interface of WAN 1 to 4: with `proto` 0 or 1 the Ethernet one, with 2 to 5 "ppp1" to "ppp4"; null for any other
   protocol and for a `kind` that is not 3. Arguments out of range (kind 1 to 3, proto up to 8) are logged. */
const char *ifaddrs_get_wan_ifname(int wan, int kind, int proto);
const char *ifaddrs_get_wan_ifname_gw(int wan, int proto);

/* 1 the port's link is up, 0 not, -1 the platform cannot tell. */
int get_port_link_status(int port);
int hal_get_port_link_status(int port);

/* Speed and duplex of port 0 to 5; 255 and 15 when they are not known. 0; 1 for another port or a failure. */
int hal_get_eth_status(int port, unsigned int *speed, unsigned int *duplex);

/* The port number of LAN `index`, and the LAN whose port number is `phy` (-1: none). There is one WAN port, 0. */
int get_lan_port_id_by_index(int index);
int get_portid_by_phyid(int phy);
int get_wan_port_id_by_index(void);

/* Sets all LEDs to mode 1 or 2, or, for any other mode, to 3; failures are logged. Always 0. */
int hal_set_all_led(int mode);

/* A record lock on a whole file: `type` is F_RDLCK, F_WRLCK or F_UNLCK. 1; 0 when another process is seen to hold a lock
   in the way, or on failure, each with a line in the log. */
int lock_set(int fd, int type);

/* The MAC of an interface as text, 18 bytes. 0; 1 when it cannot be had. */
int getIfMac(const char *ifname, char *out);

/* The MAC of an address in the kernel's ARP table, 18 bytes. 3 when it was found; else the number of fields of the table's
   last line, with `out` untouched; -1 without a table. */
int get_mac_address(const char *ip, char *out);

/* Twelve digits as six pairs with ":" between, 18 bytes. 0; -1 for an empty text. */
int str2mac(const char *text, char *out);

/* The 5 GHz radio's factory MAC while another one is used. save: sets it aside; set: brings it back, and tells the
   configuration. Both commit both stores and return 1; 0 when there is nothing to do, or when the factory store refuses.
   get: writes the factory's, at most 2308 bytes; always 0. */
int saveWlanDefaultMac(void);
int setWlanDefaultMac(void);
int getWlanDefaultMac(char *out);

/* The uplink's rates in kbit/s since the last call, of the third and the first counter of the platform's statistics; the
   first call gives the averages since the device started. Always 0; both rates are 0 when there are no statistics. The
   sample is the process's: not for several threads at once. */
int get_eth0_cur_rate(unsigned int *rate_a, unsigned int *rate_b);

/* system log list

   The newest lines of the system log, for a page:

       struct log_entry entries[100] = {0};
       int count = 0;
       if (file_syslog_get_lists(entries, 0, &count, 100) == 0) show(entries, count);

   Lines have the form "TIME;TYPE_NUMBER;MESSAGE" (1 System, 2 Web Filter, 3 to 6 WAN, 8 LAN DHCP) or
   "TIME [TYPE] [MODULE]: MESSAGE" (shown as "System" or "Debug"). Nothing is kept between calls. */
struct log_entry {
    char lead[16];     /* 0: the caller's, never written */
    char time[32];     /* 16 */
    char type[16];     /* 48 */
    char message[256]; /* 64 */
};                     /* 320 bytes */

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
