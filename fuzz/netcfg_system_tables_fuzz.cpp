// netcfg_system_tables_fuzz.cpp: any bytes as static routes, port mappings, port map, LAN client state and system log.
// No reader passes its list, every text ends in its field, and the log's end found from behind is the one found from
// the front.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "apsupport/netcfg.h"
#include "apsupport/product.h"

int prod_debug(const char *, int, int, const char *, const char *, ...) { return 0; }
int doSystemCmd(const char *, ...) { return 0; }  // "ip route ls": the file is there already

static void require(bool holds) {
    if (!holds) std::abort();
}

template <size_t N> static void require_end(const char (&field)[N]) { require(std::memchr(field, '\0', N) != nullptr); }

static void write_file_of(const char *path, const uint8_t *data, size_t size) {
    FILE *file = std::fopen(path, "w");
    require(file != nullptr && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
}

static void read_tables() {
    const int count = file_get_route_list_num();
    std::vector<route_entry> routes(static_cast<size_t>(count));
    route_entry none;
    require(file_get_route_table_list(count == 0 ? &none : routes.data(), count) == 0);
    for (const auto &route : routes) {
        require_end(route.destination);
        require_end(route.ifname);
    }
    const auto list = std::make_unique<upnp_list>();
    require(file_get_upnp_list(list.get()) == 0 && list->count >= 0 && list->count <= 128);
    for (int i = 0; i < list->count; ++i) require_end(list->entries[i].field_6);
    ip_info info{};
    file_lan_dhcpc_get_ipinfo_and_status(&info);
    wanid_to_phy_port(2);
}

static std::vector<log_entry> newest(FILE *file, int max) {
    std::vector<log_entry> entries(static_cast<size_t>(max), log_entry{});
    int count = 0;
    require(file != nullptr && reverse_read_file(file, entries.data(), 0, &count, max) == 0 && count <= max);
    std::fclose(file);
    return entries;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    size = std::min<size_t>(size, 65536);
    for (const char *path :
         {"/var/static_route", "/var/upnpmap", "/etc/lan.cfg", "/etc/lan.ini", "/etc/lan_wan_port", "/var/fuzz_log"})
        write_file_of(path, data, size);
    read_tables();
    if (size == 0) return 0;
    const int max = 1 + data[0] % 40;
    const auto copy =
        std::make_unique<uint8_t[]>(size);  // a stream without a descriptor can only be read from the front
    std::memcpy(copy.get(), data, size);
    const auto from_behind = newest(std::fopen("/var/fuzz_log", "r"), max),
               from_front = newest(fmemopen(copy.get(), size, "r"), max);
    require(std::memcmp(from_behind.data(), from_front.data(), from_front.size() * sizeof(log_entry)) == 0);
    return 0;
}
