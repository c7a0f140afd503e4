// radio_stations.cpp: the virtual driver's station list.
//
// Words of a station's 80-byte record, by position: 8 rate to the station and 12 rate from it in Mbit/s, 16 seconds
// since it associated, 20 noise in dBm, 24 seconds without traffic, 32 bytes from the station, 40 bytes to it, 60 its
// strength in dBm. Bytes 0 to 5 are its MAC, 48 to 59 its mode.

#include <algorithm>
#include <climits>
#include <cmath>

#include "applatform/wireless_driver.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "platform/host/online_clients.h"
#include "platform/host/radio_call.h"

namespace ap::host {

namespace {

constexpr size_t station_size = 80;

void fill_station(const World &world, const RadioPlace &place, const Client &client, Record record) {
    const double strength = world.client_strength(place, client), noise = world.scenario().noise_dbm;
    const int rate = link_rate(world.radio_state(place).setting.bandwidth, strength - noise);
    const auto connected = static_cast<int>(world.connected_seconds(client));
    const bool is_idle = client.received_per_second + client.sent_per_second <= 0;
    std::ranges::fill(record, uint8_t{0});
    std::ranges::copy(client.mac, record.begin());
    ap::store_le(&record[8], rate);
    ap::store_le(&record[12], rate);
    ap::store_le(&record[16], connected);
    ap::store_le(&record[20], static_cast<int>(std::lround(noise)));
    ap::store_le(&record[24], is_idle ? connected : 0);
    ap::store_le(&record[32], world.bytes_received(client));
    ap::store_le(&record[40], world.bytes_sent(client));
    ap::copy_text(reinterpret_cast<char *>(&record[48]), 60 - 48, client.mode);
    ap::store_le(&record[60], static_cast<int>(std::lround(strength)));
}

}  // namespace

}  // namespace ap::host

using namespace ap::host;

// Nonsense is the greatest possible count over the records.
int uwb_get_sta_info(const char *ifname, int, void *records80, int capacity, int *count) {
    const size_t room = capacity < 0 ? 0 : static_cast<size_t>(capacity);
    const Record records = record_of(records80, room * station_size);
    *count = INT_MAX;
    const int result = on_interface(__func__, ifname, records, [&](World &world, const RadioPlace &place) {
        const auto clients = world.clients_of(place);
        const size_t written = std::min(room, clients.size());
        for (size_t i = 0; i < written; ++i)
            fill_station(world, place, *clients[i], records.subspan(i * station_size, station_size));
        *count = static_cast<int>(written);
        write_online_file(world);
        return 0;
    });
    if (result != 0) *count = 0;
    return result;
}
