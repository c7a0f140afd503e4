// radio_operations.cpp: the back-ends that turn one operation on a radio interface into one driver call.
//
// Driver records are little-endian 32-bit words. No state is kept; any thread may call.

#include <cstdio>
#include <unistd.h>

#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "wireless/driver_records.h"

namespace ap {

namespace {

int zero_or_failure(int driver_result) { return driver_result == 0 ? 0 : -1; }

constexpr int switch_count = 5;
constexpr int scan_attempts = 5;

// Channels from 49 to 148 are scanned as radar channels.
bool is_wide_scan_channel(unsigned int channel) { return channel >= 49 && channel <= 148; }

ScanRequest scan_request_for(int target, unsigned int channel) {
    ScanRequest request;
    if (target == 0) return request;
    request.set_word(ScanRequest::target_word, static_cast<uint32_t>(target));
    request.set_word(ScanRequest::has_target_word, 1);
    if (is_wide_scan_channel(channel)) request.set_word(ScanRequest::wide_word, 1);
    return request;
}

int scan_once(const char *ifname, int target, unsigned int channel) {
    ScanRequest request = scan_request_for(target, channel);
    ChannelRecord current;
    uwb_get_chan_info(ifname, current.bytes);
    std::printf("cur_channel.bandwidth:%d\n", current.bandwidth());
    if (current.bandwidth() == 160) {
        request.set_word(ScanRequest::wide_word, 1);
        request.set_word(ScanRequest::has_target_word, 1);
    }
    return uwb_scan(ifname, request.bytes);
}

}  // namespace

}  // namespace ap

int wifi_get_osifname_by_ugw(const char *ifname, char *out) { return uwb_get_osif_name(ifname, out); }

int wifi_get_client_assoc_ifname_by_ugw(const char *ifname, char *out) {
    std::memmove(out, ifname, std::strlen(ifname) + 1);
    return 0;
}

int wifi_get_extend_state_by_ugw(const char *ifname) {
    unsigned char record[8] = {};
    if (uwb_get_extend_info(ifname, record) != 0) return -1;
    return static_cast<int>(ap::le32(record));
}

int wifi_check_interface_downup_by_ugw(const char *ifname) { return uwb_check_dev_status(ifname) == 0 ? 1 : 0; }

// The interface's name at the operating system is fetched as the driver expects it, and not used.
int wifi_get_interface_chaninfo_by_ugw(const char *ifname, int out[4]) {
    char os_name[32] = {};
    uwb_get_osif_name(ifname, os_name);
    if (uwb_check_dev_status(ifname) != 0) {
        out[0] = 0;
        return -1;
    }
    ap::ChannelRecord record;
    if (uwb_get_chan_info(ifname, record.bytes) != 0) return -1;
    out[0] = 1;
    out[1] = record.channel();
    out[2] = record.bandwidth();
    out[3] = record.extension_channel();
    return 0;
}

int wifi_interface_switch_chan_by_ugw(const char *ifname, const int request[2]) {
    unsigned char record[4 + 4 + 4 + 4] = {};
    ap::store_le(record, request[0]);
    ap::store_le(record + 4, ap::switch_count);
    ap::store_le(record + 8, request[1]);
    return ap::zero_or_failure(uwb_channel_switch(ifname, record));
}

// The driver's result is ignored.
int wifi_interface_set_txpower_by_ugw(const char *ifname, const unsigned char request[2]) {
    unsigned char record[12] = {};
    std::memcpy(record, request, 2);
    uwb_set_txpower(ifname, record);
    return 0;
}

int wifi_interface_scan_by_ugw(const char *ifname, int target, unsigned int channel) {
    if (ifname == nullptr) {
        std::puts("null pointer!");
        return -1;
    }
    for (int attempt = 0; attempt < ap::scan_attempts; ++attempt) {
        if (ap::scan_once(ifname, target, channel) == 0) return 0;
        sleep(1);
    }
    std::printf("%s scan failed!\n", ifname);
    return -1;
}

int wifi_interface_destory_private_ie_by_ugw(int port) {
    return ap::zero_or_failure(uwb_private_ie_destory_port(port));
}

int wifi_interface_disable_private_ie_by_ugw(void) { return ap::zero_or_failure(uwb_private_ie_switch(0)); }

int wifi_interface_enable_private_ie_by_ugw(void) { return ap::zero_or_failure(uwb_private_ie_switch(1)); }

// The driver's request has the description's own layout, its constant fields as the caller left them.
int wifi_interface_create_private_ie_by_ugw(const WifiPrivateIe *description) {
    if (description == nullptr) return -1;
    unsigned char request[sizeof *description];
    std::memcpy(request, description, sizeof request);
    return ap::zero_or_failure(uwb_private_ie_create_port(request));
}
