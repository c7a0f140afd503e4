/* upgrade.h: firmware image validation and flashing.
 *
 * An uploaded file holds an image at some byte offset: a 64-byte header with big-endian fields, then the payload. The
 * checks answer what kind of image it is, whether it was built for this product, whether it fits its flash partition
 * and whether it is intact; the writers put it into flash. On a device with two kernel banks the image goes into the
 * bank that is not running, with a boot sequence number one higher than the running bank's.
 *
 *     int type;
 *     int size = get_image_file_size(file) - offset;
 *     if (flash_check_fw_type_and_crc_ap(file, offset, size, &type) != 0) return refuse();
 *     if (flash_upgradefw_ap(file, offset, size, type) != 1) return failed();     the file is gone in either case
 *     reboot();
 *
 * Caveats:
 * - One upgrade at a time. Nothing here locks, and nothing is kept between calls.
 * - `flash_upgradefw_ap` deletes the file that it is given, also when it fails. The sequence number is written into
 *   that file before it is flashed, so its checksum no longer holds afterwards.
 * - After a failure the target bank is partly erased. The running bank is never touched.
 * - A policy or a whole-flash upgrade returns -1 even when it was written: no partition is left to be locked again.
 * - What is erased is the file's whole size, header and preamble included: an image that fits its bank only without its
 *   header passes the size check, but not the erasing.
 * - Progress and messages go to standard output; entries, exits and failures to the diagnostic log and to the
 *   platform's logger, module "ap_common_so".
 * - A null file name closes descriptor 0 in `check_fw_type_ap`, and a descriptor 0 stays open in `check_fw_valid_ap`.
 *
 * Every function runs on the caller's thread, needs less than 256 KiB of memory whatever the image's size, and closes
 * what it opened, but for the last caveat. Sizes and offsets are in bytes; a negative offset is refused.
 */
#ifndef APSUPPORT_UPGRADE_H
#define APSUPPORT_UPGRADE_H

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* The kinds of image. */
enum {
    FW_TYPE_KERNEL_IMAGE = 2, /* magic 0x27051956 and class 2 */
    FW_TYPE_WEBFS_IMAGE = 3,  /* a web file system; only a caller knows one */
    FW_TYPE_POLICY_IMAGE = 4, /* magic 0x27051958 and class 4 */
    FW_TYPE_FLASH_IMAGE = 5   /* the whole flash: magic 0x03000008 */
};

/* validation: none of these changes the image or the flash */

/* Tells the kind of the image at `offset` in `file`: FW_TYPE_KERNEL_IMAGE, FW_TYPE_POLICY_IMAGE or FW_TYPE_FLASH_IMAGE;
   -1 for anything else and for a file that cannot be read there. */
int check_fw_type_ap(const char *file, int offset);

/* Compares the image's product id with the configured one: the value "fw.profile.type", or "fw.product.id" when there
   is no such value, in hexadecimal. 1: the same; -1: not, or no id is configured, or the file or the partition cannot
   be read. A type other than 2, 3 and 4 has no product id and gives 1. */
int check_fw_valid_ap(int fw_type, const char *file, int offset);

/* Compares an image's size, without its 64-byte header, with the partition that its type is for: the inactive bank,
   "WebFS", "Policy" or "ALL". 1: fits; -2: too large; -1: the partition cannot be opened or asked. `file` is not used.
   A type without a partition has room for nothing. */
int check_mtd_size_ap(int fw_type, const char *file, unsigned int size);

/* Compares the CRC-32 of the payload with the one in the header. `size` is the image's, its header included. 1: the
   same; -1: different, the file ends before `size`, it cannot be opened for reading and writing, or the type is not 2
   or 4. */
int check_fw_crc_ap(int fw_type, const char *file, int offset, int size);

/* Runs all four checks on a kernel image and stores its type through `fw_type` (also -1; null: not stored).
   0: accepted; -1: no kernel image, or of another product; -2: the checksum is wrong; -3: too large; -4: `file` is
   null. When several checks fail, -2 goes before -3, and -3 before -1. */
int flash_check_fw_type_and_crc_ap(const char *file, int offset, int size, int *fw_type);

/* The length of a file, at most INT_MAX; 0 when it is null or cannot be opened. */
int get_image_file_size(const char *file);

/* The size of the partition "ALL" in "/proc/mtd"; 0: there is none; -1: no table. From 2 GiB on the number is negative.
 */
int get_flash_size_ap(void);

/* Free memory in kB; -1 when "/proc/meminfo" cannot be read. */
int get_free_memory_size_ap(void);

/* writing */

/* Writes an image that was checked to flash and deletes `file`. Type 2 makes the target partition writable, writes it,
   makes it read-only again and re-enables the hardware watchdog; the caller reboots. Type 4 stores "/etc/policy.cfg",
   and type 5 writes the file to the whole flash; both end with -1. 1: written; -1: failed. */
int flash_upgradefw_ap(const char *file, int offset, int size, int fw_type);

/* Erases as much of a partition as the file is long and writes up to `size` bytes of the image at `offset` to it,
   without its header where the partition is "image", "firmware", "KernelFS1" or "KernelFS2". Writes the next boot
   sequence number into `file` first where it is one of the last two. 1: done; what could not be written is only
   reported. -1: the file or the partition cannot be opened or erased. */
int flash_write_mtd_ap(const char *file, int offset, int size, const char *mtd_name);

/* Erases as much of a partition as the file is long and writes the whole file to it. 1 or -1, as above. */
int write_flash_ap(const char *file, const char *mtd_name);

/* Erases the first `size` bytes of a partition, rounded up to whole erase blocks, unlocking each block before and
   locking it after. 1: erased; 0: failed, and the blocks before the failing one are erased. */
int erase_mtd_by_size_ap(const char *mtd_name, unsigned int size);

/* The name of the firmware partition of a device with only one: "image", "firmware" or "default". A constant text. */
const char *get_fw_mtd_name(void);

/* Moves an open image file 64 bytes on, past the header, when the partition is one that gets no header. */
void more_handle_ap(int fd, const char *mtd_name);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
