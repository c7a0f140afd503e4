/* rfo.h: channel and power optimisation workers for a central controller. */
#ifndef APSUPPORT_RFO_H
#define APSUPPORT_RFO_H

#include <pthread.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef void (*rfo_callback)(const void *record, int length);

/* channel survey report: this head, the 2.4 GHz ChannelRecords, the 5 GHz ChannelRecords, the NeighbourRecords */
struct ap_rf_chan_info {
    char     mac[18];               /* 0 */
    uint8_t  channels_24g;          /* 18 */
    uint8_t  channels_5g;           /* 19 */
    uint8_t  zero_20;               /* 20 */
    uint8_t  neighbours;            /* 21 */
    uint8_t  zero_22[2];            /* 22 */
};                                  /* 24 bytes */
struct ChannelRecord {
    uint8_t  own_channel;           /* 0 */
    uint8_t  own_extension;         /* 1 */
    uint8_t  own_bandwidth;         /* 2 */
    uint8_t  channel;               /* 3 */
    uint32_t ap_num;                /* 4 */
    uint32_t busy;                  /* 8 */
    uint32_t score;                 /* 12 */
};                                  /* 16 bytes */
struct NeighbourRecord {
    char     identity[18];          /* 0 */
    int16_t  rssi_24g;              /* 18 */
    int16_t  rssi_5g;               /* 20 */
    uint8_t  zero_22[2];            /* 22 */
};                                  /* 24 bytes */

/* power survey report: this head, the NeighbourRecords */
struct ap_rf_power_info {
    char     mac[18];               /* 0 */
    uint8_t  cur_24g;               /* 18 */
    uint8_t  min_24g;               /* 19 */
    uint8_t  max_24g;               /* 20 */
    uint8_t  cur_5g;                /* 21 */
    uint8_t  min_5g;                /* 22 */
    uint8_t  max_5g;                /* 23 */
    uint8_t  zero_24[3];            /* 24 */
    uint8_t  neighbours;            /* 27 */
};                                  /* 28 bytes */

struct ChannelSwitchResult {
    char     mac[18];               /* 0 */
    uint8_t  result_24g;            /* 18 */
    uint8_t  result_5g;             /* 19 */
    uint8_t  result_third;          /* 20 */
    uint8_t  channel_24g;           /* 21 */
    uint8_t  bandwidth_24g;         /* 22 */
    uint8_t  channel_5g;            /* 23 */
    uint8_t  bandwidth_5g;          /* 24 */
    uint8_t  channel_third;         /* 25 */
    uint8_t  bandwidth_third;       /* 26 */
};                                  /* 27 bytes */
struct wifi_flow_info {
    uint32_t clients;               /* 0 */
    uint32_t reserved_4;            /* 4 */
    uint64_t received;              /* 8 */
    uint64_t sent;                  /* 16 */
};                                  /* 24 bytes */

/* state that the library shares with its callers */
extern unsigned char g_before_cfg[6];
extern unsigned char g_chan_cfg[5];
extern struct wifi_flow_info flow_check_info_24g;
extern struct wifi_flow_info flow_check_info_5g;
extern pthread_t chan_optmz_tid;
extern pthread_t power_optmz_tid;
extern rfo_callback upload_rf_chan_info_cb;
extern rfo_callback upload_rf_power_info_cb;

/* channel */
int set_ap_chan_optmz(rfo_callback callback, const void *request);
int rfo_create_chan_optmz_thread(rfo_callback callback, int delay);
int rfo_get_chan_info(int band, int *bandwidth, int *channel, int *extension);
int rfo_get_all_chan_info(void);
int rfo_get_before_cfg_info(int band, unsigned char out[3]);
int rfo_clean_before_cfg_info(int band);
int rfo_neighbour_private_ie_diable(void);
int set_ap_chan_optmzCfg(rfo_callback callback, const void *request);
int rfo_chan_optmzCfg_result_handle(rfo_callback callback, struct ChannelSwitchResult *result);

/* power */
int set_ap_power_optmz(rfo_callback callback, const void *request);
int rfo_create_power_optmz_thread(rfo_callback callback, int delay);
void set_ap_power_optmzCfg(const void *request);

/* scene */
int set_ap_scence_optmzCfg(const void *message);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
