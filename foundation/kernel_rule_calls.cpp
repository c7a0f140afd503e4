// kernel_rule_calls.cpp: thin calls of the platform's kernel rules for DNS redirection and the setup wizard.

#include "applatform/kernel_rules.h"
#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/json_trace.h"
#include "foundation/owned.h"

namespace ap {

namespace {

bool add_text(cJSON *object, const char *name, const char *text) {
    UniqueJson item(cJSON_CreateString(text));
    if (!item || !cJSON_AddItemToObject(object, name, item.get())) return false;
    static_cast<void>(item.release());  // the object owns it now
    return true;
}

}  // namespace

}  // namespace ap

int add_dns_redirect_rule(const char *domain, const char *ip) {
    const ap::UniqueJson rule(domain == nullptr || ip == nullptr ? nullptr : cJSON_CreateObject());
    if (!rule || !ap::add_text(rule.get(), "Domain", domain) || !ap::add_text(rule.get(), "Ip", ip)) {
        AP_ERROR("prod", "Failed to add dns_redirect rule");
        return -1;
    }
    AP_TRACE_JSON(rule.get());
    return km_dns_redirect_add_rule(rule.get());
}

int del_dns_redirect_rule(const char *domain) {
    const ap::UniqueJson rule(domain == nullptr ? nullptr : cJSON_CreateObject());
    if (!rule || !ap::add_text(rule.get(), "Domain", domain)) {
        AP_ERROR("prod", "Failed to del rule by domain");
        return -1;
    }
    AP_TRACE_JSON(rule.get());
    return km_dns_redirect_del_rule(rule.get());
}

int add_auto_wizards_gw_port(int port) { return km_auto_wizards_gw_port(port); }

int add_auto_wizards_ip(const char *ip, const char *mask) {
    if (ip != nullptr) return km_auto_wizards_ip(ip, mask);
    AP_ERROR("prod", "Failed to add add_auto_wizards_ip");
    return -1;
}

// The failure text is the one of `add_auto_wizards_ip`.
int add_auto_wizards_manage_ip(const char *ip, const char *mask) {
    if (ip != nullptr) return km_auto_wizards_manage_ip(ip, mask);
    AP_ERROR("prod", "Failed to add add_auto_wizards_ip");
    return -1;
}

int auto_wizards_enable(void) { return km_auto_wizards_enable(); }
int auto_wizards_disable(void) { return km_auto_wizards_disable(); }
