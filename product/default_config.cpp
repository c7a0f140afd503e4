// default_config.cpp: writes the profile of this unit into the configuration, in full on the first start and a few
// refreshed keys on later ones.
//
// Texts are written through the gate and do not count as changes; numbers go through the counted setter.

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/text.h"
#include "product/product_data.h"
#include "product/profile.h"

namespace ap {

namespace {

constexpr char profile_id_key[] = "sys.profile.id";
constexpr char factory_profile_id_key[] = "KIVRA.sys.profile.id";
constexpr char init_state_key[] = "pro_dft_cfg.init";
constexpr char defaults_written[] = "2";
constexpr size_t profile_id_size = 64;
constexpr size_t refreshed_value_size = 128;

struct RefreshedKey {
    const char *group, *key;
};
constexpr RefreshedKey refreshed_keys[] = {
    {"wlan", "security.castfilter.en"},
    {"wlan", "security.multicastfilter.en"},
    {"steerd", "steerd.reject_cnt"},
    {"steerd", "steerd.ap_safe_rssi_5_default"},
    {"steerd", "steerd.band_safe_rssi_5_default"},
};

bool is_text(const cJSON *member) { return cJSON_IsString(member) && member->valuestring != nullptr; }

// Falls back to the factory store, and keeps its answer; false when the unit has no profile id at all.
bool find_profile_id(char (&profile_id)[profile_id_size]) {
    copy_config(profile_id_key, profile_id);
    if (profile_id[0] != '\0') return true;

    char factory_value[config_value_size] = {};
    ApmibGetValue(factory_profile_id_key, factory_value);
    factory_value[sizeof factory_value - 1] = '\0';
    copy_text(profile_id, factory_value);
    if (profile_id[0] == '\0') return false;
    SetValue(profile_id_key, profile_id);
    return true;
}

void set_model(const char *model) {
    for (const char *key : {"sys.targets", "snmp.devicename", "ap.apname"}) SetValue(key, model);
}

void set_vendor(const char *name) {
    SetValue("Brand.config", name);
    for (const Vendor &vendor : vendors) {
        if (vendor.name != name) continue;
        SetValue("vendor.type_pack", vendor.type_pack);
        SetValue("web.login.domain", vendor.web_login_domain);
    }
}

// Arrays, booleans, nulls and nested objects are passed over.
void set_text_or_number(const char *key, const cJSON *member) {
    if (is_text(member))
        SetValue(key, member->valuestring);
    else if (cJSON_IsNumber(member))
        prod_cfm_set_int_val(key, member->valueint);
}

void set_texts_and_numbers(const cJSON *group) {
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, group) {
        if (!is_empty(member->string)) set_text_or_number(member->string, member);
    }
}

void set_default_member(const cJSON *member) {
    const std::string_view name = member->string;
    if (name == "model" && is_text(member)) return set_model(member->valuestring);
    if (name == "vendor" && is_text(member)) return set_vendor(member->valuestring);
    set_text_or_number(member->string, member);
}

bool is_subgroup(const cJSON *member) { return cJSON_IsObject(member) && std::strcmp(member->string, "services") != 0; }

void set_product_default_config(const cJSON *product) {
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, product) {
        if (is_empty(member->string)) continue;
        if (!is_subgroup(member)) {
            set_default_member(member);
            continue;
        }
        AP_CONSOLE(Colour::white, "set subgroup[%s] default config", member->string);
        set_texts_and_numbers(member);
    }
    AP_CONSOLE(Colour::white, "set product defaut config finished!");
}

void update_product_default_config(const cJSON *product) {
    for (const auto &[group, key] : refreshed_keys) {
        const char *fresh = cJSON_GetObjectStringValue(cJSON_GetObjectItem(product, group), key, "");
        char current[refreshed_value_size];
        copy_config(key, current);
        if (!is_empty(fresh) && std::strcmp(fresh, current) != 0) SetValue(key, fresh);
    }
    AP_CONSOLE(Colour::white, "update product config finished!");
}

void set_product_service_status(const cJSON *services) {
    set_texts_and_numbers(services);
    AP_CONSOLE(Colour::white, "set service status finished!");
}

void apply_product(const cJSON *product) {
    const int state = prod_cfm_get_int_val("%s", init_state_key);
    if (state == 0 || state == 1) {
        set_product_default_config(product);
        SetValue(init_state_key, defaults_written);
    } else {
        update_product_default_config(product);
    }
    const cJSON *services = cJSON_GetObjectItem(product, "services");
    if (cJSON_IsObject(services)) set_product_service_status(services);
}

struct GpioKey {
    const char *key;
    bool is_number;
};
constexpr GpioKey gpio_keys[] = {
    {"led.sys.index", true},       {"led.sys.gpio_id", false}, {"led.signal.index", true},
    {"led.signal.gpio_id", false}, {"button.index", true},     {"button.gpio_id", false},
};

// Writes the GPIO keys in their order up to the first that the profile does not have.
bool set_gpio_default_config(const cJSON *gpio) {
    for (const auto &[key, is_number] : gpio_keys) {
        const cJSON *member = cJSON_GetObjectItem(gpio, key);
        if (is_number ? !cJSON_IsNumber(member) : !is_text(member)) {
            AP_ERROR("prod", "cannot find gpio config: %s", key);
            return false;
        }
        set_text_or_number(key, member);
    }
    return true;
}

void run_gpio_script() { doSystemCmd("/etc/init_gpio.sh"); }

}  // namespace

}  // namespace ap

using namespace ap;

int profile_init_product_config(int commit) {
    char profile_id[profile_id_size];
    if (!find_profile_id(profile_id)) {
        AP_CONSOLE(Colour::yellow, "'%s' is null, skip config init!", profile_id_key);
        return 0;
    }

    const UniqueJson profiles = read_profile_file();
    if (!profiles) return -1;
    const cJSON *product = match_profile(profiles.get(), profile_id);
    if (product == nullptr) return -1;

    apply_product(product);
    if (commit != 0) CommitCfm();
    run_gpio_script();
    if (prod_cfm_get_int_val("srv.vantri_auth") != 0) doSystemCmd("insmod /lib/modules/auth.ko");
    return 0;
}

int profile_start_gpio(const cJSON *product) {
    if (product == nullptr) return AP_ERROR("prod", "input para error"), -1;

    const cJSON *gpio = cJSON_GetObjectItem(product, "gpio");
    if (!cJSON_IsObject(gpio)) {
        if (get_dbg_level("prod") >= 4) AP_DEBUG(4, "prod", "cannot find config: %s", "gpio");
        run_gpio_script();
        return 0;
    }
    if (!set_gpio_default_config(gpio)) return AP_ERROR("prod", "set gpio defaut config error"), -1;
    CommitCfm();
    run_gpio_script();
    return 0;
}
