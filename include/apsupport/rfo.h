/* rfo.h: channel and power optimisation workers for a central controller.

   A survey run measures and reports; the controller decides; an apply call carries it out:

       static void report(const void *record, int length) { send_to_controller(record, length); }
       const unsigned char now[2] = {0, 0};              // immediate, no extra delay
       if (set_ap_chan_optmz(report, now) != 0) puts("another run is active");
       const unsigned char choice[5] = {0, 11, 20, 44, 80};  // mode, 2.4 GHz channel and MHz, 5 GHz channel and MHz
       set_ap_chan_optmzCfg(report, choice);

   Caveats
   - At most one run, of either kind, is active at a time; it runs on a detached thread that cannot be cancelled. A record
     that a callback gets is valid during the call only, which comes on that thread (or, for a scheduled apply, on the
     message bus's).
   - Integers in records travel in the device's own little-endian order.
   - Steps give 2 for success and 1 for failure; the entry points of surveys give 0 and -1.
   - A scene message carries no length: only its own counts bound what is read of it. */
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
    char mac[18];         /* 0 */
    uint8_t channels_24g; /* 18 */
    uint8_t channels_5g;  /* 19 */
    uint8_t zero_20;      /* 20 */
    uint8_t neighbours;   /* 21 */
    uint8_t zero_22[2];   /* 22 */
};                        /* 24 bytes */
struct ChannelRecord {
    uint8_t own_channel;   /* 0 */
    uint8_t own_extension; /* 1 */
    uint8_t own_bandwidth; /* 2 */
    uint8_t channel;       /* 3 */
    uint32_t ap_num;       /* 4 */
    uint32_t busy;         /* 8 */
    uint32_t score;        /* 12 */
};                         /* 16 bytes */
struct NeighbourRecord {
    char identity[18];  /* 0 */
    int16_t rssi_24g;   /* 18 */
    int16_t rssi_5g;    /* 20 */
    uint8_t zero_22[2]; /* 22 */
};                      /* 24 bytes */

/* power survey report: this head, the NeighbourRecords */
struct ap_rf_power_info {
    char mac[18];       /* 0 */
    uint8_t cur_24g;    /* 18 */
    uint8_t min_24g;    /* 19 */
    uint8_t max_24g;    /* 20 */
    uint8_t cur_5g;     /* 21 */
    uint8_t min_5g;     /* 22 */
    uint8_t max_5g;     /* 23 */
    uint8_t zero_24[3]; /* 24 */
    uint8_t neighbours; /* 27 */
};                      /* 28 bytes */

struct ChannelSwitchResult {
    char mac[18];            /* 0 */
    uint8_t result_24g;      /* 18 */
    uint8_t result_5g;       /* 19 */
    uint8_t result_third;    /* 20 */
    uint8_t channel_24g;     /* 21 */
    uint8_t bandwidth_24g;   /* 22 */
    uint8_t channel_5g;      /* 23 */
    uint8_t bandwidth_5g;    /* 24 */
    uint8_t channel_third;   /* 25 */
    uint8_t bandwidth_third; /* 26 */
};                           /* 27 bytes */
struct wifi_flow_info {
    uint32_t clients;    /* 0 */
    uint32_t reserved_4; /* 4 */
    uint64_t received;   /* 8 */
    uint64_t sent;       /* 16 */
};                       /* 24 bytes */

/* State that the library shares with its callers: the channels in use before a run (bandwidth, channel, extension channel
   of 2.4 GHz, then of 5 GHz; a channel of 0: none), the five bytes of a scheduled request, the first traffic samples of a
   scheduled apply, the workers' threads and the callbacks of the surveys. Read it while no run is active. */
extern unsigned char g_before_cfg[6];
extern unsigned char g_chan_cfg[5];
extern struct wifi_flow_info flow_check_info_24g;
extern struct wifi_flow_info flow_check_info_5g;
extern pthread_t chan_optmz_tid;
extern pthread_t power_optmz_tid;
extern rfo_callback upload_rf_chan_info_cb;
extern rfo_callback upload_rf_power_info_cb;

/* ---- channel ------------------------------------------------------------------------------------------------------ */

/* Starts a channel survey: stops the vendor's own optimiser, keeps the channels in use, then as
   `rfo_create_chan_optmz_thread`. `request` is 2 bytes: mode (0 immediate, else schedule; only logged) and delay in
   seconds. The callback gets an `ap_rf_chan_info` record. 0; -1 for a null request. */
int set_ap_chan_optmz(rfo_callback callback, const void *request);

/* Starts the worker, which stands back `delay` seconds and up to 4 more before it scans. 0; -1 for a null callback, an
   active run of either kind, or no thread. Any thread may call it. */
int rfo_create_chan_optmz_thread(rfo_callback callback, int delay);

/* The current bandwidth (MHz), channel and extension channel of band 24 or 5. 2; 1, the outputs unchanged, for another
   band, a radio that is off, or a driver that does not answer. */
int rfo_get_chan_info(int band, int *bandwidth, int *channel, int *extension);

/* Keeps both bands' current channels where none are kept yet. Always 2. */
int rfo_get_all_chan_info(void);

/* Copies, or forgets, a band's kept bandwidth, channel and extension channel. 2; 1 for a band other than 24 and 5. */
int rfo_get_before_cfg_info(int band, unsigned char out[3]);
int rfo_clean_before_cfg_info(int band);

/* Takes both ports of the private information element down and switches it off. Always 2. */
int rfo_neighbour_private_ie_diable(void);

/* Applies the controller's channels. `request` is 5 bytes: mode, 2.4 GHz channel and bandwidth, 5 GHz channel and
   bandwidth (MHz). Mode 0 switches both radios at once. Any other mode switches a radio with clients only after 30 seconds
   in which it carried less than 5 KB/s; its result comes in a record of its own. The callback, which may be null, gets a
   `ChannelSwitchResult`: per band 0 not handled, 1 not switched, 2 applied, 3 applied with another bandwidth. 2; 1 for a
   null request or an unreadable LAN MAC. */
int set_ap_chan_optmzCfg(rfo_callback callback, const void *request);

/* Writes the LAN MAC into the result and hands it to the callback, which may be null. 2; 1 for a null result or an
   unreadable LAN MAC. */
int rfo_chan_optmzCfg_result_handle(rfo_callback callback, struct ChannelSwitchResult *result);

/* ---- power -------------------------------------------------------------------------------------------------------- */

/* The same for a power survey; in mode 0 both radios first move to channels 6 and 36, so that all access points measure
   one another. The callback gets an `ap_rf_power_info` record. */
int set_ap_power_optmz(rfo_callback callback, const void *request);
int rfo_create_power_optmz_thread(rfo_callback callback, int delay);

/* Applies the controller's powers, 2 bytes: 2.4 GHz and 5 GHz, in the unit of the radios' "curpower" before
   "power_compensate" is taken off; 0 leaves a band alone. */
void set_ap_power_optmzCfg(const void *request);

/* ---- scene -------------------------------------------------------------------------------------------------------- */

/* Takes over the controller's roaming protocols and steering thresholds: a 16-bit header, the number of elements (16 bits),
   and per element its type (8 bits), an unused byte, the length of its value (16 bits) and the value. Type 1 holds five
   bytes: protocols (bit 0 11k, 1 11v, 2 11r), then four thresholds in dB below 0; other types and shorter values are passed
   over. 0 when nothing changed or for a null message; else the commit's result or, when that is not 0, that of the
   notification. */
int set_ap_scence_optmzCfg(const void *message);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
