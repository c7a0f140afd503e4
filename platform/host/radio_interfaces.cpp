// radio_interfaces.cpp: the virtual driver's calls on one radio: names, state, channel, power.

#include <algorithm>
#include <cstring>

#include "applatform/wireless_driver.h"
#include "foundation/byte_order.h"
#include "foundation/text.h"
#include "platform/host/radio_call.h"

namespace ap::host {

namespace {

constexpr size_t interface_name_size = 32;  // of the smallest buffer that callers give

bool is_possible_bandwidth(int band, int bandwidth) {
    constexpr int bandwidths[] = {20, 40, 80, 160};
    return std::ranges::find(bandwidths, bandwidth) != std::end(bandwidths) && (band != 24 || bandwidth <= 40);
}

bool has_radar(const Radio &radio, int channel) { return std::ranges::find(radio.radar, channel) != radio.radar.end(); }

int switch_channel(World &world, const RadioPlace &place, int channel, int bandwidth) {
    const Radio &radio = *place.radio;
    if (!radio.can_use(channel) || has_radar(radio, channel) || !is_possible_bandwidth(radio.band, bandwidth))
        return -1;
    RadioState state = world.radio_state(place);
    state.setting = {channel, bandwidth, extension_channel(radio.band, channel, bandwidth)};
    world.change().radios[place.key()] = state;
    return 0;
}

}  // namespace

int answer_fault(const Fault &fault, Record record) {
    if (!fault.nonsense) return fault.result;
    std::ranges::fill(record, uint8_t{0x7f});
    return 0;
}

}  // namespace ap::host

using namespace ap::host;

int uwb_get_osif_name(const char *ifname, char *out) {
    return on_interface(__func__, ifname, {}, [&](World &, const RadioPlace &place) {
        ap::copy_text(out, interface_name_size,
                      place.network != nullptr ? place.network->os_name : place.radio->interface);
        return 0;
    });
}

int uwb_get_extend_info(const char *ifname, void *record8) {
    return on_interface(__func__, ifname, record_of(record8, 8), [&](World &, const RadioPlace &place) {
        std::memset(record8, 0, 8);
        ap::store_le(record8, place.radio->extend_state);
        return 0;
    });
}

int uwb_check_dev_status(const char *ifname) {
    return on_interface(__func__, ifname, {}, [](World &, const RadioPlace &place) { return place.is_up() ? 0 : -1; });
}

int uwb_get_chan_info(const char *ifname, void *record24) {
    const Record record = record_of(record24, 24);
    return on_interface(__func__, ifname, record, [&](World &world, const RadioPlace &place) {
        const ChannelSetting setting = world.radio_state(place).setting;
        std::ranges::fill(record, uint8_t{0});
        ap::store_le(&record[0], setting.channel);
        ap::store_le(&record[4], place.radio->band);
        ap::store_le(&record[8], setting.bandwidth);
        ap::store_le(&record[12], setting.extension);
        return 0;
    });
}

int uwb_channel_switch(const char *ifname, const void *request16) {
    const auto *request = static_cast<const uint8_t *>(request16);
    return on_interface(__func__, ifname, {}, [&](World &world, const RadioPlace &place) {
        return switch_channel(world, place, ap::load_le<int>(request), ap::load_le<int>(request + 8));
    });
}

// Of the request's two bytes, the greatest power and the power, the second is what the radio sends with.
int uwb_set_txpower(const char *ifname, const void *request12) {
    const auto *request = static_cast<const uint8_t *>(request12);
    return on_interface(__func__, ifname, {}, [&](World &world, const RadioPlace &place) {
        RadioState state = world.radio_state(place);
        state.power_dbm = request[1];
        world.change().radios[place.key()] = state;
        return 0;
    });
}

int uwb_get_channel_list(const char *ifname, int, void *list260) {
    const Record record = record_of(list260, 4 + 64 * 4);
    return on_interface(__func__, ifname, record, [&](World &, const RadioPlace &place) {
        const size_t count = std::min<size_t>(place.radio->channels.size(), 64);
        ap::store_le(&record[0], static_cast<uint32_t>(count));
        for (size_t i = 0; i < count; ++i) ap::store_le(&record[4 + 4 * i], place.radio->channels[i]);
        return 0;
    });
}

// Words: the channel, whether radar is on it, 0, whether it is a channel on which radar may be.
int uwb_get_dfs_radar_status(const char *ifname, void *record16) {
    const Record record = record_of(record16, 16);
    return on_interface(__func__, ifname, record, [&](World &, const RadioPlace &place) {
        const int channel = ap::load_le<int>(record16);
        const auto &dfs = place.radio->dfs;
        ap::store_le(&record[4], has_radar(*place.radio, channel) ? 1 : 0);
        ap::store_le(&record[8], 0);
        ap::store_le(&record[12], std::ranges::find(dfs, channel) != dfs.end() ? 1 : 0);
        return 0;
    });
}
