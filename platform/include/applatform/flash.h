/* flash.h: flash partitions and checksums. */
#ifndef APPLATFORM_FLASH_H
#define APPLATFORM_FLASH_H

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the partition of that name; a descriptor, or -1. */
int mtd_open(const char *name, int flags);

/* zlib's own. */
unsigned long crc32(unsigned long crc, const unsigned char *data, unsigned int length);

/* Writes a file to a partition. 0: ok; 1: failed. */
int file_to_flash(const char *file, const char *partition);
int nandfile_and_file_to_switch(const char *file, const char *copy);
/* 4: NAND. */
int get_flash_type(void);

#ifdef __cplusplus
}
#endif

#endif
