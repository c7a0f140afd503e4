// neighbours.h: the access points of the same system around this one, and how strongly they are heard.
#pragma once

#include <cstdint>

#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "foundation/owned.h"
#include "rfo/growing_array.h"
#include "rfo/log.h"
#include "rfo/radio.h"

namespace ap {

// A report's neighbour count is one byte, so more notes than that are not kept.
inline constexpr size_t most_neighbours = 255;
inline constexpr size_t ssid_size = 36 + 1;

// What a neighbour's line says of one of its radios, and how often that radio was heard.
struct NotedRadio {
    int32_t channel;
    char ssid[ssid_size];
    unsigned char mac[mac_size];
    uint32_t survey_count;
};

struct NeighbourNote {
    char identity[mac_text_size];  // the first 17 characters of the line
    NotedRadio radio_24g, radio_5g;
    int32_t entry;  // its neighbour entry's index, or no_entry
};
inline constexpr int32_t no_entry = -1;

inline NotedRadio &radio_of(NeighbourNote &note, int band) { return band == band_24g ? note.radio_24g : note.radio_5g; }

// The worker's own lists: notes in the order of their lines, entries in the order in which they were first heard.
struct Neighbours {
    GrowingArray<NeighbourNote> notes;
    GrowingArray<NeighbourRecord> entries;
};

// Adds the lines of the driver's neighbour file as notes; a second line of the same identity is ignored. A status code.
int rfo_get_neighbour_ap_from_port_file(GrowingArray<NeighbourNote> &notes);

// Scans both bands, reads the neighbour lines and matches them once. A status code.
int rfo_neighbour_ap_identify(Neighbours &neighbours);

// Scans one band until every note was heard often enough, at most four times.
void rfo_survey_neighbour_ap(Neighbours &neighbours, int band);

// Gives every note that was never heard an entry without signal strength. A status code.
int rfo_note_to_neighbour_ap(Neighbours &neighbours);

// Takes a band's scan result over into the entries of the notes that it heard.
void rfo_get_ap_rssi_by_aplist(Neighbours &neighbours, int band, const WifiScanList &scan);

}  // namespace ap
