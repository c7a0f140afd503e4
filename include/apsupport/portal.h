/* portal.h: the captive portal's tables and its links.

   A guest logs in on the portal page:

       struct portal_web_request request = {0};
       strcpy(request.user_name, "guest");
       strcpy(request.password, "secret");
       strcpy(request.mac, "AA:BB:CC:00:00:01");
       if (tpi_ap_portal_check_web_user(&request) == 15) puts("welcome");

   Caveats
   - Results are 0 and 255 where no other codes are named.
   - Accounts, the white list, and the black list with the public information and the phones have a mutex each; their
     functions may be called from any thread. `portal_info` belongs to whoever made the last request.
   - Text fields need no NUL when they are full. Record pointers are never null unless a function says so. */
#ifndef APSUPPORT_PORTAL_H
#define APSUPPORT_PORTAL_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- kernel module and online clients ----------------------------------------------------------------------------- */

/* The client records, 112 bytes each, that the module answered last: from `malloc`, the caller frees them. */
extern void *portal_info;

/* Sends a command to the module without waiting: 0 and 1 (68 bytes of `data`; 1 loads the module first), 3, 4, 7 and 8
   (112), 5 (20736), 6 (312). Other commands do nothing. Always 0. */
int tpi_ap_portal_handle(unsigned int command, const void *data);

/* Announces an online user: `length` bytes, at most 30704. 255 when they could not be sent. */
int ap_portal_online_user_add(const void *data, int length);

/* Asks for the online clients, for at most 2 seconds. 0 and their number, with `portal_info` filled unless it is 0; 255
   without an answer. */
int tpi_ap_portal_get_node_info(unsigned int *count);

/* Sends `count` MACs in a request of netlink type `type` and waits likewise. 0, with `portal_info` filled; 255 without an
   answer or with an empty one, or for more MACs than a request holds (5116). */
int tpi_ap_portal_del_mac(unsigned int count, const unsigned char (*macs)[6], int type);

/* ---- web accounts ------------------------------------------------------------------------------------------------- */

struct portal_web_record {
    uint32_t reserved_0[2]; /* 0 */
    uint32_t shared;        /* 8 */
    uint32_t expires;       /* 12: expiry enabled */
    char expiry_date[32];   /* 16: "%d-%d-%d %d:%d" */
    char previous_name[16]; /* 48 */
    char user_name[16];     /* 64 */
    char password[16];      /* 80 */
    char text[32];          /* 96 */
    char macs[20][18];      /* 128 */
};                          /* 488 bytes */
struct portal_web_request {
    uint32_t state;      /* 0 */
    char user_name[16];  /* 4 */
    char password[16];   /* 20 */
    char mac[18];        /* 36 */
    char reserved_54[2]; /* 54 */
};                       /* 56 bytes */
struct portal_broadcast {
    uint32_t type;      /* 0 */
    uint32_t count;     /* 4: MACs behind the head, at byte 24 */
    uint32_t socket;    /* 8 */
    uint16_t value;     /* 12 */
    uint8_t address[4]; /* 14 */
    uint8_t source[6];  /* 18 */
};                      /* 24 bytes */
struct portal_kick_batch {
    struct portal_broadcast head; /* 0 */
    uint8_t macs[170][6];         /* 24 */
};                                /* 1044 bytes */
/* Adds up to 150 accounts and writes their files of bound devices. A name must begin with a letter, a digit, ".", "_" or
   "-". An expiry date is local time; one that cannot be read has passed. 0; 255 for more records, which adds none, or for
   a refused name, which is left out. */
int tpi_ap_portal_add_web_user(unsigned int count, const struct portal_web_record *records);

/* A device logs in: 15 accepted, 14 the device is not bound to the account, 13 the account is expired, 12 no such account
   or a wrong password. */
int tpi_ap_portal_check_web_user(const struct portal_web_request *request);

/* A device logs out. 255 when the account is unknown or the device is not logged in. */
int tpi_ap_portal_modify_web_user_state(const struct portal_web_request *request);

/* Writes the account's state: 0 nobody logged in, 1 logged in, 2 expired. 255 when the account is unknown. */
int tpi_get_web_state(struct portal_web_request *request);

/* Removes an account and its file. 255 when it is unknown. */
int tpi_ap_portal_del_web_user(const struct portal_web_request *request);

/* Replaces an account, found by the record's previous name or else its name, by what the record says; devices that were
   logged in are not any more. 255 when there is no such account or the new name is refused. */
int tpi_ap_portal_update_web_user(const struct portal_web_record *record);

/* Expires accounts, at most once in 60 seconds, and broadcasts their devices in batches of up to 170. The caller presets
   everything in the batch's head but the count; what was sent last, and was not full, stays in the batch. */
void tpi_web_user_timeout(struct portal_kick_batch *batch);

/* ---- phones, black and white lists -------------------------------------------------------------------------------- */

struct portal_white_list {
    uint32_t count;    /* 0 */
    char macs[20][18]; /* 4 */
};                     /* 364 bytes */
struct portal_black_list {
    uint32_t count;       /* 0 */
    uint32_t reserved_4;  /* 4 */
    uint64_t phones[150]; /* 8 */
};                        /* 1208 bytes */
struct portal_public_info {
    uint32_t build_request; /* 0 */
    char identity[64];      /* 4 */
    char password[64];      /* 68 */
    char signature[32];     /* 132 */
    char body[128];         /* 164 */
};                          /* 292 bytes */
struct portal_phone_request {
    uint64_t phone;        /* 0 */
    uint32_t code;         /* 8 */
    uint32_t status;       /* 12 */
    char mac[18];          /* 16 */
    char user_name[32];    /* 34 */
    char url[2048];        /* 66 */
    char reserved_2114[6]; /* 2114 */
};                         /* 2120 bytes */
/* 9 when the MAC text is on the white list, else 0. */
int tpi_check_white_mac(const char *mac);

/* Replace the white list, the black list or the public information whole. Always 0. */
int tpi_init_white_mac_list(const struct portal_white_list *list);
int tpi_ap_portal_init_black_list(const struct portal_black_list *list);
int tpi_ap_portal_init_public_info(const struct portal_public_info *info);

/* 18 when the request's phone is on the black list, else 19. */
int tpi_check_black_list(const struct portal_phone_request *request);

/* Makes a code for the request's phone, the only one that counts from now on, and, when the public information says so,
   writes the text-message gateway's request into `url`. 255 without memory. */
int tpi_ap_portal_add_phone_list(struct portal_phone_request *request);

/* Proves a code: 0 and status 17, with the client announced to the kernel module; else 255 and status 16. The payload of
   that announcement is 112 bytes: the MAC at 0, the user name (32) at 8, the phone (u64) at 40, the words 2 and 16 at 48
   and 52. */
int tpi_ap_portal_check_phone(struct portal_phone_request *request);

/* Forgets a code that is older than 120 seconds. Always 0. */
int tpi_phone_username_timeout(void);

/* ---- management server, controller, other access points ----------------------------------------------------------- */

struct ap_type {
    uint32_t code; /* 0 */
    char name[16]; /* 4 */
};                 /* 20 bytes */
extern struct ap_type ap_type_table[96];
/* Hands the 616-byte message to the management server and overwrites it by the answer; waits at most 2 seconds. 255, after
   a line on standard output, on any failure. */
int tpi_connect_with_ap_mng_svr(void *message616);

/* Hands a message of type 1 to 6, 21 or 22 to the controller at a dotted IPv4 address and overwrites it by the answer's
   block. The answer's status; 20 when nothing could be sent or came back within 2 seconds; 0, with nothing sent, for other
   types; 255 for a null message. */
int tpi_interaction_ac(const char *controller_address, void *message616);

/* Sends the request's MACs to all access points of the segment on its raw socket. 255 unless the whole frame went out. */
int tpi_portal_broadcast_pkt_to_ap(const struct portal_broadcast *request);

/* The code of the first table row whose name begins with "ap.apname". 0, also when none does, which leaves `out` alone; -1
   when that is not set. */
int catch_ap_type(unsigned int *out);

/* The number in "vendor.type_pack". 0; -1 when it is not set. */
int get_vendor_type(unsigned int *out);

/* The next packet's number, 0 to 255. Threads that call it at once may get the same. */
int get_seq_num(void);

/* Rebuild the address translation of portal web traffic towards the controller, or towards `target` (dotted text; null and
   what begins with "-" change nothing). A non-zero `keep_route` leaves the default route alone. Always 0. */
int tpi_ap_portal_ac_nat_rule(const unsigned char address[4]);
int tpi_ap_portal_nat_rule(const char *target, int keep_route);

/* Copies pushed pictures and pages to the web root. */
void tpi_move_ad_image_and_html_to_webroot(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
