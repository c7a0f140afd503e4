// front.cpp: the driver-neutral operations. Each forwards to its one back-end and returns what that returns.
//
// The table is the whole of it: result, operation, back-end, parameters, arguments.

#include "apsupport/wireless.h"

#define FORWARD(result, operation, back_end, parameters, arguments)                                                    \
    result operation parameters { return back_end arguments; }

FORWARD(int, wifi_get_osifname, wifi_get_osifname_by_ugw, (const char *ifname, char *out), (ifname, out))
FORWARD(int, get_client_assoc_ifname, wifi_get_client_assoc_ifname_by_ugw, (const char *ifname, char *out),
        (ifname, out))
FORWARD(int, wifi_get_extend_status, wifi_get_extend_state_by_ugw, (const char *ifname), (ifname))
FORWARD(int, wifi_get_interface_client_list, wifi_get_clientlist_by_ugw,
        (const char *ifname, WifiClientInfo *out, int capacity), (ifname, out, capacity))
FORWARD(int, wifi_get_client_list, wifi_get_client_list_by_ugw, (const char *ifname, WifiClientInfo *out, int capacity),
        (ifname, out, capacity))
FORWARD(void, wifi_get_noise, wifi_get_noise_by_ugw, (const char *ifname, int *out), (ifname, out))
FORWARD(int, wifi_get_interface_client_num, wifi_get_interface_client_num_by_ugw, (const char *ifname), (ifname))
FORWARD(int, wifi_check_interface_downup, wifi_check_interface_downup_by_ugw, (const char *ifname), (ifname))
FORWARD(int, wifi_get_interface_chaninfo, wifi_get_interface_chaninfo_by_ugw, (const char *ifname, int out[4]),
        (ifname, out))
FORWARD(int, wifi_interface_switch_chan, wifi_interface_switch_chan_by_ugw, (const char *ifname, const int request[2]),
        (ifname, request))
FORWARD(int, wifi_interface_set_txpower, wifi_interface_set_txpower_by_ugw,
        (const char *ifname, const unsigned char request[2]), (ifname, request))
FORWARD(int, wifi_interface_scan, wifi_interface_scan_by_ugw, (const char *ifname, int target, unsigned int channel),
        (ifname, target, channel))
FORWARD(int, wifi_interface_get_scanresults, wifi_interface_get_scanresults_by_ugw,
        (const char *ifname, WifiScanList *out), (ifname, out))
FORWARD(int, wifi_interface_get_scan_results, wifi_interface_get_scan_results_by_ugw,
        (const char *ifname, WifiScanList *out), (ifname, out))
FORWARD(int, wifi_interface_get_scan_results_by_ssid, wifi_get_scan_results_by_ssid,
        (const char *ifname, const char *ssid, WifiScanList *out), (ifname, ssid, out))
FORWARD(int, wifi_interface_get_spectrum, wifi_interface_get_spectrum_by_ugw,
        (const char *ifname, WifiSpectrum *out, int max), (ifname, out, max))
FORWARD(int, wifi_get_subscribe_wserver_name, wifi_get_subscribe_wserver_name_by_ugw, (char *out, int size, int kind),
        (out, size, kind))
FORWARD(int, wifi_common_isolate_data_filling, wifi_common_isolate_data_filling_by_ugw, (void *rules, void *data),
        (rules, data))
FORWARD(int, wifi_guest_isolate_enable, wifi_guest_isolate_enable_by_ugw, (void), ())
FORWARD(int, wifi_guest_isolate_disable, wifi_guest_isolate_disable_by_ugw, (void), ())
FORWARD(int, wifi_interface_destory_private_ie, wifi_interface_destory_private_ie_by_ugw, (int port), (port))
FORWARD(int, wifi_interface_disable_private_ie, wifi_interface_disable_private_ie_by_ugw, (void), ())
FORWARD(int, wifi_interface_enable_private_ie, wifi_interface_enable_private_ie_by_ugw, (void), ())
FORWARD(int, wifi_interface_create_private_ie, wifi_interface_create_private_ie_by_ugw,
        (const WifiPrivateIe *description), (description))
FORWARD(int, send_msg_to_wlan_server, send_msg_to_wlan_server_to_ugw, (const char *text), (text))
