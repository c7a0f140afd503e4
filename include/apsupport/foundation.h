/* foundation.h: configuration access, diagnostic log, strings and encodings, clocks, files and AES-CBC.
 *
 * A batch of settings, committed only when something changed, with a line in the diagnostic log:
 *
 *     prod_cfm_init();
 *     prod_cfm_set_val("lan.ip", "192.168.5.1");
 *     __prod_cfm_set_fmt_int_val(1, "wl.ssid%d.enable", 2);
 *     if (prod_cfm_is_change() && prod_cfm_commit() == 0)
 *         prod_debug(__func__, __LINE__, 2, "lan", "Failed to commit.");
 *
 * Caveats
 * - A value may be 2308 bytes long with its NUL, and the store writes that many into any buffer.
 * - A missing key and the value 0 look alike through the typed getters.
 * - Functions that return a `char *` or fill one with a new heap text say so; the caller frees it with `free`.
 * - The four date texts and `get_self_pname` are static. Of those, the date texts are overwritten by the next call of the
 *   same function, so they are not for threads.
 * - Null arguments are refused with the function's failure result unless a line says otherwise.
 */
#ifndef APSUPPORT_FOUNDATION_H
#define APSUPPORT_FOUNDATION_H

#include <cjson/cJSON.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __GNUC__
#define AP_PRINTF_LIKE(format_at, arguments_at) __attribute__((format(printf, format_at, arguments_at)))
#else
#define AP_PRINTF_LIKE(format_at, arguments_at)
#endif

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- Configuration access ------------------------------------------------------------------------------------------
 *
 * Text values under dotted keys, in a store that all processes share. A key may be given as a printf format; it is cut at
 * 511 characters. A process counts the changes that it made since `prod_cfm_init`. Nothing is locked: two threads that
 * write one key at the same time leave one of the two values.
 */

/* Sets the process's count of changes to 0. */
void prod_cfm_init(void);

/* 1: something was written or removed since `prod_cfm_init`; 0: nothing. */
int prod_cfm_is_change(void);

/* Reads a value into 2308 bytes of the caller's; fewer do for a key whose values are known to be shorter. Non-zero: found;
   0: no such key, the buffer is as it was. */
int prod_cfm_get_val(const char *key, char *value);
int __prod_cfm_get_fmt_val(char *value, const char *format, ...) AP_PRINTF_LIKE(2, 3);

/* Values as numbers, as far as they begin like one; 0 for a missing key and for what is no number. The unsigned getter
   looks at the first 20 characters and stops at 9223372036854775807, the floating one at the first 42. */
int prod_cfm_get_int_val(const char *format, ...) AP_PRINTF_LIKE(1, 2);
unsigned long long prod_cfm_get_uint_val(const char *format, ...) AP_PRINTF_LIKE(1, 2);
double prod_cfm_get_double_val(const char *format, ...) AP_PRINTF_LIKE(1, 2);

/* Writes a value unless the key holds it already. 1: written and counted, even when the store refused; 0: unchanged.
   The format variants take the value first. `prod_cfm_set_val_check` refuses the empty value, too. Numbers are written as
   "%d", "%f" cut at 20 characters, and "%llu". */
int prod_cfm_set_val(const char *key, const char *value);
int prod_cfm_set_val_check(const char *key, const char *value);
int __prod_cfm_set_fmt_val(const char *value, const char *format, ...) AP_PRINTF_LIKE(2, 3);
int prod_cfm_set_int_val(const char *key, int value);
int __prod_cfm_set_fmt_int_val(int value, const char *format, ...) AP_PRINTF_LIKE(2, 3);
int prod_cfm_set_double_val(const char *key, double value);
int prod_cfm_set_uint64_val(const char *key, uint64_t value);

/* Lays the first n bytes of the new value over the old one: with a new value of n bytes or more, the old value's bytes
   behind n stay; a shorter one replaces all. 1: written; 0: unchanged, or n above 2308. */
int prod_cfm_n_set_val(const char *key, const char *value, unsigned int n);

/* Removes a key. 1: removed and counted; 0: it was missing or empty, and an empty one stays. */
int prod_cfm_unset_val(const char *key);

/* Makes everything that was set survive a power cut; the store's result. The count stays. */
int prod_cfm_commit(void);

/* As `prod_cfm_set_val`, but the old value is left in the caller's scratch buffer of 2308 bytes. 1: a write was issued;
   0: unchanged; -1: a null argument. The format variant has a buffer of its own and gives 0 for a null argument. */
int set_if_changed(const char *key, const char *value, char *scratch);
int __set_fmt_val_if_changed(const char *value, const char *format, ...) AP_PRINTF_LIKE(2, 3);

/* The gate that all writes of the library pass: not counted. 1: the key holds the value already; otherwise the store's
   result. From level 4 of module "cfm" on, each write is shown on standard output. */
int __wrap_SetValue(const char *key, const char *value);

/* ---- Debug levels and diagnostic log -------------------------------------------------------------------------------
 *
 * Levels 1 F, 2 E, 3 D, 4 I and 5 T for each module, in a table that all processes share: a level that one sets is obeyed
 * by all at their next line. A module that is not in the table has level 0 and shows only its error lines (level 2).
 */

struct dbg_slot {
    char name[32]; /* 0: at most 31 characters */
    uint32_t word; /* 32: bit 0 the slot is in use, bits 1 to 31 the level */
};                 /* 36 bytes */
struct dbg_info {
    uint16_t name_width;        /* 0: length of the longest name ever added */
    uint16_t count;             /* 2: slots in use */
    struct dbg_slot slots[100]; /* 4 */
};                              /* 3604 bytes */

/* Held while `prod_debug` writes a line, so that lines of one process stay whole. Default attributes. */
extern pthread_mutex_t debug_mutex;

/* Attaches the System V segment that is bound to the file "/var/run/shm.NAME" (at most 114 characters of the name count),
   and creates both where they are missing. Null, after a line on standard output, when that fails. The caller detaches it
   with `shmdt`. */
void *get_shared_memory(const char *name, size_t size);

/* The table of levels, attached once and kept. Null, after a line on standard output, when it cannot be had; the next call
   tries again. Other processes change the table at any time. Any thread may call. */
struct dbg_info *get_dbg_info(void);

/* The module's level, 0 when it has none. Any thread may call; it costs nanoseconds for the last few modules asked for. */
unsigned int get_dbg_level(const char *module);

/* Adds a module, changes its level, or removes it (level 0). Of the name, 31 characters count. 1: done; 0: failed, or 100
   modules are there already. */
int set_dbg_level(const char *module, unsigned int level);

/* Prints one module's level, or all with a null or empty name. */
void show_dbg_level(const char *module);

/* Prints one line on standard output when the module's level is at least `level`; an error line (level 2) always, and that
   is also appended to "/var/debug.MODULE.log", which starts over at 200 KiB. Trailing line feeds of the message do not
   matter; a line ends after 10238 characters. `function` and `line` are the caller's. Always 0; errno is kept. Any thread
   may call. */
int prod_debug(const char *function, int line, int level, const char *module, const char *format, ...)
    AP_PRINTF_LIKE(5, 6);

/* Prints bytes in rows of 16, in hexadecimal and as text; nothing with a null argument or a length below 1. */
void prod_hexdump(const char *title, const void *data, int length);

/* ---- Strings -------------------------------------------------------------------------------------------------------
 *
 * In place, on NUL-terminated texts. A null text is left alone: the result is then null or 0.
 */

/* "true" or "false". */
const char *bool_to_string(int b);

char *str_to_upper(char *s);
char *str_to_lower(char *s);

/* Replaces every byte that equals `from`. Always 0. */
int replace_char(char *s, char from, char to);

/* 1: one or more digits, with at most one sign in front. */
int str_isdigit(const char *s);

/* 1: no byte below 32 but CR, LF and TAB, and none of 128 or above. */
int str_is_printable(const char *s);

/* Remove leading or trailing bytes that equal `c`; the text itself is the result. */
char *str_trim_left(char *s, char c);
char *str_trim_right(char *s, char c);
char *str_trim(char *s, char c);

/* Removes every byte that equals `c`. Always 1. */
int str_del_chars(char *s, char c);

/* Cuts the text at the first occurrence of `sub`; the place of the cut, or null when there is none. */
char *removeSubstr(char *s, const char *sub);

/* Takes zeros off the end of a text with a decimal point, and then the point: "1.500" becomes "1.5", "2.000" "2". */
void removeLastZero(char *s);

/* The number of fields that `c` separates; 0 when it does not occur. */
int count_section_by_identifier(const char *s, char c);

/* 1: lo <= v <= hi. */
int integer_is_between(int v, int lo, int hi);

void str_reverse(char *s);

/* The first `needle` that lies within the first n bytes of `hay` and before its end; null when there is none, and for an
   empty needle. */
char *strnstr(const char *hay, const char *needle, size_t n);

/* A new heap text: the characters of `s` with `sep` between them. Null when there is no memory. */
char *str_join(const char *s, const char *sep);

/* A new heap text: `text` with every `from` replaced, from left to right; an empty `from` occurs nowhere. Null when there
   is no memory. */
char *str_replace(const char *text, const char *from, const char *to);

/* This process's name, at most 31 characters, static; "<null>" when it cannot be read. Any thread may call. */
const char *get_self_pname(void);

/* ---- Encodings ----------------------------------------------------------------------------------------------------- */

/* Two lower-case hexadecimal digits a byte. `out` on success; null when `size` is below 2 x length + 1. */
char *str_to_hex(const char *text, char *out, int size);

/* The bytes of pairs of digits; an odd last digit is the high nibble of one more byte. Other characters are not refused.
   `out` on success; null when `size` is below length / 2 + 1. With an odd length and just that size no NUL follows. */
char *hex_to_str(const char *hex, char *out, int size);

/* hash x 131 + byte over the text's bytes as signed characters. */
unsigned int bkdr_hash(const char *text);

/* 12 digits become the colon form in place: the buffer holds 18 bytes or, for a longer text, 6 more than the text, of which
   31 characters stay. 1: done. */
int mac_str_32(char *mac);

/* Base64 of a text. Alphabet characters stop at `size`, but the padding and the NUL follow in any case: give
   4 x ((length + 2) / 3) + 1 bytes. 0: done. */
int prod_encode64(char *out, const char *text, int size);

/* Decodes up to the first "=" or the end. 0: done, and a NUL stands behind the bytes; -1: a character outside the alphabet,
   or the bytes and their NUL do not fit. */
int prod_decode64(char *out, const char *text, int size);

/* Base64 of bytes. The number of characters without the NUL, or -1 when they do not fit with it. */
int kivra_base64_encode(const void *source, int length, char *out, int size);

/* Decodes Base64 in which white space does not matter. The number of bytes, no NUL behind them; -1 for malformed text and
   when they do not fit. With a null `out` the bytes are only counted. */
int kivra_base64_decode(const char *text, void *out, int size);

/* A new heap text in the character set "gb2312", "utf8" or "utf-8", from the other one; null when that fails. */
char *encode_chinese(const char *charset, const char *text);

/* A new heap text in UTF-8, whatever the text is in; null when that fails. */
char *encode_str_to_utf8(const char *text);

/* Does nothing; 0. */
int get_gb2312(const char *text);

/* ---- Versions of the device ---------------------------------------------------------------------------------------- */

/* What "/etc/prodversion.cfg" holds, cut to `size` - 1 characters, without line feeds at its end. 1: done; 0: no file. */
int get_prod_version(char *buf, int size);

/* The number in the first parentheses of "/etc/prodversion.cfg", 0 when there is none. */
int get_svn_version(void);

/* The first 15 characters of the value "sys.hwver", cut to `size` - 1; the buffer stays as it is when that is empty.
   Always 0. */
int get_hard_version(char *buf, int size);

/* The second ";" field of the first line with "ver" in "/etc/policy_bak.cfg". The size is not looked at: give 256 bytes.
   0: done, or no such line; 1: no file or no buffer. */
int get_policy_version(char *buf, int size);

/* ---- Kernel rules --------------------------------------------------------------------------------------------------
 *
 * The platform call's result; -1, after an error line, for a null domain or address. With level 3 of module "kjson" the
 * document that goes to the platform is shown.
 */

int add_dns_redirect_rule(const char *domain, const char *ip);
int del_dns_redirect_rule(const char *domain);
int add_auto_wizards_gw_port(int port);
int add_auto_wizards_ip(const char *ip, const char *mask);
int add_auto_wizards_manage_ip(const char *ip, const char *mask);
int auto_wizards_enable(void);
int auto_wizards_disable(void);

/* ---- Clocks and dates ---------------------------------------------------------------------------------------------- */

/* The monotonic clock, for intervals. Any thread may call. */
uint64_t get_now_us(void);
uint64_t get_now_ms(void);

/* The wall clock since 1970, for stamps. Any thread may call. */
uint64_t get_systime_us(void);
uint64_t get_systime_ms(void);

/* Seconds since the system started; 0 after an error line. */
int get_sys_uptime(void);

/* "2024-05-31" and "2024-05-31 23:59:59" in local time, of the given or of the present moment. */
const char *get_date_str_by_sec(time_t seconds);
const char *get_date_str(void);
const char *get_datetime_str_by_sec(time_t seconds);
const char *get_datetime_str(void);

/* ---- Files --------------------------------------------------------------------------------------------------------- */

/* A regular file in a new heap block with a NUL behind it; `size` may be null. Files that show size 0, as those of /proc
   do, read as empty. 1: done; 0: failed, after a line, and the outputs are as they were. */
int get_file_content(const char *path, char **text, size_t *size);

/* 1 and a regular file's size; 0 for anything else. */
int get_file_size(const char *path, size_t *size);

/* Creates the file unless it is there. 0: done, and after the error line when it could not be opened. */
int touch_file(const char *path);

/* Writes over the start of the file, which is created where it is missing; a longer one keeps its bytes behind `length`.
   1: done; 0: nothing to write, or failed after an error line. */
int write_file(const char *path, const void *data, size_t length);

/* ---- Members of a JSON object --------------------------------------------------------------------------------------
 *
 * The member when it has the right type, else the fallback. A text points into the object. An address is the empty text or
 * a valid dotted IPv4 address.
 */

const char *cJSON_GetObjectStringValue(const cJSON *object, const char *key, const char *fallback);
int cJSON_GetObjectNumberValue(const cJSON *object, const char *key, int fallback);
const char *cJSON_GetObjectIpValue(const cJSON *object, const char *key, const char *fallback);

/* ---- AES -----------------------------------------------------------------------------------------------------------
 *
 * The block layer takes the caller's key; the `128` functions have a fixed key and initialisation vector, start afresh with
 * each call, and pad with 1 to 16 bytes that each hold the pad's length. Input and output may be the same buffer. Any
 * thread may call.
 */

struct aes_context {
    uint32_t rounds;           /* 0: 10, 12 or 14; anything else: no key */
    uint32_t encrypt_keys[60]; /* 4: room for the largest key schedule */
    uint32_t decrypt_keys[60]; /* 244 */
};                             /* 484 bytes */

/* Expands a key of 128, 192 or 256 bits for both directions; any other size leaves a context without a key, whose blocks
   are all zeros. Nothing needs to be released; a key is wiped by whoever keeps the context. */
void aes_set_key(struct aes_context *ctx, const unsigned char *key, int bits);

/* One block. */
void aes_encrypt(const struct aes_context *ctx, const unsigned char in[16], unsigned char out[16]);
void aes_decrypt(const struct aes_context *ctx, const unsigned char in[16], unsigned char out[16]);

/* Whole blocks, chained; `iv` is ready for the next call. `length` is a multiple of 16; a rest is left alone. */
void aes_cbc_encrypt(const struct aes_context *ctx, unsigned char iv[16], const unsigned char *in, unsigned char *out,
                     unsigned int length);
void aes_cbc_decrypt(const struct aes_context *ctx, unsigned char iv[16], const unsigned char *in, unsigned char *out,
                     unsigned int length);

/* Enciphers `length` bytes into length + 16 at most; the enciphered length, or -1 after an error line. */
int aes_cbc128_encrypt(const unsigned char *in, int length, unsigned char *out);

/* Deciphers `length` bytes into as many, the pad zeroed; the length without the pad. The pad is not checked: damaged data
   gives a wrong and even a negative length, but nothing outside `out` is touched. 0 for no data. */
int aes_cbc128_decrypt(const unsigned char *in, int length, unsigned char *out);

/* Encipher and decipher a file in place. The new length; 0 after an error line, and the file is as it was. A deciphered
   file keeps its length: the plain text ends at the result, zeros follow. */
int aes_cbc128_encrypt_file(const char *path);
int aes_cbc128_decrypt_file(const char *path);

/* ---- Byte order ----------------------------------------------------------------------------------------------------
 *
 * Records that leave the process travel in the device's own order, so each returns its argument unchanged.
 */

uint16_t Swap16(uint16_t value);
uint32_t Swap32(uint32_t value);
uint64_t Swap64(uint64_t value);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
