/* portal.h: the captive portal's tables and its links. */
#ifndef APSUPPORT_PORTAL_H
#define APSUPPORT_PORTAL_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* kernel module and online clients */
extern void *portal_info;
int tpi_ap_portal_handle(unsigned int command, const void *data);
int ap_portal_online_user_add(const void *data, int length);
int tpi_ap_portal_get_node_info(unsigned int *count);
int tpi_ap_portal_del_mac(unsigned int count, const unsigned char (*macs)[6], int type);

/* web accounts */
struct portal_web_record {
    uint32_t reserved_0[2];         /* 0 */
    uint32_t shared;                /* 8 */
    uint32_t expires;               /* 12: expiry enabled */
    char     expiry_date[32];       /* 16: "%d-%d-%d %d:%d" */
    char     previous_name[16];     /* 48 */
    char     user_name[16];         /* 64 */
    char     password[16];          /* 80 */
    char     text[32];              /* 96 */
    char     macs[20][18];          /* 128 */
};                                  /* 488 bytes */
struct portal_web_request {
    uint32_t state;                 /* 0 */
    char     user_name[16];         /* 4 */
    char     password[16];          /* 20 */
    char     mac[18];               /* 36 */
    char     reserved_54[2];        /* 54 */
};                                  /* 56 bytes */
struct portal_broadcast {
    uint32_t type;                  /* 0 */
    uint32_t count;                 /* 4: MACs behind the head, at byte 24 */
    uint32_t socket;                /* 8 */
    uint16_t value;                 /* 12 */
    uint8_t  address[4];            /* 14 */
    uint8_t  source[6];             /* 18 */
};                                  /* 24 bytes */
struct portal_kick_batch {
    struct portal_broadcast head;   /* 0 */
    uint8_t  macs[170][6];          /* 24 */
};                                  /* 1044 bytes */
int tpi_ap_portal_add_web_user(unsigned int count, const struct portal_web_record *records);
int tpi_ap_portal_check_web_user(const struct portal_web_request *request);
int tpi_ap_portal_modify_web_user_state(const struct portal_web_request *request);
int tpi_get_web_state(struct portal_web_request *request);
int tpi_ap_portal_del_web_user(const struct portal_web_request *request);
int tpi_ap_portal_update_web_user(const struct portal_web_record *record);
void tpi_web_user_timeout(struct portal_kick_batch *batch);

/* phones, black and white lists */
struct portal_white_list {
    uint32_t count;                 /* 0 */
    char     macs[20][18];          /* 4 */
};                                  /* 364 bytes */
struct portal_black_list {
    uint32_t count;                 /* 0 */
    uint32_t reserved_4;            /* 4 */
    uint64_t phones[150];           /* 8 */
};                                  /* 1208 bytes */
struct portal_public_info {
    uint32_t build_request;         /* 0 */
    char     identity[64];          /* 4 */
    char     password[64];          /* 68 */
    char     signature[32];         /* 132 */
    char     body[128];             /* 164 */
};                                  /* 292 bytes */
struct portal_phone_request {
    uint64_t phone;                 /* 0 */
    uint32_t code;                  /* 8 */
    uint32_t status;                /* 12 */
    char     mac[18];               /* 16 */
    char     user_name[32];         /* 34 */
    char     url[2048];             /* 66 */
    char     reserved_2114[6];      /* 2114 */
};                                  /* 2120 bytes */
int tpi_check_white_mac(const char *mac);
int tpi_init_white_mac_list(const struct portal_white_list *list);
int tpi_ap_portal_init_black_list(const struct portal_black_list *list);
int tpi_check_black_list(const struct portal_phone_request *request);
int tpi_ap_portal_init_public_info(const struct portal_public_info *info);
int tpi_ap_portal_add_phone_list(struct portal_phone_request *request);
int tpi_ap_portal_check_phone(struct portal_phone_request *request);
int tpi_phone_username_timeout(void);

/* management server, controller, other access points */
struct ap_type {
    uint32_t code;                  /* 0 */
    char     name[16];              /* 4 */
};                                  /* 20 bytes */
extern struct ap_type ap_type_table[96];
int tpi_connect_with_ap_mng_svr(void *message616);
int tpi_interaction_ac(const char *controller_address, void *message616);
int tpi_portal_broadcast_pkt_to_ap(const struct portal_broadcast *request);
int catch_ap_type(unsigned int *out);
int get_vendor_type(unsigned int *out);
int get_seq_num(void);
int tpi_ap_portal_ac_nat_rule(const unsigned char address[4]);
int tpi_ap_portal_nat_rule(const char *target, int keep_route);
void tpi_move_ad_image_and_html_to_webroot(void);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
