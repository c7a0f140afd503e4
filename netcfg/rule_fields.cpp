// rule_fields.cpp: replaces one field of a delimited rule, and builds an address from a network and a host number.

#include <cstdio>
#include <cstring>

#include "apsupport/netcfg.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"

namespace ap {

namespace {

// Finds the field with number `index`; fields are never empty, as delimiters in a row separate like one.
bool find_field(char (&work)[config_value_size], const char *delimiters, int index, size_t &offset, size_t &length) {
    char *rest = nullptr;
    char *field = strtok_r(work, delimiters, &rest);
    for (int i = 0; field != nullptr && i < index; ++i) field = strtok_r(nullptr, delimiters, &rest);
    if (field == nullptr) return false;
    offset = static_cast<size_t>(field - work);
    length = std::strlen(field);
    return true;
}

}  // namespace

}  // namespace ap

using namespace ap;

int check_get_new_ipaddr_by_hostid(const char *ip, const char *mask, unsigned int hostid, char *out) {
    AP_PLATFORM_TRACE(platform_log_module);
    if (ip == nullptr || mask == nullptr || out == nullptr) {
        AP_PLATFORM_LOG(2, platform_log_module, "arg is null.");
        return -1;
    }
    in_addr_t address = 0, network_mask = 0;
    if (!read_address(ip, address) || !read_address(mask, network_mask)) {
        AP_PLATFORM_LOG(2, platform_log_module, "no address: %s/%s", ip, mask);
        return -1;
    }
    copy_text(out, address_text_size, AddressText((address & network_mask) | htonl(hostid)).view());
    return 0;
}

// An empty item takes the delimiter behind the field with it, so that the rule has one field less.
void check_modify_item_in_rule(char *rule, const char *delims, int index, const char *item) {
    AP_PLATFORM_TRACE(platform_log_module);
    if (rule == nullptr || delims == nullptr || item == nullptr)
        return AP_PLATFORM_LOG(2, platform_log_module, "arg is null.");
    if (index < 0) return AP_PLATFORM_LOG(2, platform_log_module, "index is error.");

    const std::string_view whole(rule, strnlen(rule, config_value_size - 1));
    char work[config_value_size];
    size_t offset = 0, length = 0;
    copy_text(work, whole);
    if (!find_field(work, delims, index, offset, length)) return;

    if (*item == '\0') ++length;
    copy_text(work, whole);  // splitting left its marks
    const size_t behind = std::min(offset + length, whole.size());
    std::snprintf(rule + offset, config_value_size - offset, "%s%s", item, work + behind);
}
