// wlan_server.cpp: one-way requests to the wireless server over the message bus, the topics on which it answers, and
// guest isolation.

#include <cstdio>
#include <iterator>
#include <syslog.h>

#include "applatform/kernel_rules.h"
#include "applatform/message_bus.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "foundation/text.h"

namespace ap {

namespace {

// By kind. The third is spelled "bbs", as the wireless server publishes it.
constexpr const char *wireless_server_topics[] = {
    "ugw.wserver.config_band_success",
    "ugw.wserver.config_band_fail",
    "ugw.wserver.config_bbs_success",
    "ugw.wserver.config_bss_fail",
};

constexpr int log_priority = 1;

// The text behind its 32-bit length. Only the room for it is tested: the bus carries the text alone.
HeapPtr<char> frame_message(const char *text, size_t length) {
    HeapPtr<char> frame(static_cast<char *>(std::malloc(4 + length)));
    if (!frame) return frame;
    store_le(frame.get(), static_cast<uint32_t>(length));
    std::memcpy(frame.get() + 4, text, length);
    asm volatile(""
                 :
                 : "r"(frame.get())
                 : "memory");  // keeps the compiler from dropping an allocation that nobody reads
    return frame;
}

}  // namespace

}  // namespace ap

int wifi_get_subscribe_wserver_name_by_ugw(char *out, int size, int kind) {
    if (kind < 0 || kind >= static_cast<int>(std::size(ap::wireless_server_topics))) return 0;
    if (size > 0) ap::copy_text(out, static_cast<size_t>(size), ap::wireless_server_topics[kind]);
    return 1;
}

int wifi_common_isolate_data_filling_by_ugw(void *, void *) { return 0; }

int wifi_guest_isolate_enable_by_ugw(void) {
    std::puts("wifi_guest_isolate_enable_by_ugw");
    return km_interface_isolate_enable();
}

int wifi_guest_isolate_disable_by_ugw(void) {
    std::puts("wifi_guest_isolate_disable_by_ugw");
    return km_interface_isolate_disable();
}

int send_msg_to_wlan_server_to_ugw(const char *text) {
    if (text == nullptr) {
        syslog(ap::log_priority, "data is NULL!");
        std::printf("[%s][%d] data is NULL!\n", __func__, __LINE__);
        return -1;
    }
    const size_t length = std::strlen(text);
    const ap::HeapPtr<char> frame = ap::frame_message(text, length);
    if (!frame) {
        syslog(ap::log_priority, "[%s] msg malloc failed!", text);
        std::printf("[%s][%d][%s] msg malloc failed!\n", __func__, __LINE__, text);
        return -1;
    }
    if (holymsg_publish("ugw.wserver.message", text, static_cast<unsigned int>(length)) < 0) {
        syslog(ap::log_priority, "[%s] publish WLAN_SERVER_MSG_TYPE failed!", text);
        std::printf("[%s][%d][%s] publish WLAN_SERVER_MSG_TYPE failed!\n", __func__, __LINE__, text);
        return -1;
    }
    return 0;
}
