/* commands.h: shell commands, small files and the platform logger. */
#ifndef APPLATFORM_COMMANDS_H
#define APPLATFORM_COMMANDS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Runs a formatted shell command; the wait status, as `system` gives it. */
int doSystemCmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Writes formatted text to a file, in one write; `mode` 0 truncates, 1 appends. 0: ok; -1: failed. */
int do_file_cmd(const char *path, int mode, const char *format, ...) __attribute__((format(printf, 3, 4)));

/* 1: exists; 0: not. */
int file_check_exist_or_not(const char *path);

/* The value of the first `key` in a file of `key=value` lines, without the blanks around it, cut at 255 bytes; the caller
   gives 256 bytes. 0: found; -1: missing, `value` untouched. */
int file_get_value_from_ini(const char *path, const char *key, char *value);

/* The platform logger: one line of "/var/logs.txt", "YYYY-MM-DD HH:MM:SS [LEVEL] PROCESS[MODULE]: FUNCTION(LINE): text",
   cut at 255 bytes; line feeds in the text become blanks. Levels above 5 (entry and exit of functions) are left out. At
   200 KiB the file becomes "/var/logs.txt.0" and a new one begins. */
void log_debug_print(const char *function, int line, int level, const char *module, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

/* Writes the log files that are kept in memory to flash, as the archive "/cfg/log/log.tar.gz". */
void log_file_sync_to_flash(void);

/* Trims blanks at both ends in place; returns `text`. */
char *string_str_trim(char *text);

/* 0: `ip` is a valid dotted IPv4 address; non-zero: not. */
int is_invalid_ip(const char *ip);

#ifdef __cplusplus
}
#endif

#endif
