// route_tables.cpp: the kernel's routes from /proc/net/route, and the static ones as `ip route ls` prints their table.

#include <cstdio>
#include <cstdlib>

#include "applatform/commands.h"
#include "apsupport/netcfg.h"
#include "foundation/byte_order.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"

namespace ap {

namespace {

static_assert(sizeof(route_entry) == 16 + 16 + 16 + 16 + 4 && offsetof(route_entry, metric) == 16 + 16 + 16 + 16);

constexpr char static_route_path[] = "/var/static_route";
constexpr size_t line_size = 256;
constexpr size_t shortest_static_route = 16;

// What was asked for is filled first to last; with no entries at all, routes are only counted.
class RouteList {
public:
    RouteList(route_entry *entries, int capacity) : entries_(entries), capacity_(capacity) {}
    RouteList() : RouteList(nullptr, INT32_MAX) {}

    bool is_full() const { return count_ >= capacity_; }
    int count() const { return count_; }
    route_entry *next() { return entries_ == nullptr ? nullptr : entries_ + count_; }
    void keep() { ++count_; }

private:
    route_entry *entries_;
    int capacity_;
    int count_ = 0;
};

// The kernel's word holds the address in network order, its first byte lowest.
void print_kernel_word(char (&out)[address_text_size], uint32_t word) {
    std::snprintf(out, sizeof out, "%u.%u.%u.%u", word & 0xff, word >> 8 & 0xff, word >> 16 & 0xff, word >> 24);
}

// False when the line is no route; `entry` may be null.
bool read_kernel_route(const char *line, route_entry *entry) {
    char ifname[line_size];
    uint32_t destination = 0, gateway = 0, mask = 0;
    int32_t metric = 0;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own words
    if (std::sscanf(line, " %255s%X%X%*s%*s%*s%d%X%*s%*s%*s ", ifname, &destination, &gateway, &metric, &mask) != 5)
        return false;
    if (entry == nullptr) return true;
    print_kernel_word(entry->destination, destination);
    print_kernel_word(entry->mask, mask);
    print_kernel_word(entry->gateway, gateway);
    copy_text(entry->ifname, ifname);
    entry->metric = metric;
    return true;
}

bool read_kernel_routes(RouteList &routes) {
    LineReader<line_size> lines("/proc/net/route");
    if (!lines) return AP_ERROR(table_log_module, "fopen is fail."), false;
    lines.next();  // the heading
    while (!routes.is_full() && lines.next())
        if (read_kernel_route(lines.line(), routes.next())) routes.keep();
    return true;
}

// The word four characters behind the start of `name`; `fallback` when the name or the word is missing.
void copy_word_behind(const char *line, const char *name, const char *fallback, char (&out)[16]) {
    constexpr size_t name_and_blank = 4;
    const char *found = std::strstr(line, name);
    char word[16];
    const bool has_word = found != nullptr && std::strlen(found) > name_and_blank &&
                          std::sscanf(found + name_and_blank, "%15s", word) == 1;
    copy_text(out, has_word ? word : fallback);
}

// The number of leading ones is taken modulo 32: a host, and a prefix of 0, both have the full mask.
in_addr_t mask_of_prefix(int prefix) { return htonl(UINT32_MAX << (32U - static_cast<uint32_t>(prefix)) % 32U); }

// The metric of a static route is not told and stays as it was.
void read_static_route(const char *line, route_entry &entry) {
    char word[line_size] = {};
    std::sscanf(line, "%255s", word);
    char *slash = std::strchr(word, '/');
    if (slash != nullptr) *slash = '\0';
    copy_text(entry.destination, word);
    copy_text(entry.mask, AddressText(mask_of_prefix(slash == nullptr ? 0 : to_int(slash + 1))).view());
    copy_word_behind(line, "via", no_address, entry.gateway);
    copy_word_behind(line, "dev", "", entry.ifname);
}

// Asks for the static table; a line too short for a route ends it.
bool read_static_routes(RouteList &routes) {
    doSystemCmd("ip route ls table %s > %s", "staticroute", static_route_path);
    LineReader<line_size> lines(static_route_path);
    if (!lines) return AP_ERROR(table_log_module, "fopen is fail."), false;
    while (!routes.is_full() && lines.next()) {
        if (std::strcspn(lines.line(), "\n") < shortest_static_route) break;
        if (routes.next() != nullptr) read_static_route(lines.line(), *routes.next());
        routes.keep();
    }
    return true;
}

}  // namespace

}  // namespace ap

using namespace ap;

int file_get_route_list_num(void) {
    AP_PROD_TRACE();
    RouteList routes;
    read_kernel_routes(routes);
    read_static_routes(routes);
    return routes.count();
}

int file_get_route_table_list(struct route_entry *list, int max) {
    AP_PROD_TRACE();
    if (list == nullptr) return AP_ERROR(table_log_module, "arg is null."), 1;
    RouteList routes(list, max);
    return read_kernel_routes(routes) && read_static_routes(routes) ? 0 : 1;
}
