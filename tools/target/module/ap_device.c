// SPDX-License-Identifier: MIT OR GPL-2.0
// ap_device.c: the parts of an access point's kernel that a general one lacks, for the virtual target.
//
//   flash            8 MiB in memory, with named partitions and a lock per erase block: a locked block refuses to be
//                    erased or written (EROFS), and everything is locked at start; bits are written from 1 to 0 only
//   netlink 29       the portal's client table: type 29 adds a record of up to 112 bytes whose first 6 are the MAC
//                    address, type 27 answers with all records; a list of addresses (types 25 and 26) takes those
//                    clients out and answers with their records; every other type is accepted in silence
//   /dev/castfilter  ioctl 17 on, 18 off, 19 the filter's value, 20 clear; read gives "on VALUE" or "off VALUE"

#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mtd/mtd.h>
#include <linux/mtd/partitions.h>
#include <linux/mutex.h>
#include <linux/netlink.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>
#include <net/net_namespace.h>
#include <net/sock.h>

// --- flash ---------------------------------------------------------------------------------------------------------

#define FLASH_SIZE (8u << 20)
#define ERASE_SIZE (64u << 10)

static u8 *flash;
static DECLARE_BITMAP(locked, FLASH_SIZE / ERASE_SIZE);
static DEFINE_MUTEX(flash_mutex);

static const struct mtd_partition partitions[] = {
    {.name = "Boot", .offset = 0, .size = 256u << 10},
    {.name = "KernelFS1", .offset = 256u << 10, .size = 2u << 20},
    {.name = "RootFS1", .offset = 2304u << 10, .size = 1u << 20},
    {.name = "KernelFS2", .offset = 3328u << 10, .size = 2u << 20},
    {.name = "RootFS2", .offset = 5376u << 10, .size = 1u << 20},
    {.name = "WebFS", .offset = 6400u << 10, .size = 1u << 20},
    {.name = "Policy", .offset = 7424u << 10, .size = 512u << 10},
    {.name = "CFM", .offset = 7936u << 10, .size = 256u << 10},
    {.name = "ALL", .offset = 0, .size = FLASH_SIZE},
};

static bool any_locked(loff_t from, u64 length) {
    unsigned long end = DIV_ROUND_UP((unsigned long)(from + length), ERASE_SIZE);

    return find_next_bit(locked, end, (unsigned long)from / ERASE_SIZE) < end;
}

static int flash_erase(struct mtd_info *mtd, struct erase_info *erase) {
    int result = -EROFS;

    mutex_lock(&flash_mutex);
    if (!any_locked(erase->addr, erase->len)) {
        memset(flash + erase->addr, 0xff, erase->len);
        result = 0;
    }
    mutex_unlock(&flash_mutex);
    return result;
}

static int flash_read(struct mtd_info *mtd, loff_t from, size_t length, size_t *read, u_char *to) {
    memcpy(to, flash + from, length);
    *read = length;
    return 0;
}

static int flash_write(struct mtd_info *mtd, loff_t to, size_t length, size_t *written, const u_char *from) {
    int result = -EROFS;
    size_t i;

    mutex_lock(&flash_mutex);
    if (!any_locked(to, length)) {
        for (i = 0; i < length; ++i) flash[to + i] &= from[i];
        *written = length;
        result = 0;
    }
    mutex_unlock(&flash_mutex);
    return result;
}

static int flash_lock(struct mtd_info *mtd, loff_t from, u64 length) {
    bitmap_set(locked, from / ERASE_SIZE, DIV_ROUND_UP((u32)length, ERASE_SIZE));
    return 0;
}

static int flash_unlock(struct mtd_info *mtd, loff_t from, u64 length) {
    bitmap_clear(locked, from / ERASE_SIZE, DIV_ROUND_UP((u32)length, ERASE_SIZE));
    return 0;
}

static int flash_is_locked(struct mtd_info *mtd, loff_t from, u64 length) { return any_locked(from, length); }

static struct mtd_info flash_info = {
    .name = "ap_flash",
    .type = MTD_NORFLASH,
    .flags = MTD_CAP_NORFLASH,
    .size = FLASH_SIZE,
    .erasesize = ERASE_SIZE,
    .writesize = 1,
    .writebufsize = 1,
    .owner = THIS_MODULE,
    ._erase = flash_erase,
    ._read = flash_read,
    ._write = flash_write,
    ._lock = flash_lock,
    ._unlock = flash_unlock,
    ._is_locked = flash_is_locked,
};

static int start_flash(void) {
    flash = vmalloc(FLASH_SIZE);
    if (!flash) return -ENOMEM;
    memset(flash, 0xff, FLASH_SIZE);
    bitmap_fill(locked, FLASH_SIZE / ERASE_SIZE);
    return mtd_device_register(&flash_info, partitions, ARRAY_SIZE(partitions));
}

// --- the portal's client table
// -----------------------------------------------------------------------------------------

#define PORTAL_PROTOCOL 29
#define RECORD_SIZE 112
#define RECORDS_MAX 64
#define MAC_SIZE 6

enum { DELETE_FIRST = 25, DELETE_LAST = 26, GET_NODES = 27, ADD_USER = 29 };

struct answer {
    u32 count;
    u8 records[RECORDS_MAX][RECORD_SIZE];
};

static struct sock *portal_socket;
static struct answer clients, outgoing;  // netlink hands over one message at a time, under its own lock
static DEFINE_MUTEX(portal_mutex);

static void send_answer(const struct nlmsghdr *request, u32 port) {
    size_t length = sizeof(u32) + (size_t)outgoing.count * RECORD_SIZE;
    struct sk_buff *buffer = nlmsg_new(length, GFP_KERNEL);
    struct nlmsghdr *header;

    if (!buffer) return;
    header = nlmsg_put(buffer, 0, request->nlmsg_seq, request->nlmsg_type, length, 0);
    memcpy(nlmsg_data(header), &outgoing, length);
    nlmsg_unicast(portal_socket, buffer, port);
}

static void add_client(const u8 *payload, size_t length) {
    if (length < MAC_SIZE || clients.count == RECORDS_MAX) return;
    memset(clients.records[clients.count], 0, RECORD_SIZE);
    memcpy(clients.records[clients.count], payload, min_t(size_t, length, RECORD_SIZE));
    ++clients.count;
}

static bool is_listed(const u8 *record, const u8 *macs, u32 count) {
    u32 i;

    for (i = 0; i < count; ++i)
        if (!memcmp(record, macs + i * MAC_SIZE, MAC_SIZE)) return true;
    return false;
}

static void take_out(const u8 *payload, size_t length) {
    u32 count = 0, kept = 0, i;

    outgoing.count = 0;
    if (length < sizeof count) return;
    memcpy(&count, payload, sizeof count);
    count = min_t(u32, count, (length - sizeof count) / MAC_SIZE);
    for (i = 0; i < clients.count; ++i) {
        const u8 *record = clients.records[i];
        bool leaves = is_listed(record, payload + sizeof count, count);

        memmove(leaves ? outgoing.records[outgoing.count++] : clients.records[kept++], record, RECORD_SIZE);
    }
    clients.count = kept;
}

static void portal_receive(struct sk_buff *buffer) {
    const struct nlmsghdr *header = nlmsg_hdr(buffer);
    u32 port = NETLINK_CB(buffer).portid;

    if (buffer->len < NLMSG_HDRLEN || !nlmsg_ok(header, buffer->len)) return;
    mutex_lock(&portal_mutex);
    if (header->nlmsg_type == ADD_USER) {
        add_client(nlmsg_data(header), nlmsg_len(header));
    } else if (header->nlmsg_type == GET_NODES) {
        outgoing = clients;
        send_answer(header, port);
    } else if (header->nlmsg_type >= DELETE_FIRST && header->nlmsg_type <= DELETE_LAST) {
        take_out(nlmsg_data(header), nlmsg_len(header));
        send_answer(header, port);
    }
    mutex_unlock(&portal_mutex);
}

// --- the cast filter
// ---------------------------------------------------------------------------------------------------

enum { FILTER_ON = 17, FILTER_OFF = 18, FILTER_VALUE = 19, FILTER_CLEAR = 20 };

static int filter_on, filter_value;

static long filter_ioctl(struct file *file, unsigned int request, unsigned long argument) {
    int number = 0;

    if (request < FILTER_ON || request > FILTER_CLEAR) return -ENOTTY;
    if (request != FILTER_CLEAR && get_user(number, (int __user *)argument)) return -EFAULT;
    switch (request) {
    case FILTER_ON: filter_on = number != 0; break;
    case FILTER_OFF: filter_on = 0; break;
    default: filter_value = number; break;
    }
    return 0;
}

static ssize_t filter_read(struct file *file, char __user *to, size_t size, loff_t *position) {
    char text[32];
    int length = scnprintf(text, sizeof text, "%s %d\n", filter_on ? "on" : "off", filter_value);

    return simple_read_from_buffer(to, size, position, text, length);
}

static const struct file_operations filter_operations = {
    .owner = THIS_MODULE, .unlocked_ioctl = filter_ioctl, .read = filter_read};

static struct miscdevice filter_device = {
    .minor = MISC_DYNAMIC_MINOR, .name = "castfilter", .fops = &filter_operations};

// --- the module
// ----------------------------------------------------------------------------------------------------------

static int __init ap_device_init(void) {
    struct netlink_kernel_cfg portal_cfg = {.input = portal_receive};
    int result = start_flash();

    if (result) goto without_flash;
    result = misc_register(&filter_device);
    if (result) goto without_filter;
    portal_socket = netlink_kernel_create(&init_net, PORTAL_PROTOCOL, &portal_cfg);
    if (portal_socket) return 0;

    result = -ENOMEM;
    misc_deregister(&filter_device);
without_filter:
    mtd_device_unregister(&flash_info);
without_flash:
    vfree(flash);
    return result;
}

static void __exit ap_device_exit(void) {
    netlink_kernel_release(portal_socket);
    misc_deregister(&filter_device);
    mtd_device_unregister(&flash_info);
    vfree(flash);
}

module_init(ap_device_init);
module_exit(ap_device_exit);
MODULE_LICENSE("Dual MIT/GPL");
MODULE_DESCRIPTION("Flash, portal socket and cast filter of a virtual access point");
