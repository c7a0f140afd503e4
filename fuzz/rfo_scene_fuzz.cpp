// rfo_scene_fuzz.cpp: any elements as a controller's scene, in a block of just their size: the stored protocols and
// limits are those of the last steering element, for every SSID, and a second time changes and commits nothing.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "applatform/config_store.h"
#include "applatform/system.h"
#include "apsupport/rfo.h"
#include "foundation/byte_order.h"
#include "fuzz/support/quiet.h"

static std::map<std::string, std::string> store;
static int commits, notices;

extern "C" {
int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    if (found == store.end()) return 0;
    return std::memcpy(value, found->second.c_str(), found->second.size() + 1), 1;
}
int SetValue(const char *key, const char *value) { return store[key] = value, 1; }
int CommitCfm(void) { return ++commits, 1; }
int ap_comm_send_msg_to_api(int, const char *) { return ++notices, 0; }
}

static void require(bool holds) {
    if (!holds) std::abort();
}

struct Elements {
    size_t size = 0;
    uint16_t count = 0;
    const uint8_t *steering = nullptr;  // the value of the last steering element
};

// The elements that are whole.
static Elements whole_elements(const uint8_t *data, size_t size) {
    Elements found;
    while (found.count < UINT16_MAX && size - found.size >= 4) {
        const uint8_t *element = data + found.size;
        const size_t length = ap::le16(element + 2);
        if (size - found.size - 4 < length) break;
        if (element[0] == 1 && length >= 5) found.steering = element + 4;
        found.size += 4 + length;
        ++found.count;
    }
    return found;
}

static std::string protocols_of(uint8_t bits) {
    return std::string((bits & 1) != 0 ? "11k" : "") + ((bits & 2) != 0 ? ";11v" : "") +
           ((bits & 4) != 0 ? ";11r" : "");
}

static void require_stored(const uint8_t *steering) {
    require(store["kvr_enable_str"] == protocols_of(steering[0]));
    for (const std::string ssid : {"wlan0.0.bss_dot11", "wlan0.1.bss_dot11", "wlan1.0.bss_dot11"}) {
        require(store[ssid + "k"] == ((steering[0] & 1) != 0 ? "1" : "0"));
        require(store[ssid + "v"] == ((steering[0] & 2) != 0 ? "1" : "0"));
        require(store[ssid + "r"] == ((steering[0] & 4) != 0 ? "1" : "0"));
    }
    require(!store.contains("wlan0.2.bss_dot11k") && !store.contains("wlan1.1.bss_dot11k"));
    require(store["steerd.lrssi_2"] == "-" + std::to_string(steering[1]));
    require(store["steerd.band_safe_rssi_5"] == "-" + std::to_string(steering[2]));
    require(store["steerd.lrssi_5"] == std::to_string(-steering[3]));
    require(store["steerd.ap_safe_rssi_5"] == "-" + std::to_string(steering[4]));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    const Elements elements = whole_elements(data, std::min<size_t>(size, 4096));
    const auto message = std::make_unique<uint8_t[]>(4 + elements.size);
    ap::store_le(message.get() + 2, elements.count);
    if (elements.size != 0) std::memcpy(message.get() + 4, data, elements.size);

    store = {{"wlan24g.bss_mib_prefix", "wlan0."}, {"wlan24g.radio_mib_prefix", "wlan0"}, {"wlan0.web_maxbss", "2"},
             {"wlan5g.bss_mib_prefix", "wlan1."},  {"wlan5g.radio_mib_prefix", "wlan1"},  {"wlan1.web_maxbss", "1"}};
    commits = notices = 0;
    set_ap_scence_optmzCfg(message.get());
    require(commits == (elements.steering != nullptr ? 1 : 0) && notices == commits);
    if (elements.steering == nullptr) return 0;
    require_stored(elements.steering);

    const auto last = std::make_unique<uint8_t[]>(4 + 4 + 5);
    ap::store_le(last.get() + 2, uint16_t{1});
    last[4] = 1;
    last[6] = 5;
    std::memcpy(last.get() + 8, elements.steering, 5);
    require(set_ap_scence_optmzCfg(last.get()) == 0 && commits == 1);
    return 0;
}
