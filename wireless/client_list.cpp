// client_list.cpp: the stations of an interface or of a band, with their addresses, and the noise that they report.
//
// Addresses are matched through a hash of the online table, so that the work grows with the two lists and not with
// their product. Everything lies on the caller's stack, but for the driver's records.

#include <array>
#include <cstdio>
#include <span>

#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "foundation/console.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "wireless/client_record.h"
#include "wireless/driver_records.h"
#include "wireless/online_table.h"
#include "wireless/radio_band.h"

namespace ap {

namespace {

constexpr int most_stations = 128;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
void to_lower(char (&mac)[18]) { std::ranges::transform(mac, mac, lower); }

template <size_t N> void print_number(char (&field)[N], const char *format, uint32_t value) {
    std::snprintf(field, N, format, value);
}

void fill_client(const StationRecord &station, const char *os_name, WifiClientInfo &client) {
    client = {};
    const uint8_t *mac = station.bytes;
    copy_text(client.ifname, os_name);
    std::snprintf(client.mac, sizeof client.mac, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                  mac[4], mac[5]);
    print_number(client.stat_a, "%u", station.word(12));
    print_number(client.conn_time, "%d", station.word(16));
    print_number(client.stat_b, "%d", station.word(60));
    print_number(client.noise, "%d", station.word(20));
    print_number(client.stat_c, "%u", station.word(8));
    copy_text(client.stat_text, station.text());
    print_number(client.stat_d, "%d", station.word(24));
    client.bytes_a = station.word(32);
    client.bytes_b = station.word(40);
}

// Finds an entry of the online table by its MAC. Among entries with the same MAC it finds the first.
class MacIndex {
public:
    // Turns the table's MACs into lower case. The table must outlive the index.
    explicit MacIndex(OnlineIpTable &table) : table_(table) {
        for (uint32_t i = 0; i < table.count; ++i) {
            to_lower(table.entries[i].mac);
            uint16_t &slot = slot_of(table.entries[i].mac);
            if (slot == 0) slot = static_cast<uint16_t>(i + 1);
        }
    }
    // `mac` is in lower case.
    const OnlineIpEntry *find(const char (&mac)[18]) {
        const uint16_t slot = slot_of(mac);
        return slot == 0 ? nullptr : &table_.entries[slot - 1];
    }

private:
    static constexpr unsigned int slot_bits = 10;
    static constexpr size_t slot_count = 1u << slot_bits;
    static_assert(slot_count >= 2 * std::extent_v<decltype(OnlineIpTable::entries)>,
                  "a free slot always ends a search");

    static size_t hash(const char (&mac)[18]) {
        uint32_t value = 0;
        constexpr size_t positions[] = {0, 4, 8, 12, 18 - 4};
        for (const size_t position : positions) value = (value ^ le32(mac + position)) * 0x9e3779b1u;
        return value >> (32 - slot_bits);
    }
    // The slot that holds this MAC's entry number plus 1, or the free one (0) where it belongs.
    uint16_t &slot_of(const char (&mac)[18]) {
        size_t at = hash(mac);
        while (slots_[at] != 0 && std::memcmp(table_.entries[slots_[at] - 1].mac, mac, sizeof mac) != 0)
            at = (at + 1) % slot_count;
        return slots_[at];
    }

    OnlineIpTable &table_;
    std::array<uint16_t, slot_count> slots_{};
};

// Whoever the table lacks is looked up in the kernel's file, all of them in one reading.
void attach_addresses(OnlineIpTable &table, std::span<WifiClientInfo> clients) {
    MacIndex index(table);
    std::array<SoughtClient, most_stations> sought;
    size_t sought_count = 0;
    for (WifiClientInfo &client : clients) {
        if (const OnlineIpEntry *entry = index.find(client.mac)) {
            std::memcpy(client.ip, entry->ip, sizeof client.ip);
        } else {
            sought[sought_count++] = SoughtClient(client.mac, client.ip);
        }
    }
    find_in_online_file(std::span(sought).first(sought_count));
}

// Appends the clients of one SSID interface to the `written` records of `out`; the new number of records.
int append_interface_clients(const char *ifname, WifiClientInfo *out, int written, int capacity) {
    WifiClientInfo clients[most_stations];
    const int count = std::min(wifi_get_client_list(ifname, clients, most_stations), most_stations);
    for (int i = 0; i < count && written < capacity; ++i) {
        WifiClientInfo &client = out[written++];
        copy_client(clients[i], client);
        std::memset(client.ifname, 0, sizeof client.ifname);
        copy_text(client.ifname, std::string_view(ifname));
    }
    return written;
}

// The client whose noise stands for the interface: the one with the greatest stat_c among those that sent and received.
const WifiClientInfo *reference_client(std::span<const WifiClientInfo> clients) {
    const WifiClientInfo *candidate = nullptr;
    for (const WifiClientInfo &client : clients) {
        if (candidate == nullptr || (to_int(client.stat_c) > to_int(candidate->stat_c) &&
                                     field_text(client.stat_c) != "0" && field_text(client.stat_a) != "0"))
            candidate = &client;
    }
    return candidate;
}

}  // namespace

}  // namespace ap

// Returns the driver's count, or, when that goes beyond the capacity, the index of the entry at which the list was cut,
// capacity + 1. Only `capacity` records are written in any case.
int wifi_get_clientlist_by_ugw(const char *ifname, WifiClientInfo *out, int capacity) {
    const ap::HeapPtr<ap::StationRecord> stations(
        static_cast<ap::StationRecord *>(std::calloc(ap::most_stations, sizeof(ap::StationRecord))));
    if (!stations) {
        AP_CONSOLE(ap::Colour::red, "calloc failed");
        return 0;
    }
    char os_name[32] = {};
    uwb_get_osif_name(ifname, os_name);
    os_name[sizeof os_name - 1] = '\0';
    int count = 0;
    if (uwb_get_sta_info(ifname, 0, stations.get(), std::min(capacity, ap::most_stations), &count) < 0) return 0;
    count = std::clamp(count, 0, ap::most_stations);
    for (int i = 0; i < std::min(count, capacity); ++i) ap::fill_client(stations.get()[i], os_name, out[i]);
    return count > capacity ? std::max(capacity, -1) + 1 : count;
}

int wifi_get_client_list_by_ugw(const char *ifname, WifiClientInfo *out, int capacity) {
    OnlineIpTable table = {};
    get_client_ip_mac(&table);
    const int count = wifi_get_interface_client_list(ifname, out, capacity);
    const int written = std::clamp(count, 0, std::clamp(capacity, 0, ap::most_stations));
    ap::attach_addresses(table, std::span(out, static_cast<size_t>(written)));
    return count;
}

int wifi_get_interface_client_num_by_ugw(const char *ifname) {
    char os_name[36] = {};
    uwb_get_osif_name(ifname, os_name);
    unsigned char stations[10240] = {};
    int count = 0;
    if (uwb_get_sta_info(ifname, 0, stations, ap::most_stations, &count) < 0) return 0;
    return std::max(count, 0);
}

void wifi_get_noise_by_ugw(const char *ifname, int *out) {
    WifiClientInfo clients[ap::most_stations];
    const int count =
        std::clamp(wifi_get_interface_client_list(ifname, clients, ap::most_stations), 0, ap::most_stations);
    const WifiClientInfo *client = ap::reference_client(std::span(clients).first(static_cast<size_t>(count)));
    const bool has_noise = client != nullptr && ap::to_int(client->conn_time) != 0;
    *out = has_noise ? ap::to_int(client->noise) : -95;
}

int wifi_get_client_lists(WifiClientInfo *out, const char *band, int capacity) {
    const ap::RadioBand *radio = ap::radio_band_of(band);
    if (radio == nullptr) return 0;
    if (!ap::radio_is_enabled(*radio)) {
        std::puts("wifi 2.4G or 5G is closed");
        return 0;
    }
    int written = 0;
    const int ssid_count = ap::radio_ssid_count(*radio);
    for (int index = 0; index < ssid_count && written < capacity; ++index) {
        if (!ap::ssid_is_enabled(*radio, index)) continue;
        char ifname[64] = {};
        get_client_assoc_ifname(ap::KeyPrefix(radio->interface_kind, index).c_str(), ifname);
        written = ap::append_interface_clients(ifname, out, written, capacity);
    }
    return written;
}
