// scene.cpp: the controller's scene: fast-roaming protocols and steering thresholds.
//
// The message is a 16-bit header, the number of elements and the elements, each a type, an unused byte, the length of
// its value and the value; integers are little-endian. It carries no length of its own, so its counts are trusted.

#include <cstdio>

#include "applatform/config_store.h"
#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "rfo/log.h"
#include "rfo/radio.h"

namespace ap {

namespace {

constexpr uint8_t steering_type = 1;
constexpr size_t message_head_size = 2 + 2, element_head_size = 1 + 1 + 2;
constexpr int api_message = 19, api_operation = 9;
constexpr size_t prefix_size = 64;

struct Steering {
    uint8_t protocols, limit_24g, band_safe_limit, limit_5g, ap_safe_limit;
};
static_assert(sizeof(Steering) == 5);

struct RoamingProtocol {
    uint8_t bit;
    const char *name, *ssid_key;
};
constexpr RoamingProtocol roaming_protocols[] = {
    {1 << 0, "11k", "bss_dot11k"}, {1 << 1, ";11v", "bss_dot11v"}, {1 << 2, ";11r", "bss_dot11r"}};

// The kinds of key prefixes of a band.
struct BandKeys {
    unsigned int radio_kind, ssid_kind;
};
constexpr BandKeys band_keys[] = {{2, 3}, {4, 5}};

// Without 11k the list begins with a semicolon.
int store_protocol_list(uint8_t protocols) {
    char list[sizeof "11k;11v;11r"] = {};
    size_t length = 0;
    for (const auto &protocol : roaming_protocols) {
        if ((protocols & protocol.bit) == 0) continue;
        length += copy_text(list + length, sizeof list - length, protocol.name);
    }
    return prod_cfm_set_val("kvr_enable_str", list);
}

int store_ssid_protocols(const BandKeys &keys, uint8_t protocols) {
    char radio[prefix_size] = {};
    get_mib_prefix(radio, keys.radio_kind, 0);
    const int count = std::min(wifi_get_int_value(radio, "web_maxbss"), most_ssids);
    int changes = 0;
    for (int i = 0; i < count; ++i) {
        char ssid[prefix_size] = {};
        get_mib_prefix(ssid, keys.ssid_kind, i);
        for (const auto &protocol : roaming_protocols)
            changes += wifi_set_int_value(ssid, protocol.ssid_key, (protocols & protocol.bit) != 0 ? 1 : 0);
    }
    return changes;
}

int store_threshold(const char *key, int decibels) {
    char text[sizeof "-255"];
    std::snprintf(text, sizeof text, "-%d", decibels);
    return prod_cfm_set_val(key, text);
}

int apply_steering(const Steering &steering) {
    RFO_TRACE(
        " steer_protocol_11:%d steer_limit:%d steer_5g_limit:%d band_steer_safe_limit:%d ap_steer_safe_limit:%d\n",
        steering.protocols, steering.limit_24g, steering.limit_5g, steering.band_safe_limit, steering.ap_safe_limit);
    int changes = store_protocol_list(steering.protocols);
    for (const auto &keys : band_keys) changes += store_ssid_protocols(keys, steering.protocols);
    changes += store_threshold("steerd.lrssi_2", steering.limit_24g);
    changes += ap_comm_set_steerd_lrssi_5(-int{steering.limit_5g});
    changes += store_threshold("steerd.band_safe_rssi_5", steering.band_safe_limit);
    changes += store_threshold("steerd.ap_safe_rssi_5", steering.ap_safe_limit);
    return changes;
}

// The number of settings that an element changed.
int apply_element(const unsigned char *element, uint16_t value_length) {
    RFO_TRACE(" type:%d date_length:%d\n", element[0], value_length);
    if (element[0] != steering_type || value_length < sizeof(Steering)) return 0;
    Steering steering;
    std::memcpy(&steering, element + element_head_size, sizeof steering);
    return apply_steering(steering);
}

int commit_and_notify() {
    const int committed = CommitCfm();
    if (committed == 0) return committed;
    char operation[sizeof "op=" + 11];
    std::snprintf(operation, sizeof operation, "op=%d", api_operation);
    return ap_comm_send_msg_to_api(api_message, operation);
}

}  // namespace

}  // namespace ap

using namespace ap;

int set_ap_scence_optmzCfg(const void *message) {
    if (message == nullptr) return RFO_ERROR("recv msg is NULL.\n"), 0;
    const auto *bytes = static_cast<const unsigned char *>(message);
    const uint16_t count = le16(bytes + 2);
    const unsigned char *element = bytes + message_head_size;
    int changes = 0;
    for (uint16_t i = 0; i < count; ++i) {
        const uint16_t value_length = le16(element + 2);
        changes += apply_element(element, value_length);
        element += element_head_size + value_length;
    }
    return changes == 0 ? 0 : commit_and_notify();
}
