/* config_store.h: the configuration store and the factory store: dotted keys, text values, shared by all processes.

     char value[2308];
     if (GetValue("lan.ip", value)) puts(value);
     if (SetValue("lan.ip", "192.168.1.1")) CommitCfm();

   Any thread may call any of these, and a forked child goes on. Reads never wait. What is refused or fails leaves a line in
   the platform's log and changes nothing. A null pointer gives 0. docs/config-store.md tells where the values lie. */
#ifndef APPLATFORM_CONFIG_STORE_H
#define APPLATFORM_CONFIG_STORE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `key` with its NUL, at most 2308 bytes, into `value`. Non-zero: found; 0: missing, `value` untouched. */
int GetValue(const char *key, char *value);

/* 1: stored, seen by every process at once, not yet persistent; 0: failed or refused. What a line `key=value` cannot hold
   is refused: a key that is empty, longer than 511 bytes, begins with "#" or holds "="; a value longer than 2307 bytes; a
   line feed or carriage return. */
int SetValue(const char *key, const char *value);

/* 1: removed; 0: it was not there. */
int UnSetValue(const char *key);

/* 1: everything set so far survives a power cut; 0: failed. */
int CommitCfm(void);

/* 1: the factory values of "/webroot_ro/default.cfg" replaced the working set; 0: no such file or no value in it, nothing
   changed. Malformed lines are left out. */
int RestoreValue(void);

/* 1: "/webroot/default.cfg" and then "/webroot/default_url.cfg" (lines `key=value`, the last of a key wins) replaced the
   working set; 0: a file is missing, a line is malformed or there is no value, nothing changed. */
int UploadValue(void);

/* The factory store, with the same conventions. */
int ApmibGetValue(const char *key, char *value);
int ApmibSetValue(const char *key, const char *value);
int ApmibCommitCfm(void);

#ifdef __cplusplus
}
#endif

#endif
