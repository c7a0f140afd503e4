/* config_store.h: the configuration store and the factory store: dotted keys, text values, shared by all processes. */
#ifndef APPLATFORM_CONFIG_STORE_H
#define APPLATFORM_CONFIG_STORE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `key` with its NUL, at most 2308 bytes, into `value`. Non-zero: found; 0: missing, `value` untouched. */
int GetValue(const char *key, char *value);

/* 1: stored, seen by every process at once, not yet persistent; 0: failed or refused (too long, a line feed or carriage
   return, "=" in the key). */
int SetValue(const char *key, const char *value);

/* 1: removed; 0: it was not there. */
int UnSetValue(const char *key);

/* 1: everything set so far survives a power cut; 0: failed. */
int CommitCfm(void);

/* 1: the factory values of "/webroot_ro/default.cfg" replaced the working set; 0: failed, nothing changed. */
int RestoreValue(void);

/* 1: "/webroot/default.cfg" and then "/webroot/default_url.cfg" (lines `key=value`, the last of a key wins) replaced the
   working set; 0: failed, nothing changed. */
int UploadValue(void);

/* The factory store, with the same conventions. */
int ApmibGetValue(const char *key, char *value);
int ApmibSetValue(const char *key, const char *value);
int ApmibCommitCfm(void);

#ifdef __cplusplus
}
#endif

#endif
