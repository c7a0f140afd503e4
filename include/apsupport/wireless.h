/* wireless.h: names of radio and SSID settings, radio operations, client lists, scans and radio rules. */
#ifndef APSUPPORT_WIRELESS_H
#define APSUPPORT_WIRELESS_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* configuration keys */
struct mib_prefix_handle {
    uint32_t kind;
    int (*build)(char *out, int index);
};
extern const struct mib_prefix_handle g_mib_prefix_handle[14];
int get_mib_prefix(char *namePre, unsigned int kind, int index);
char *wifi_get_mibname(const char *prefix, const char *name, char *out);
int wifi_set_value(const char *prefix, const char *name, const char *value);
int wifi_set_int_value(const char *prefix, const char *name, int value);
char *wifi_get_value(const char *prefix, const char *name, char *out);
int wifi_get_int_value(const char *prefix, const char *name);
int wifi_unset_value(const char *prefix, const char *name);
int get_prefix_radio_by_type(int band, char *out, int size);
int common_get_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name);
int common_get_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, char *out);
int common_set_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, const char *value);
int common_set_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, int value);
int common_get_int_rate_type_radio(int band, const char *name);
int common_get_rate_type_radio_value(int band, const char *name, char *out);
int common_set_int_rate_type_radio_value(int band, const char *name, int value);
int common_set_rate_type_radio_value(int band, const char *name, int value);

/* records */
typedef struct WifiClientInfo {
    char     ifname[32];            /* 0 */
    char     mac[18];               /* 32 */
    char     ip[16];                /* 50 */
    char     reserved_text[16];     /* 66 */
    char     stat_a[16];            /* 82 */
    char     conn_time[16];         /* 98 */
    char     hostname[33];          /* 114 */
    char     stat_b[8];             /* 147 */
    char     noise[8];              /* 155 */
    char     stat_c[16];            /* 163 */
    char     stat_text[16];         /* 179 */
    char     stat_d[16];            /* 195 */
    char     reserved_211;          /* 211 */
    uint32_t bytes_a;               /* 212 */
    uint32_t bytes_b;               /* 216 */
} WifiClientInfo;                   /* 220 bytes */
typedef struct OnlineIpEntry {
    char     mac[18];               /* 0 */
    char     ip[16];                /* 18 */
} OnlineIpEntry;                    /* 34 bytes */
typedef struct OnlineIpTable {
    uint32_t count;                 /* 0 */
    OnlineIpEntry entries[512];     /* 4 */
} OnlineIpTable;                    /* 17412 bytes */
typedef struct WifiScanResult {
    char     reserved_0[4];         /* 0 */
    char     ssid[49];              /* 4 */
    char     encode[8];             /* 53 */
    char     bssid[18];             /* 61 */
    char     reserved_79[16];       /* 79 */
    char     num_a[8];              /* 95 */
    char     num_b[8];              /* 103 */
    char     sideband[8];           /* 111 */
    char     rssi[8];               /* 119 */
    char     security[36];          /* 127 */
} WifiScanResult;                   /* 163 bytes */
typedef struct WifiScanList {
    int32_t  count;                 /* 0 */
    WifiScanResult records[256];    /* 4 */
} WifiScanList;                     /* 41732 bytes */
typedef struct WifiSpectrum {
    uint32_t channel;               /* 0 */
    uint32_t word_1;                /* 4 */
    uint32_t word_3;                /* 8 */
} WifiSpectrum;                     /* 12 bytes */
typedef struct WifiPrivateIe {
    uint8_t  port;                  /* 0 */
    uint8_t  type;                  /* 1 */
    uint8_t  zero_2;                /* 2 */
    char     interfaces[48];        /* 3: names joined with "," */
    uint8_t  one;                   /* 51 */
    uint32_t max_length;            /* 52 */
    uint32_t zero_56;               /* 56 */
    uint32_t zero_60;               /* 60 */
    char     payload_name[32];      /* 64 */
} WifiPrivateIe;                    /* 96 bytes */

/* operations */
int wifi_get_osifname(const char *ifname, char *out);
int get_client_assoc_ifname(const char *ifname, char *out);
int wifi_get_extend_status(const char *ifname);
int wifi_get_interface_client_list(const char *ifname, WifiClientInfo *out, int capacity);
int wifi_get_client_list(const char *ifname, WifiClientInfo *out, int capacity);
void wifi_get_noise(const char *ifname, int *out);
int wifi_get_interface_client_num(const char *ifname);
int wifi_check_interface_downup(const char *ifname);
int wifi_get_interface_chaninfo(const char *ifname, int out[4]);
int wifi_interface_switch_chan(const char *ifname, const int request[2]);
int wifi_interface_set_txpower(const char *ifname, const unsigned char request[2]);
int wifi_interface_scan(const char *ifname, int target, unsigned int channel);
int wifi_interface_get_scanresults(const char *ifname, WifiScanList *out);
int wifi_interface_get_scan_results(const char *ifname, WifiScanList *out);
int wifi_interface_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out);
int wifi_interface_get_spectrum(const char *ifname, WifiSpectrum *out, int max);
int wifi_get_subscribe_wserver_name(char *out, int size, int kind);
int wifi_common_isolate_data_filling(void *rules, void *data);
int wifi_guest_isolate_enable(void);
int wifi_guest_isolate_disable(void);
int wifi_interface_destory_private_ie(int port);
int wifi_interface_disable_private_ie(void);
int wifi_interface_enable_private_ie(void);
int wifi_interface_create_private_ie(const WifiPrivateIe *description);
int send_msg_to_wlan_server(const char *text);

/* their back-ends, in the same order */
int wifi_get_osifname_by_ugw(const char *ifname, char *out);
int wifi_get_client_assoc_ifname_by_ugw(const char *ifname, char *out);
int wifi_get_extend_state_by_ugw(const char *ifname);
int wifi_get_clientlist_by_ugw(const char *ifname, WifiClientInfo *out, int capacity);
int wifi_get_client_list_by_ugw(const char *ifname, WifiClientInfo *out, int capacity);
void wifi_get_noise_by_ugw(const char *ifname, int *out);
int wifi_get_interface_client_num_by_ugw(const char *ifname);
int wifi_check_interface_downup_by_ugw(const char *ifname);
int wifi_get_interface_chaninfo_by_ugw(const char *ifname, int out[4]);
int wifi_interface_switch_chan_by_ugw(const char *ifname, const int request[2]);
int wifi_interface_set_txpower_by_ugw(const char *ifname, const unsigned char request[2]);
int wifi_interface_scan_by_ugw(const char *ifname, int target, unsigned int channel);
int wifi_interface_get_scanresults_by_ugw(const char *ifname, WifiScanList *out);
int wifi_interface_get_scan_results_by_ugw(const char *ifname, WifiScanList *out);
int wifi_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out);
int wifi_interface_get_spectrum_by_ugw(const char *ifname, WifiSpectrum *out, int max);
int wifi_get_subscribe_wserver_name_by_ugw(char *out, int size, int kind);
int wifi_common_isolate_data_filling_by_ugw(void *rules, void *data);
int wifi_guest_isolate_enable_by_ugw(void);
int wifi_guest_isolate_disable_by_ugw(void);
int wifi_interface_destory_private_ie_by_ugw(int port);
int wifi_interface_disable_private_ie_by_ugw(void);
int wifi_interface_enable_private_ie_by_ugw(void);
int wifi_interface_create_private_ie_by_ugw(const WifiPrivateIe *description);
int send_msg_to_wlan_server_to_ugw(const char *text);

/* clients and rates */
int get_client_ip_mac(OnlineIpTable *table);
void get_client_mac_by_ip(const char *ip, char *out);
void get_ip_by_online_ip(const char *mac, char *out);
int wifi_get_client_lists(WifiClientInfo *out, const char *band, int capacity);
void ap_comm_save_clients_info(const WifiClientInfo *src, WifiClientInfo *dst, int count, int offset);
int ap_comm_calc_client_rate(int interval, const WifiClientInfo *cur, const WifiClientInfo *prev, char *out_b, int size_b, char *out_a, int size_a, int prev_count);

/* scans into a driver buffer */
int wifi_get_dfs_spectrum_scan(const char *ifname, void *buffer, int channel, int unused);
int wifi_get_spectrum_scan(const char *ifname, void *buffer, int unused);
int wifi_current_chan_is_dfs(const char *ifname, int channel);

/* radio settings */
int get_wlan_index(int band);
int wifi_list_add_ifname(char *list, const char *name);
char *getTxRxChainByMask(const char *mask_text, char *out);
void get_wifi_sideband_flag_by_channel(int channel, char *out);
void get_wifi_sideband_flag_by_exchannel(const char *exchannel_text, const char *bandwidth_text, char *out);
int get_web_minpower(const char *prefix);
int get_web_curpower(const char *prefix);
int get_web_maxpower(const char *prefix);
int adjust_radio_power(int band, int requested);
int is_all_switch_to_highpower(void);
int wifi_switch_high_power(void);
const char *wifi_driver_yondar_countrycode_convert(const char *code);
int check_wifi_dual_band_ssid_cfg(int ssid_index);
int ap_comm_set_steerd_lrssi_5(int dbm);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
