// ap_types.cpp: the codes by which the controller knows this access point, and the number of each packet.

#include <cstdlib>

#include "apsupport/portal.h"
#include "foundation/config_value.h"
#include "foundation/portal_line.h"
#include "portal/links.h"

struct ap_type ap_type_table[96];

static_assert(sizeof(ap_type) == 4 + 16);

namespace ap {

namespace {

uint32_t sequence_number;

}  // namespace

}  // namespace ap

using namespace ap;

int catch_ap_type(unsigned int *out) {
    const ConfigValue name("ap.apname");
    if (name.empty()) return AP_PORTAL_DEBUG(public_socket_source, "ap name is NULL.\n"), -1;
    for (const auto &row : ap_type_table) {
        if (!field_text(row.name).starts_with(name.view())) continue;
        *out = row.code;
        break;
    }
    return 0;
}

int get_vendor_type(unsigned int *out) {
    const ConfigValue type("vendor.type_pack");
    if (type.empty()) return -1;
    const bool is_hexadecimal = type.view().starts_with("0x") || type.view().starts_with("0X");
    *out = static_cast<unsigned int>(std::strtoul(type.c_str(), nullptr, is_hexadecimal ? 16 : 10));
    return 0;
}

// Concurrent callers may receive the same number.
int get_seq_num(void) {
    const uint32_t next = (__atomic_load_n(&sequence_number, __ATOMIC_RELAXED) + 1) & 0xFF;
    __atomic_store_n(&sequence_number, next, __ATOMIC_RELAXED);
    return static_cast<int>(next);
}
