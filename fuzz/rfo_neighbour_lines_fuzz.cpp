// rfo_neighbour_lines_fuzz.cpp: any bytes as the driver's file of neighbours' lines. Identities differ and texts end in
// their fields; a file that is read again adds nothing; and a plain reader with strings keeps the same lines.

#include "rfo/neighbour_lines.cpp"  // NOLINT(bugprone-suspicious-include)

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "fuzz/support/quiet.h"

static void require(bool holds) {
    if (!holds) std::abort();
}

static std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    for (size_t at = 0, end = 0; at < text.size(); at = end + 1) {
        end = std::min(text.find(separator, at), text.size());
        parts.push_back(text.substr(at, end - at));
    }
    return parts;
}

static bool is_mac(const std::string &text) {
    unsigned char mac[6];
    return text.size() == 17 && ifaddrs_ethaddr_aton(text.c_str(), mac) == 0;
}

// Both MACs are there, and none of them is anything else.
static bool is_kept(const std::string &line) {
    const size_t mark = line.find("nbAP:");
    if (mark == std::string::npos || mark < 17) return false;
    std::set<std::string> macs;
    for (const auto &field : split(line.substr(mark + 5), ';')) {
        const size_t equals = field.find('=');
        const std::string key = field.substr(0, equals);
        if (equals == std::string::npos || (key != "MAC2G" && key != "MAC5G")) continue;
        if (!is_mac(field.substr(equals + 1))) return false;
        macs.insert(key);
    }
    return macs.size() == 2;
}

static std::vector<std::string> kept_identities(const std::string &text) {
    std::vector<std::string> identities;
    for (const auto &line : split(text, '\n')) {
        const std::string cut = line.substr(0, std::min<size_t>(line.find('\r'), 256)), identity = cut.substr(0, 17);
        if (identities.size() == ap::most_neighbours) break;
        if (is_kept(cut) && std::ranges::find(identities, identity) == identities.end()) identities.push_back(identity);
    }
    return identities;
}

static void require_ends(const ap::NotedRadio &radio) {
    require(std::memchr(radio.ssid, '\0', sizeof radio.ssid) != nullptr && radio.survey_count == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    const std::string bytes(reinterpret_cast<const char *>(data), std::min<size_t>(size, 65536));
    const std::string path = ap::neighbour_file;
    const ap::UniqueFile file(std::fopen(path.c_str(), "we"));
    require(file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size());
    std::fflush(file.get());

    ap::GrowingArray<ap::NeighbourNote> notes;
    require(ap::rfo_get_neighbour_ap_from_port_file(notes) == ap::rfo_success && notes.size() <= ap::most_neighbours);
    std::vector<std::string> identities;
    for (const auto &note : notes) {
        require(std::memchr(note.identity, '\0', sizeof note.identity) != nullptr && note.entry == ap::no_entry);
        require_ends(note.radio_24g);
        require_ends(note.radio_5g);
        identities.emplace_back(note.identity);
    }
    require(std::set(identities.begin(), identities.end()).size() == identities.size());
    if (bytes.find('\0') == std::string::npos) require(identities == kept_identities(bytes));

    const size_t before = notes.size();
    require(ap::rfo_get_neighbour_ap_from_port_file(notes) == ap::rfo_success);
    require(notes.size() == before || before == 0);
    return 0;
}
