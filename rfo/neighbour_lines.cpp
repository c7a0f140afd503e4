// neighbour_lines.cpp: reads the lines that neighbouring access points broadcast.
//
// A line is the reporter's LAN MAC, "nbAP:" and KEY=VALUE fields, each ended by ";". It comes from the air, so whatever
// does not fit is dropped field by field or line by line.

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "applatform/interfaces.h"
#include "foundation/file_io.h"
#include "foundation/text.h"
#include "rfo/neighbours.h"
#include "rfo/private_ie.h"

namespace ap {

namespace {

constexpr std::string_view line_mark = "nbAP:";
constexpr size_t line_size = 256 + 1;
constexpr size_t identity_length = mac_text_size - 1;
constexpr size_t most_channel_digits = 4;

struct ParsedNote {
    NeighbourNote note;
    bool has_mac_24g, has_mac_5g;
};

enum class Field { mac, ssid, channel };
struct FieldRule {
    std::string_view key;
    Field field;
    int band;
};
constexpr FieldRule field_rules[] = {
    {"MAC2G", Field::mac, band_24g},  {"MAC5G", Field::mac, band_5g},     {"SSID2G", Field::ssid, band_24g},
    {"SSID5G", Field::ssid, band_5g}, {"CH2G", Field::channel, band_24g}, {"CH5G", Field::channel, band_5g},
};

// False when the whole line is to be dropped.
bool take_mac(ParsedNote &parsed, int band, std::string_view value) {
    if (value.size() != mac_text_size - 1)
        return RFO_ERROR("MAC2Glength(%d) is incorrect.\n", static_cast<int>(value.size())), false;
    char text[mac_text_size];
    copy_text(text, value);
    if (ifaddrs_ethaddr_aton(text, radio_of(parsed.note, band).mac) != 0) return false;
    (band == band_24g ? parsed.has_mac_24g : parsed.has_mac_5g) = true;
    return true;
}

void take_ssid(ParsedNote &parsed, int band, std::string_view value) {
    const int length = static_cast<int>(value.size());
    if (value.empty() || value.size() >= ssid_size) {
        if (band == band_24g)
            RFO_ERROR("SSID2Glength(%d) is incorrect.\n", length);
        else
            RFO_ERROR("SSID5Glength(%d) is incorrect.\n", length);
        return;
    }
    copy_text(radio_of(parsed.note, band).ssid, value);
}

void take_channel(ParsedNote &parsed, int band, std::string_view value) {
    if (value.empty() || value.size() > most_channel_digits) return;
    char text[most_channel_digits + 1];
    copy_text(text, value);
    radio_of(parsed.note, band).channel = to_int(text);
}

// False when the whole line is to be dropped. A field of another key is passed over.
bool take_field(ParsedNote &parsed, std::string_view text) {
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) return true;
    const std::string_view key(text.data(), equals), value(text.data() + equals + 1, text.size() - equals - 1);
    for (const auto &rule : field_rules) {
        if (rule.key != key) continue;
        if (rule.field == Field::mac) return take_mac(parsed, rule.band, value);
        if (rule.field == Field::ssid) take_ssid(parsed, rule.band, value);
        if (rule.field == Field::channel) take_channel(parsed, rule.band, value);
    }
    return true;
}

bool parse_line(std::string_view line, NeighbourNote &note) {
    const size_t mark = line.find(line_mark);
    if (mark == std::string_view::npos || mark < identity_length) return false;
    ParsedNote parsed = {};
    parsed.note.entry = no_entry;
    copy_text(parsed.note.identity, {line.data(), identity_length});

    line.remove_prefix(mark + line_mark.size());
    while (!line.empty()) {
        const size_t end = std::min(line.find(';'), line.size());
        if (!take_field(parsed, {line.data(), end})) return false;
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    if (!parsed.has_mac_24g || !parsed.has_mac_5g) return false;
    note = parsed.note;
    return true;
}

bool is_known(const GrowingArray<NeighbourNote> &notes, const NeighbourNote &note) {
    for (const auto &known : notes)
        if (std::strcmp(known.identity, note.identity) == 0) return true;
    return false;
}

UniqueFile open_neighbour_file() {
    UniqueFile file = open_file(neighbour_file, "re");
    if (!file) file = open_file(neighbour_file, "re");
    if (!file) RFO_ERROR("fopen %s fail, errno = %d reason = %s!\n", neighbour_file, errno, std::strerror(errno));
    return file;
}

// The next line without its end; a longer one is cut, and its rest passed over.
bool next_line(FILE *file, char (&line)[line_size]) {
    if (std::fgets(line, sizeof line, file) == nullptr) return false;
    const size_t length = std::strcspn(line, "\r\n");
    if (line[length] == '\0' && length == sizeof line - 1)
        for (int c = std::fgetc(file); c != EOF && c != '\n'; c = std::fgetc(file)) {}
    line[length] = '\0';
    return true;
}

}  // namespace

int rfo_get_neighbour_ap_from_port_file(GrowingArray<NeighbourNote> &notes) {
    const UniqueFile file = open_neighbour_file();
    if (!file) return rfo_failure;
    char line[line_size];
    while (notes.size() < most_neighbours && next_line(file.get(), line)) {
        NeighbourNote note;
        if (parse_line(line, note) && !is_known(notes, note) && !notes.append(note)) return rfo_failure;
    }
    return rfo_success;
}

}  // namespace ap
