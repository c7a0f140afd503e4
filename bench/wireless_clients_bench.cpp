// wireless_clients_bench.cpp: the client list with its addresses, against the same list made by comparing every station
// with every entry of the online table; and, for stations that only the kernel's file has, against reading that file
// once a station.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "applatform/kernel_rules.h"
#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "bench/support/compare.h"

namespace {

int station_count, entry_count;  // of the scripted driver and table
bool is_table_empty;

void mac_bytes(int number, unsigned char mac[6]) {
    const unsigned char bytes[6] = {
        0x02, 0, 0x5e, 0, static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
    std::memcpy(mac, bytes, 6);
}

// The stations have the last MACs of the table, the worst that comparing pairs can meet.
int number_of_station(int index) { return entry_count - 1 - index; }

void lower(char (&mac)[18]) {
    for (char &c : mac) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

int list_by_pairs(const char *ifname, WifiClientInfo *out, int capacity) {
    static OnlineIpTable table;
    get_client_ip_mac(&table);
    const int count = wifi_get_interface_client_list(ifname, out, capacity);
    for (int i = 0; i < count; ++i) {
        for (uint32_t entry = 0; entry < table.count; ++entry) {
            char mac[18], other[18];
            std::memcpy(mac, out[i].mac, sizeof mac);
            std::memcpy(other, table.entries[entry].mac, sizeof other);
            lower(mac);
            lower(other);
            if (std::memcmp(mac, other, sizeof mac) != 0) continue;
            std::memcpy(out[i].ip, table.entries[entry].ip, sizeof out[i].ip);
            break;
        }
    }
    return count;
}

using List = int (*)(const char *, WifiClientInfo *, int);

void run(benchmark::State &state, List list) {
    station_count = static_cast<int>(state.range(0));
    entry_count = static_cast<int>(state.range(1));
    WifiClientInfo clients[128], expected[128];
    list_by_pairs("wlan0.0", expected, 128);
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(list("wlan0.0", clients, 128));
    if (std::memcmp(clients, expected, sizeof clients[0] * static_cast<size_t>(station_count)) != 0)
        state.SkipWithError("another result than by comparing pairs");
}

void IndexedList(benchmark::State &state) { run(state, wifi_get_client_list); }
void ListByPairs(benchmark::State &state) { run(state, list_by_pairs); }
BENCHMARK(IndexedList)->Args({8, 32})->Args({32, 128})->Args({64, 256})->Args({128, 512});
BENCHMARK(ListByPairs)->Args({8, 32})->Args({32, 128})->Args({64, 256})->Args({128, 512});

// As many lines as stations, in the order of their MACs, so that a station is found half way on average.
void write_online_file(int lines) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen("/proc/net/km_online_ip", "w"), std::fclose);
    if (!file) return;
    std::fputs("heading\nheading\n", file.get());
    for (int i = 0; i < lines; ++i) {
        unsigned char m[6];
        mac_bytes(i, m);
        std::fprintf(file.get(), "10.1.%d.%d %02X-%02X-%02X-%02X-%02X-%02X x\n", i / 256, i % 256, m[0], m[1], m[2],
                     m[3], m[4], m[5]);
    }
}

int list_by_readings(const char *ifname, WifiClientInfo *out, int capacity) {
    const int count = wifi_get_interface_client_list(ifname, out, capacity);
    for (int i = 0; i < count; ++i) get_ip_by_online_ip(out[i].mac, out[i].ip);
    return count;
}

void run_on_file(benchmark::State &state, List list) {
    station_count = entry_count = static_cast<int>(state.range(0));
    write_online_file(station_count);
    is_table_empty = true;
    WifiClientInfo clients[128], expected[128];
    list_by_readings("wlan0.0", expected, 128);
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(list("wlan0.0", clients, 128));
    if (expected[0].ip[0] == '\0' ||
        std::memcmp(clients, expected, sizeof clients[0] * static_cast<size_t>(station_count)) != 0)
        state.SkipWithError("another result than by reading the file once a station");
    is_table_empty = false;
    std::remove("/proc/net/km_online_ip");
}

void ListFromFile(benchmark::State &state) { run_on_file(state, wifi_get_client_list); }
void ListByReadings(benchmark::State &state) { run_on_file(state, list_by_readings); }
BENCHMARK(ListFromFile)->Arg(1)->Arg(8)->Arg(128);
BENCHMARK(ListByReadings)->Arg(1)->Arg(8)->Arg(128);

}  // namespace

extern "C" {
int uwb_get_osif_name(const char *ifname, char *out) { return std::strcpy(out, ifname), 0; }
int uwb_get_sta_info(const char *, int, void *records, int capacity, int *count) {
    *count = std::min(station_count, capacity);
    for (int i = 0; i < *count; ++i)
        mac_bytes(number_of_station(i), static_cast<unsigned char *>(records) + 80 * static_cast<size_t>(i));
    return 0;
}
int km_get_online_ip(cJSON *object) {
    cJSON *list = cJSON_AddArrayToObject(object, "List");
    for (int i = 0; i < entry_count && !is_table_empty; ++i) {
        unsigned char m[6];
        char mac[18], ip[16];
        mac_bytes(i, m);
        std::snprintf(mac, sizeof mac, "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
        std::snprintf(ip, sizeof ip, "10.1.%d.%d", i / 256 % 256, i % 256);
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "Mac", mac);
        cJSON_AddStringToObject(item, "Ip", ip);
        cJSON_AddItemToArray(list, item);
    }
    return 0;
}
}

int main(int argc, char **argv) {
    return bench::run_and_compare(
        argc, argv,
        {{"client list, 128 stations, 512 addresses", "IndexedList/128/512", "ListByPairs/128/512", 1.0},
         {"four times as many of both: growth", "IndexedList/128/512", "IndexedList/32/128", 5.0},
         {"128 stations that only the file has", "ListFromFile/128", "ListByReadings/128", 0.2},
         {"one station that only the file has", "ListFromFile/1", "ListByReadings/1", 0}});
}
