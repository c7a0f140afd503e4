/* wireless_driver.h: the radio driver. Records are plain bytes of the size in their parameter's name; 0 is success, -1 failure. */
#ifndef APPLATFORM_WIRELESS_DRIVER_H
#define APPLATFORM_WIRELESS_DRIVER_H

#ifdef __cplusplus
extern "C" {
#endif

int uwb_get_osif_name(const char *ifname, char *out);
int uwb_get_extend_info(const char *ifname, void *record8);
int uwb_get_sta_info(const char *ifname, int zero, void *records80, int capacity, int *count);
/* 0: the interface is up. */
int uwb_check_dev_status(const char *ifname);
int uwb_get_chan_info(const char *ifname, void *record24);
int uwb_channel_switch(const char *ifname, const void *request16);
int uwb_set_txpower(const char *ifname, const void *request12);
int uwb_scan(const char *ifname, const void *request160);
int uwb_get_scanresults(const char *ifname, void *buffer124936);
int uwb_get_channel_list(const char *ifname, int zero, void *list260);
/* The caller sets word 0 of the record to the channel. */
int uwb_get_dfs_radar_status(const char *ifname, void *record16);
int uwb_private_ie_create_port(const void *request96);
int uwb_private_ie_destory_port(int port);
int uwb_private_ie_switch(int on);

#ifdef __cplusplus
}
#endif

#endif
