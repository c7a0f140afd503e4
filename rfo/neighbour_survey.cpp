// neighbour_survey.cpp: scans for the noted access points and averages how strongly they are heard.
//
// A scan list is indexed by its BSSIDs once, and each note looked up in the index; the first entry of a BSSID wins.

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "foundation/text.h"
#include "rfo/neighbours.h"

namespace ap {

namespace {

constexpr int most_scans = 4;
constexpr size_t few_notes = 5;
constexpr uint32_t wanted_scans_of_few = 3, wanted_scans_of_many = 1;

class BssidIndex {
public:
    explicit BssidIndex(const WifiScanList &scan) : scan_(scan) {
        const int count = std::clamp(scan.count, 0, static_cast<int>(std::size(scan.records)));
        for (int i = 0; i < count; ++i) {
            uint16_t &slot = slots_[slot_of(field_text(scan.records[i].bssid))];
            if (slot == 0) slot = static_cast<uint16_t>(i + 1);
        }
    }

    // The first entry with that BSSID; null when the scan did not hear it.
    const WifiScanResult *find(std::string_view bssid) const {
        const uint16_t slot = slots_[slot_of(bssid)];
        return slot == 0 ? nullptr : &scan_.records[slot - 1];
    }

private:
    static constexpr size_t slot_count = 1024;  // four times the entries of a full list

    // Where the BSSID stands, or the free slot in which it would.
    size_t slot_of(std::string_view bssid) const {
        size_t slot = hash(bssid) % slot_count;
        while (slots_[slot] != 0 && field_text(scan_.records[slots_[slot] - 1].bssid) != bssid)
            slot = (slot + 1) % slot_count;
        return slot;
    }
    static uint32_t hash(std::string_view text) {
        uint32_t value = 2166136261U;
        for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 16777619U;
        return value;
    }

    const WifiScanList &scan_;
    uint16_t slots_[slot_count] = {};  // the entry's index plus one
};

HeapPtr<WifiScanList> new_scan_list() {
    return HeapPtr<WifiScanList>(static_cast<WifiScanList *>(std::calloc(1, sizeof(WifiScanList))));
}

int rfo_do_scan_full(int band, WifiScanList *scan) {
    WorkingInterface working;
    if (scan == nullptr || !find_working_interface(band, working)) return rfo_failure;
    if (wifi_interface_get_scan_results_by_ssid(working.name, nullptr, scan) == 0) return rfo_success;
    scan->count = 0;
    return rfo_failure;
}

// The run goes on with an empty list.
HeapPtr<WifiScanList> scan_band(int band) {
    auto scan = new_scan_list();
    if (rfo_do_scan_full(band, scan.get()) == rfo_success) return scan;
    if (band == band_24g)
        RFO_ERROR("24G rfo_do_scan_full fail\n");
    else
        RFO_ERROR("5G rfo_do_scan_full fail\n");
    return scan;
}

int16_t &rssi_of(NeighbourRecord &entry, int band) { return band == band_24g ? entry.rssi_24g : entry.rssi_5g; }

// The note's entry, made when there is none; null without memory.
NeighbourRecord *entry_of(Neighbours &neighbours, NeighbourNote &note) {
    if (note.entry == no_entry) {
        NeighbourRecord entry = {};
        copy_text(entry.identity, field_text(note.identity));
        if (!neighbours.entries.append(entry)) return nullptr;
        note.entry = static_cast<int32_t>(neighbours.entries.size() - 1);
    }
    return &neighbours.entries[static_cast<size_t>(note.entry)];
}

void rfo_save_neighbour_ap_info(Neighbours &neighbours, NeighbourNote &note, int band, int heard_dbm) {
    NeighbourRecord *entry = entry_of(neighbours, note);
    if (entry == nullptr) return;
    int16_t &rssi = rssi_of(*entry, band);
    const int heard = std::clamp(heard_dbm, INT16_MIN, INT16_MAX);
    rssi = static_cast<int16_t>(rssi == 0 ? heard : (heard + rssi) / 2);
    ++radio_of(note, band).survey_count;
}

size_t notes_not_surveyed_enough(Neighbours &neighbours, int band) {
    const uint32_t wanted = neighbours.notes.size() < few_notes ? wanted_scans_of_few : wanted_scans_of_many;
    size_t count = 0;
    for (auto &note : neighbours.notes) count += radio_of(note, band).survey_count < wanted ? 1 : 0;
    return count;
}

}  // namespace

void rfo_get_ap_rssi_by_aplist(Neighbours &neighbours, int band, const WifiScanList &scan) {
    const BssidIndex index(scan);
    for (auto &note : neighbours.notes) {
        const auto &mac = radio_of(note, band).mac;
        char bssid[mac_text_size];
        std::snprintf(bssid, sizeof bssid, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                      mac[5]);
        const WifiScanResult *heard = index.find(bssid);
        if (heard == nullptr) continue;
        char signal[sizeof heard->rssi + 1];
        copy_text(signal, field_text(heard->rssi));
        rfo_save_neighbour_ap_info(neighbours, note, band, to_int(signal));
    }
}

int rfo_neighbour_ap_identify(Neighbours &neighbours) {
    const HeapPtr<WifiScanList> scans[] = {scan_band(band_24g), scan_band(band_5g)};
    sleep(1);
    if (rfo_get_neighbour_ap_from_port_file(neighbours.notes) != rfo_success)
        return RFO_ERROR("get neighbour ap fail\n"), rfo_failure;
    RFO_TRACE("neighbourAP num:%d\n", static_cast<int>(neighbours.notes.size()));
    for (size_t i = 0; i < std::size(bands); ++i)
        if (scans[i]) rfo_get_ap_rssi_by_aplist(neighbours, bands[i], *scans[i]);
    return rfo_success;
}

void rfo_survey_neighbour_ap(Neighbours &neighbours, int band) {
    WorkingInterface working;
    if (!find_working_interface(band, working) || wifi_check_interface_downup(working.name) == 0) return;
    for (int scans = 0; scans < most_scans; ++scans) {
        const auto scan = scan_band(band);
        if (rfo_get_neighbour_ap_from_port_file(neighbours.notes) != rfo_success)
            RFO_ERROR("wifi_type[%d] get neighbour ap fail\n", band);
        if (scan) rfo_get_ap_rssi_by_aplist(neighbours, band, *scan);
        if (notes_not_surveyed_enough(neighbours, band) == 0) break;
    }
}

int rfo_note_to_neighbour_ap(Neighbours &neighbours) {
    for (auto &note : neighbours.notes)
        if (entry_of(neighbours, note) == nullptr) return rfo_failure;
    return rfo_success;
}

}  // namespace ap
