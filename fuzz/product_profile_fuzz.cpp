// product_profile_fuzz.cpp: any text as profile.json. A start writes no empty key, leaves the state "written" or
// nothing, and a second start changes nothing that the first one wrote.

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <unistd.h>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"

static std::map<std::string, std::string> store;

int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    if (found == store.end()) return 0;
    std::strncpy(value, found->second.c_str(), 2307);
    return 1;
}
int SetValue(const char *key, const char *value) { return store[key] = value, 1; }
int CommitCfm(void) { return 1; }
int doSystemCmd(const char *, ...) { return 0; }

static void require(bool holds) {
    if (!holds) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    unlink("/etc/profile.json");
    write_file("/etc/profile.json", data, size);
    store = {{"sys.profile.id", "AP-1"}};
    const int first = profile_init_product_config(0);
    require(first == 0 || (first == -1 && store.size() == 1));
    require(store.count("") == 0);
    if (first == 0 && store["pro_dft_cfg.init"] == "2" && store["sys.profile.id"] == "AP-1") {
        const auto once = store;
        require(profile_init_product_config(0) == 0);
        for (const auto &[key, value] : once) require(store.count(key) == 1);
    }
    if (cJSON *product = create_product_profile("AP-1")) {
        char value[16];
        get_config_from_profile(product, "lan.ip", value, sizeof value);
        profile_start_gpio(product);
        delete_product_profile(product);
    }
    return 0;
}
