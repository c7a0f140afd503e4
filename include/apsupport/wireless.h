/* wireless.h: names of radio and SSID settings, radio operations, client lists, scans and radio rules.

   All radio settings and all calls on radios pass here: settings are keys of the configuration store whose prefix the
   store itself names, and operations on an interface are passed on to the one back-end there is.

       char prefix[64] = "";
       get_mib_prefix(prefix, 3, 0);                          first SSID of 2.4 GHz: "wlan0.0."
       wifi_set_value(prefix, "bss_ssid", "Office");
       WifiClientInfo clients[128];
       int count = wifi_get_client_list("wlan0.0", clients, 128);
       for (int i = 0; i < count; ++i) puts(clients[i].ip);

   Caveats. A band is the number 24 or 5. Prefixes are read once in a process. Scans and surveys block their caller for
   seconds, channel by channel for more than a minute. Interface names are the firmware's ("wlan0.0"), except where an
   operating system's name is said to be written. Buffers are as large as stated; nothing may be null unless it says so.
   Every function may be called from any thread; two calls on one radio meet in the driver. */
#ifndef APSUPPORT_WIRELESS_H
#define APSUPPORT_WIRELESS_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- Configuration keys ----

   A key is a prefix directly followed by a setting's name. A prefix comes from one of six configuration values
   ("wlan24g.bss_mib_prefix", "...radio_mib_prefix", "...extra_mib_prefix" and the "wlan5g." ones, at most 63 characters);
   the separator is "_" when "wlan.mib_prefix_flag" is not 0, else ".".

   Kinds, 2.4 and 5 GHz:  2, 4 radio keys     3, 5 keys of SSID `index`    6, 7 keys of the extra interface
                         14, 15 radio name   12, 13 name of SSID `index`   16, 17 name of the extra interface
                          0 nothing           1 "lan" */
struct mib_prefix_handle {
    uint32_t kind;
    int (*build)(char *out, int index); /* writes at most 64 bytes with the NUL; 0 */
};
extern const struct mib_prefix_handle g_mib_prefix_handle[14];
/* Writes the prefix of `kind` into 64 bytes that the caller has zeroed (kind 0 writes nothing). 0; -1 for null and for a
   kind that there is not. */
int get_mib_prefix(char *namePre, unsigned int kind, int index);
/* Joins prefix and name into `out`, which has room for both. `out`; null when an argument is null. */
char *wifi_get_mibname(const char *prefix, const char *name, char *out);
/* One setting. Keys are cut to 127 characters. Writes return 1 when the stored value changed, 0 when it was the same; a
   null prefix or name gives -1. An empty text is never written (0): a setting is removed with wifi_unset_value, which
   returns 1 when there was one. wifi_get_value returns `out`, untouched when the key is missing; a value may take 2308
   bytes. wifi_get_int_value gives 0 for a missing key. */
int wifi_set_value(const char *prefix, const char *name, const char *value);
int wifi_set_int_value(const char *prefix, const char *name, int value);
char *wifi_get_value(const char *prefix, const char *name, char *out);
int wifi_get_int_value(const char *prefix, const char *name);
int wifi_unset_value(const char *prefix, const char *name);
/* The radio's key prefix of a band in `size` zeroed bytes. 0; -1 for another band, with `out` cleared. */
int get_prefix_radio_by_type(int band, char *out, int size);
/* A setting of SSID `ssid_index`, or of the radio, of a band. What they return differs, and callers count on it:
                                                       unsupported band    otherwise
   common_get_int_rate_type_bss_by_ssid_idx            -1                  the value
   common_get_value_rate_type_bss_by_ssid_idx           0                  1
   common_set_value_, common_set_int_..._by_ssid_idx    0                  1, whatever the store said
   common_get_int_rate_type_radio                       0                  the value
   common_get_rate_type_radio_value                    -1                  1
   common_set_int_rate_type_radio_value                 0                  1 changed, 0 unchanged
   common_set_rate_type_radio_value                    -1                  1 */
int common_get_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name);
int common_get_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, char *out);
int common_set_value_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, const char *value);
int common_set_int_rate_type_bss_by_ssid_idx(int band, int ssid_index, const char *name, int value);
int common_get_int_rate_type_radio(int band, const char *name);
int common_get_rate_type_radio_value(int band, const char *name, char *out);
int common_set_int_rate_type_radio_value(int band, const char *name, int value);
int common_set_rate_type_radio_value(int band, const char *name, int value);

/* ---- Records ----
   Texts end with a NUL inside their field. The driver's own figures keep its names: stat_a, stat_b, stat_c, stat_d. */

/* A station. conn_time: seconds since it associated; noise: dBm; the counters wrap at 2^32. */
typedef struct WifiClientInfo {
    char ifname[32];        /* 0 */
    char mac[18];           /* 32 */
    char ip[16];            /* 50 */
    char reserved_text[16]; /* 66 */
    char stat_a[16];        /* 82 */
    char conn_time[16];     /* 98 */
    char hostname[33];      /* 114 */
    char stat_b[8];         /* 147 */
    char noise[8];          /* 155 */
    char stat_c[16];        /* 163 */
    char stat_text[16];     /* 179 */
    char stat_d[16];        /* 195 */
    char reserved_211;      /* 211 */
    uint32_t bytes_a;       /* 212 */
    uint32_t bytes_b;       /* 216 */
} WifiClientInfo;           /* 220 bytes */
/* The stations whose address the platform knows. */
typedef struct OnlineIpEntry {
    char mac[18]; /* 0 */
    char ip[16];  /* 18 */
} OnlineIpEntry;  /* 34 bytes */
typedef struct OnlineIpTable {
    uint32_t count;             /* 0 */
    OnlineIpEntry entries[512]; /* 4 */
} OnlineIpTable;                /* 17412 bytes */
/* A network that was heard. rssi: dBm; sideband: "upper", "lower", "none"; num_a and num_b: the driver's two numbers;
   security: "none", "wep", or a type and a cipher such as "wpa2-psk/aes"; empty when the driver contradicts itself. */
typedef struct WifiScanResult {
    char reserved_0[4];   /* 0 */
    char ssid[49];        /* 4 */
    char encode[8];       /* 53 */
    char bssid[18];       /* 61 */
    char reserved_79[16]; /* 79 */
    char num_a[8];        /* 95 */
    char num_b[8];        /* 103 */
    char sideband[8];     /* 111 */
    char rssi[8];         /* 119 */
    char security[36];    /* 127 */
} WifiScanResult;         /* 163 bytes */
typedef struct WifiScanList {
    int32_t count;               /* 0 */
    WifiScanResult records[256]; /* 4 */
} WifiScanList;                  /* 41732 bytes */
/* A channel and two words of the driver's record of it. */
typedef struct WifiSpectrum {
    uint32_t channel; /* 0 */
    uint32_t word_1;  /* 4 */
    uint32_t word_3;  /* 8 */
} WifiSpectrum;       /* 12 bytes */
/* A port of the private information element that access points send in their beacons. */
typedef struct WifiPrivateIe {
    uint8_t port;          /* 0 */
    uint8_t type;          /* 1 */
    uint8_t zero_2;        /* 2 */
    char interfaces[48];   /* 3: names joined with "," */
    uint8_t one;           /* 51 */
    uint32_t max_length;   /* 52 */
    uint32_t zero_56;      /* 56 */
    uint32_t zero_60;      /* 60 */
    char payload_name[32]; /* 64 */
} WifiPrivateIe;           /* 96 bytes */

/* ---- Operations ----
   Each forwards to its back-end below and returns what that returns. */

/* The operating system's name of an interface, at most 32 bytes with the NUL; the driver's result. */
int wifi_get_osifname(const char *ifname, char *out);
/* The interface on which an SSID's clients are counted: `ifname` itself. 0. */
int get_client_assoc_ifname(const char *ifname, char *out);
/* The state of a repeater's uplink; -1 when the driver fails. */
int wifi_get_extend_status(const char *ifname);
/* The stations of an interface: the first without addresses, the second with. Returns their number, 0 when the driver
   fails. At most `capacity` records, and never more than 128, are written; a driver that reports more than `capacity`
   makes the result capacity + 1. An address comes from the platform's table, else from the kernel's file of online
   clients, where a station that is missing gets the address of the file's last line. */
int wifi_get_interface_client_list(const char *ifname, WifiClientInfo *out, int capacity);
int wifi_get_client_list(const char *ifname, WifiClientInfo *out, int capacity);
/* Noise in dBm, as the station with the greatest stat_c reports it; -95 when there is none. */
void wifi_get_noise(const char *ifname, int *out);
/* The number of stations, at most 128; 0 when the driver fails. */
int wifi_get_interface_client_num(const char *ifname);
/* 1 up, 0 down. */
int wifi_check_interface_downup(const char *ifname);
/* `out`: state 1, channel, bandwidth in MHz, second channel. 0; -1 when the driver fails, or when the interface is down:
   then only the state is written, as 0. */
int wifi_get_interface_chaninfo(const char *ifname, int out[4]);
/* Switches at once to {channel, bandwidth in MHz}. 0 / -1. */
int wifi_interface_switch_chan(const char *ifname, const int request[2]);
/* Hands two bytes, greatest power and power, to the driver. 0, whatever the driver says. */
int wifi_interface_set_txpower(const char *ifname, const unsigned char request[2]);
/* Starts a scan, for `target` when it is not 0. Up to five tries, each followed by a second when it fails. 0 / -1. */
int wifi_interface_scan(const char *ifname, int target, unsigned int channel);
/* The last results, without a new scan. 0 / -1. */
int wifi_interface_get_scanresults(const char *ifname, WifiScanList *out);
/* Surveys: all networks, or those of one SSID (null: all). One scan of five seconds; on a radar channel or at 160 MHz
   channel by channel, three seconds each (one by SSID). 0 / -1; `out` changes on success only. */
int wifi_interface_get_scan_results(const char *ifname, WifiScanList *out);
int wifi_interface_get_scan_results_by_ssid(const char *ifname, const char *ssid, WifiScanList *out);
/* As a survey, but the channels: how many records of at most `max` were written, or -1. */
int wifi_interface_get_spectrum(const char *ifname, WifiSpectrum *out, int max);
/* The topic on which the wireless server answers: 0 band configured, 1 band failed, 2 SSID configured, 3 SSID failed. At
   most size - 1 characters and a NUL. 1; 0 for another kind, with nothing written. */
int wifi_get_subscribe_wserver_name(char *out, int size, int kind);
/* Fills nothing; 0. */
int wifi_common_isolate_data_filling(void *rules, void *data);
/* Guest isolation in the kernel; the platform's result. */
int wifi_guest_isolate_enable(void);
int wifi_guest_isolate_disable(void);
/* Ports of the private information element, and the facility as a whole. A description reaches the driver as it is. 0 / -1. */
int wifi_interface_destory_private_ie(int port);
int wifi_interface_disable_private_ie(void);
int wifi_interface_enable_private_ie(void);
int wifi_interface_create_private_ie(const WifiPrivateIe *description);
/* Publishes a text for the wireless server, without its NUL; nobody answers. 0 / -1. */
int send_msg_to_wlan_server(const char *text);

/* ---- Their back-ends, in the same order, with the same arguments and results ---- */
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

/* ---- Clients and rates ---- */

/* The platform's table of online clients, its first 512 entries. 0; 1 when it cannot be had, with `table` untouched. */
int get_client_ip_mac(OnlineIpTable *table);
/* The MAC of the first entry with that address, 18 bytes; `out` stays untouched without one. */
void get_client_mac_by_ip(const char *ip, char *out);
/* The address of a MAC in the kernel's file, 16 bytes; the last line's address when no line has the MAC; `out` stays
   untouched without a file. */
void get_ip_by_online_ip(const char *mac, char *out);
/* The clients of a band, "2.4G" or "5G", over all its SSIDs that are on, with addresses. Returns how many of at most
   `capacity` were written; `stat_d` is not. Takes about 55 KB of stack. */
int wifi_get_client_lists(WifiClientInfo *out, const char *band, int capacity);
/* Keeps a sample: copies `count` records to `dst` from record `offset` on, all but stat_d. */
void ap_comm_save_clients_info(const WifiClientInfo *src, WifiClientInfo *dst, int count, int offset);
/* The rates of bytes_b and bytes_a in kbit/s as texts "%.2f": over `interval` seconds since the sample of the same client,
   "0.00" when the samples have none of it; over the whole connection without samples, without an interval, or when the
   client has been there for less. A client associated for 0 seconds gives "inf" or "nan". Returns what the formatting of
   `out_a` returned. */
int ap_comm_calc_client_rate(int interval, const WifiClientInfo *cur, const WifiClientInfo *prev, char *out_b,
                             int size_b, char *out_a, int size_a, int prev_count);

/* ---- Scans into a driver buffer of 124936 bytes; `unused` is not looked at ----
   One channel (three seconds), or all (five seconds): 0 / -1. */
int wifi_get_dfs_spectrum_scan(const char *ifname, void *buffer, int channel, int unused);
int wifi_get_spectrum_scan(const char *ifname, void *buffer, int unused);
/* 1: radar may be on that channel; 0: not, or the driver failed. */
int wifi_current_chan_is_dfs(const char *ifname, int channel);

/* ---- Radio rules ---- */

/* The platform's number of a band's radio ("wl2g.wlan_index", "wl5g.wlan_index"); 0 for another band. */
int get_wlan_index(int band);
/* Adds a name to a list separated by blanks, which has room for it, unless the list contains the name's text anywhere.
   0; -1 when an argument is null. */
int wifi_list_add_ifname(char *list, const char *name);
/* "1X1", "2X2" or "3X3" (4 bytes) for an antenna mask of 1 to 7; `out`, or null and `out` untouched for another. */
char *getTxRxChainByMask(const char *mask_text, char *out);
/* "upper", "lower" or "none" (6 bytes) for a channel; 5 to 9 leave `out` as it is. By extension channel: its text is copied
   when the bandwidth is "40" or "0" and it is neither "null" nor "0". */
void get_wifi_sideband_flag_by_channel(int channel, char *out);
void get_wifi_sideband_flag_by_exchannel(const char *exchannel_text, const char *bandwidth_text, char *out);
/* Powers as the web page shows them, by the radio's key prefix. */
int get_web_minpower(const char *prefix);
int get_web_curpower(const char *prefix);
int get_web_maxpower(const char *prefix);
/* The power to store for one that a person asks for, 0 meaning the present one: compensated, at most "maxpower", at least
   "minpower", which wins. -1 for another band. */
int adjust_radio_power(int band, int requested);
/* 1: both radios show their greatest power. */
int is_all_switch_to_highpower(void);
/* When "netcheck.adjust_power" is set: configures both radios for their greatest power, clears the key, commits, and tells
   the driver unless the commit failed. 0, or the driver's last result. */
int wifi_switch_high_power(void);
/* The other spelling of a country's code, or `code` itself; null for null. A static text: not to be freed. */
const char *wifi_driver_yondar_countrycode_convert(const char *code);
/* 1: the SSID is configured alike on both bands. */
int check_wifi_dual_band_ssid_cfg(int ssid_index);
/* Stores the 5 GHz steering threshold. 1 changed, 0 not. */
int ap_comm_set_steerd_lrssi_5(int dbm);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
