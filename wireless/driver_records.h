// driver_records.h: the wireless driver's records, as bytes with named positions. Words are little-endian; nothing in
// them is trusted: counts are cut to their arrays, and a text without a NUL ends with its field.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "apsupport/wireless.h"
#include "foundation/byte_order.h"

namespace ap {

static_assert(sizeof(WifiClientInfo) == 220 && offsetof(WifiClientInfo, stat_c) == 163 &&
              offsetof(WifiClientInfo, bytes_a) == 212);
static_assert(sizeof(OnlineIpEntry) == 18 + 16 && sizeof(OnlineIpTable) == 4 + 512 * 34);
static_assert(sizeof(WifiScanResult) == 163 && offsetof(WifiScanResult, security) == 127);
static_assert(sizeof(WifiScanList) == 4 + 256 * 163 && offsetof(WifiScanList, records) == 4);
static_assert(sizeof(WifiSpectrum) == 12);
static_assert(sizeof(WifiPrivateIe) == 96 && offsetof(WifiPrivateIe, interfaces) == 3 &&
              offsetof(WifiPrivateIe, max_length) == 52 && offsetof(WifiPrivateIe, payload_name) == 64);

inline int32_t signed_word(const uint8_t *bytes) { return load_le<int32_t>(bytes); }
inline std::string_view text_at(const uint8_t *bytes, size_t size) {
    const auto *text = reinterpret_cast<const char *>(bytes);
    return {text, strnlen(text, size)};
}

// The channel that a radio is on.
struct ChannelRecord {
    uint8_t bytes[24] = {};

    int channel() const { return signed_word(bytes); }
    int bandwidth() const { return signed_word(bytes + 8); }
    int extension_channel() const { return signed_word(bytes + 12); }
};

struct ScanRequest {
    static constexpr size_t wide_word = 1, has_target_word = 2, target_word = 3;
    static constexpr size_t ssid_position = 76, longest_ssid = 49;

    uint8_t bytes[160] = {};

    void set_word(size_t index, uint32_t value) { store_le(bytes + 4 * index, value); }

    static ScanRequest of_channel(int channel) {
        ScanRequest request;
        request.set_word(wide_word, 1);
        request.set_word(has_target_word, 1);
        request.set_word(target_word, static_cast<uint32_t>(channel));
        return request;
    }
    // A null SSID leaves the scan unrestricted.
    void set_ssid(const char *ssid) {
        if (ssid != nullptr) std::memcpy(bytes + ssid_position, ssid, strnlen(ssid, longest_ssid));
    }
};

struct ChannelList {
    static constexpr int capacity = 64;

    uint8_t bytes[4 + 4 * capacity] = {};

    int count() const { return std::clamp<int>(signed_word(bytes), 0, capacity); }
    int channel(int index) const { return signed_word(bytes + 4 + 4 * static_cast<size_t>(index)); }
};
static_assert(sizeof(ChannelList) == 260);

// A station that is associated with an interface.
struct StationRecord {
    uint8_t bytes[80];

    uint32_t word(size_t position) const { return le32(bytes + position); }
    int32_t number(size_t position) const { return signed_word(bytes + position); }
    std::string_view text() const { return text_at(bytes + 48, 60 - 48); }
};

struct RadarRecord {
    uint8_t bytes[16] = {};

    explicit RadarRecord(int channel) { store_le(bytes, channel); }
    bool is_radar_channel() const { return signed_word(bytes + 12) != 0; }
};

// One network in the driver's scan results.
struct ScanEntry {
    static constexpr size_t size = 484;

    const uint8_t *bytes;

    std::string_view ssid() const { return text_at(bytes, 48); }
    std::string_view encoding() const { return text_at(bytes + 49, 57 - 49); }
    const uint8_t *bssid() const { return bytes + 57; }
    int32_t number_a() const { return signed_word(bytes + 64); }
    int32_t number_b() const { return signed_word(bytes + 68); }
    int32_t sideband() const { return signed_word(bytes + 72); }
    int16_t rssi() const { return load_le<int16_t>(bytes + 476); }
    bool is_wep() const { return le32(security()) == 0xffffffff; }
    int32_t psk_type() const { return signed_word(security() + 132); }
    int32_t psk_cipher() const { return signed_word(security() + 136); }
    int32_t enterprise_type() const { return signed_word(security() + 212); }
    int32_t enterprise_cipher() const { return signed_word(security() + 216); }

private:
    const uint8_t *security() const { return bytes + 76; }
};

// A view of a scan result buffer: an entry count, a channel count, the entries, the channel records.
class ScanBuffer {
public:
    static constexpr int entry_capacity = 256, channel_capacity = 64;
    static constexpr size_t channel_record_size = 16;
    static constexpr size_t entries_position = 4 + 4;
    static constexpr size_t channels_position = entries_position + entry_capacity * ScanEntry::size;
    static constexpr size_t size = channels_position + channel_capacity * channel_record_size;
    static_assert(channels_position == 123912 && size == 124936);

    explicit ScanBuffer(void *buffer) : bytes_(static_cast<uint8_t *>(buffer)) {}

    void *data() const { return bytes_; }
    void clear() { std::memset(bytes_, 0, size); }
    int entry_count() const { return std::clamp<int>(signed_word(bytes_), 0, entry_capacity); }
    void set_entry_count(int count) { store_le(bytes_, count); }
    int channel_count() const { return std::clamp<int>(signed_word(bytes_ + 4), 0, channel_capacity); }
    void set_channel_count(int count) { store_le(bytes_ + 4, count); }
    void set_single_channel(int channel) {
        set_channel_count(1);
        store_le(channel_record(0), channel);
    }
    uint8_t *entry(int index) const { return bytes_ + entries_position + static_cast<size_t>(index) * ScanEntry::size; }
    uint8_t *channel_record(int index) const {
        return bytes_ + channels_position + static_cast<size_t>(index) * channel_record_size;
    }
    uint32_t channel_word(int index, size_t word) const { return le32(channel_record(index) + 4 * word); }

    // Copies all entries of `other`, which the caller has checked to fit, behind the first `position` of this buffer.
    void append_entries(int position, const ScanBuffer &other) {
        std::memcpy(entry(position), other.entry(0), static_cast<size_t>(other.entry_count()) * ScanEntry::size);
    }

private:
    uint8_t *bytes_;
};

}  // namespace ap
