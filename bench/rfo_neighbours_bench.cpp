// rfo_neighbours_bench.cpp: finding the noted access points in a scan of both bands, against comparing every note with
// every entry. The matching is internal to the library, so it is compiled in here.

#include "rfo/neighbour_lines.cpp"   // NOLINT(bugprone-suspicious-include)
#include "rfo/neighbour_survey.cpp"  // NOLINT(bugprone-suspicious-include)
#include "rfo/radio.cpp"             // NOLINT(bugprone-suspicious-include)

#include <memory>

#include "bench/support/compare.h"

namespace {

void bssid_of(int number, int band, unsigned char (&mac)[6]) {
    const unsigned char bytes[6] = {0x02,
                                    0,
                                    0x5e,
                                    static_cast<unsigned char>(band),
                                    static_cast<unsigned char>(number >> 8),
                                    static_cast<unsigned char>(number)};
    std::memcpy(mac, bytes, sizeof mac);
}

std::unique_ptr<WifiScanList> scan_of(int band, int entries) {
    auto scan = std::make_unique<WifiScanList>();
    scan->count = entries;
    for (int i = 0; i < entries; ++i) {
        unsigned char m[6];
        bssid_of(i, band, m);
        WifiScanResult &entry = scan->records[i];
        std::snprintf(entry.bssid, sizeof entry.bssid, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
                      m[5]);
        std::snprintf(entry.rssi, sizeof entry.rssi, "-%d", 30 + i % 60);
    }
    return scan;
}

// The notes stand at the end of the scan; every tenth was not heard.
ap::Neighbours neighbours_of(int notes, int entries) {
    ap::Neighbours neighbours;
    for (int i = 0; i < notes; ++i) {
        ap::NeighbourNote note = {};
        note.entry = ap::no_entry;
        std::snprintf(note.identity, sizeof note.identity, "02:41:50:00:%02X:00", i & 0xff);
        const int heard = i % 10 == 9 ? entries + i : entries - 1 - i;
        bssid_of(heard, ap::band_24g, note.radio_24g.mac);
        bssid_of(heard, ap::band_5g, note.radio_5g.mac);
        neighbours.notes.append(note);
    }
    return neighbours;
}

void match_by_pairs(ap::Neighbours &neighbours, int band, const WifiScanList &scan) {
    for (auto &note : neighbours.notes) {
        const auto &mac = ap::radio_of(note, band).mac;
        char bssid[18];
        std::snprintf(bssid, sizeof bssid, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                      mac[5]);
        for (int i = 0; i < scan.count; ++i) {
            if (std::strncmp(bssid, scan.records[i].bssid, sizeof bssid) != 0) continue;
            ap::rfo_save_neighbour_ap_info(neighbours, note, band, ap::to_int(scan.records[i].rssi));
            break;
        }
    }
}

using Match = void (*)(ap::Neighbours &neighbours, int band, const WifiScanList &scan);

bool is_same(const ap::Neighbours &one, const ap::Neighbours &other) {
    return one.entries.size() == other.entries.size() &&
           std::equal(one.entries.begin(), one.entries.end(), other.entries.begin(), [](const auto &a, const auto &b) {
               return std::strcmp(a.identity, b.identity) == 0 && a.rssi_24g == b.rssi_24g && a.rssi_5g == b.rssi_5g;
           });
}

void run(benchmark::State &state, Match match) {
    const int entries = static_cast<int>(state.range(0)), notes = static_cast<int>(state.range(1));
    const std::unique_ptr<WifiScanList> scans[] = {scan_of(ap::band_24g, entries), scan_of(ap::band_5g, entries)};
    const auto match_both = [&](ap::Neighbours &neighbours, Match how) {
        for (size_t i = 0; i < std::size(scans); ++i) how(neighbours, ap::bands[i], *scans[i]);
    };
    ap::Neighbours neighbours = neighbours_of(notes, entries), expected = neighbours_of(notes, entries);
    match_both(neighbours, match);
    match_both(expected, match_by_pairs);
    if (!is_same(neighbours, expected)) return state.SkipWithError("another result than by comparing pairs");
    for ([[maybe_unused]] auto step : state) match_both(neighbours, match);
}

void IndexedMatch(benchmark::State &state) { run(state, ap::rfo_get_ap_rssi_by_aplist); }
void MatchByPairs(benchmark::State &state) { run(state, match_by_pairs); }
BENCHMARK(IndexedMatch)->Args({16, 4})->Args({64, 50})->Args({128, 100})->Args({256, 200});
BENCHMARK(MatchByPairs)->Args({16, 4})->Args({64, 50})->Args({128, 100})->Args({256, 200});

}  // namespace

int main(int argc, char **argv) {
    return bench::run_and_compare(
        argc, argv,
        {{"match 200 notes in 256 entries, both bands", "IndexedMatch/256/200", "MatchByPairs/256/200", 1.0},
         {"twice as many of both: growth", "IndexedMatch/256/200", "IndexedMatch/128/100", 2.5}});
}
