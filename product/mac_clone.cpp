// mac_clone.cpp: saves the radio's factory MAC aside while another one is used, and brings it back.
//
// The flag "clone_mac_en" is "1" while the factory MAC is saved aside. A step in the wrong state changes nothing.

#include <cstdio>

#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "apsupport/wireless.h"
#include "foundation/config_value.h"

namespace ap {

namespace {

// The factory keys of the 5 GHz radio's MAC. The 2.4 GHz radio's index is asked for as well and not used.
struct WlanMacKeys {
    WlanMacKeys() {
        get_wlan_index(24);
        index = get_wlan_index(5);
        std::snprintf(factory, sizeof factory, "KIVRA.wlan%d_mac", index);
        std::snprintf(saved, sizeof saved, "KIVRA.clone_wlan%d_mac", index);
    }
    int index;
    char factory[64], saved[64];
};

bool is_saved_aside() { return ConfigValue("clone_mac_en").is("1"); }

struct FactoryValue {
    explicit FactoryValue(const char *key) {
        ApmibGetValue(key, text);
        text[sizeof text - 1] = '\0';
    }
    char text[config_value_size] = {};
};

int commit_both_stores() {
    ApmibCommitCfm();
    CommitCfm();
    return 1;
}

}  // namespace

}  // namespace ap

// A factory store that refuses the copy leaves the flag as it was, so that the MAC is never taken for saved.
int saveWlanDefaultMac(void) {
    const ap::WlanMacKeys keys;
    if (ap::is_saved_aside()) return 0;
    if (ApmibSetValue(keys.saved, ap::FactoryValue(keys.factory).text) == 0) return 0;
    prod_cfm_set_val("clone_mac_en", "1");
    return ap::commit_both_stores();
}

int setWlanDefaultMac(void) {
    const ap::WlanMacKeys keys;
    if (!ap::is_saved_aside()) return 0;
    const ap::FactoryValue saved(keys.saved);
    if (ApmibSetValue(keys.factory, saved.text) == 0) return 0;
    prod_cfm_set_val("clone_mac_en", "0");
    __prod_cfm_set_fmt_val(saved.text, "wlan%d_mac", keys.index);
    return ap::commit_both_stores();
}

int getWlanDefaultMac(char *out) {
    const ap::WlanMacKeys keys;
    const ap::ConfigValue flag("clone_mac_en");
    std::printf("clone_mac_en = %s\n", flag.c_str());
    ApmibGetValue(flag.is("1") ? keys.saved : keys.factory, out);
    return 0;
}
