// upnp_list.cpp: the port mappings that the UPnP daemon leaves in "/var/upnpmap", a line of six ";"-separated fields
// each.

#include <string_view>

#include "apsupport/netcfg.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "netcfg/log_modules.h"

namespace ap {

namespace {

static_assert(sizeof(upnp_entry) == 16 + 8 + 16 + 8 + 8 + 64 && sizeof(upnp_list) == 4 + 128 * sizeof(upnp_entry));

constexpr int most_mappings = 128;

// Fills the entry up to the first field that is missing or empty; false when that is the first one.
bool read_mapping(std::string_view line, upnp_entry &entry) {
    const struct {
        char *text;
        size_t size;
    } fields[] = {
        {entry.field_1, sizeof entry.field_1}, {entry.field_2, sizeof entry.field_2},
        {entry.field_3, sizeof entry.field_3}, {entry.field_4, sizeof entry.field_4},
        {entry.field_5, sizeof entry.field_5}, {entry.field_6, sizeof entry.field_6},
    };
    entry = {};
    for (const auto &field : fields) {
        const size_t length = std::min(line.find(';'), line.size());
        if (length == 0) break;
        copy_text(field.text, field.size, {line.data(), length});
        line.remove_prefix(std::min(length + 1, line.size()));
    }
    return entry.field_1[0] != '\0';
}

}  // namespace

}  // namespace ap

using namespace ap;

int file_get_upnp_list(struct upnp_list *list) {
    AP_PROD_TRACE();
    if (list == nullptr) return AP_ERROR(table_log_module, "arg is null."), 1;
    LineReader<256> lines("/var/upnpmap");
    if (!lines) return AP_ERROR(table_log_module, "fopen is fail."), 1;
    list->count = 0;
    while (list->count < most_mappings && lines.next()) {
        const std::string_view line(lines.line(), std::strcspn(lines.line(), "\n"));
        if (read_mapping(line, list->entries[list->count])) ++list->count;
    }
    return 0;
}
