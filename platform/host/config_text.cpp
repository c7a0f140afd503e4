// config_text.cpp: configuration values as lines `key=value`, and as the committed image.
//
// An image is "#cfm 1 CHECKSUM LENGTH\n" and then its lines, in the order of their keys. CHECKSUM is the CRC-32 of the
// lines in eight hexadecimal digits, LENGTH is the number of their bytes in ten decimal digits. The heading is a
// comment to a reader of configuration files, so an image is one, too. See docs/config-store.md.

#include "platform/host/config_text.h"

#include <algorithm>
#include <cstdio>
#include <zlib.h>

namespace ap::host {

namespace {

constexpr size_t checksum_digits = 8, length_digits = 10;
constexpr std::string_view heading_start = "#cfm 1 ";
constexpr size_t heading_length = heading_start.size() + checksum_digits + 1 + length_digits + 1;

unsigned long checksum_of(std::string_view lines, unsigned long checksum = 0) {
    return crc32_z(checksum, reinterpret_cast<const Bytef *>(lines.data()), lines.size());
}

std::string heading_of(unsigned long checksum, size_t length) {
    char heading[heading_length + 1];
    std::snprintf(heading, sizeof heading, "%s%08x %010u\n", heading_start.data(), static_cast<unsigned>(checksum),
                  static_cast<unsigned>(length));
    return heading;
}

bool holds(std::string_view text, char character) { return text.find(character) != std::string_view::npos; }
bool breaks_line(std::string_view text) { return holds(text, '\n') || holds(text, '\r') || holds(text, '\0'); }

bool is_blank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

void parse_line(std::string_view line, size_t number, ParsedText &parsed) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (is_blank(line) || line.front() == '#') return;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        parsed.bad_lines.push_back({number, "it has no \"=\""});
        return;
    }
    const std::string_view key = line.substr(0, equals), value = line.substr(equals + 1);
    if (const char *reason = refusal_of(key, value)) {
        parsed.bad_lines.push_back({number, reason});
        return;
    }
    parsed.entries.push_back({std::string(key), std::string(value)});
}

}  // namespace

const char *refusal_of(std::string_view key, std::string_view value) {
    const struct {
        bool refused;
        const char *reason;
    } rules[] = {
        {key.empty(), "the key is empty"},
        {key.size() > longest_key, "the key is longer than 511 characters"},
        {key.starts_with('#'), "the key begins with \"#\""},
        {holds(key, '='), "the key holds \"=\""},
        {breaks_line(key), "the key holds a line break or a NUL"},
        {value.size() > longest_value, "the value is longer than 2307 characters"},
        {breaks_line(value), "the value holds a line break or a NUL"},
    };
    const auto *broken = std::ranges::find_if(rules, [](const auto &rule) { return rule.refused; });
    return broken == std::end(rules) ? nullptr : broken->reason;
}

ParsedText parse_config_text(std::string_view text) {
    ParsedText parsed;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        parse_line(text.substr(0, end), number, parsed);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parsed;
}

void append_line(std::string &text, std::string_view key, std::string_view value) {
    text.append(key).append(1, '=').append(value).append(1, '\n');
}

ImageWriter::ImageWriter(size_t expected_length) {
    image_.reserve(expected_length);
    image_.assign(heading_length, ' ');
}

std::string ImageWriter::take() {
    const std::string_view lines = std::string_view(image_).substr(heading_length);
    image_.replace(0, heading_length, heading_of(checksum_of(lines), lines.size()));
    return std::move(image_);
}

void ImageCheck::add(std::string_view piece) {
    const std::string_view of_heading = piece.substr(0, heading_length - heading_.size());
    heading_.append(of_heading);
    piece.remove_prefix(of_heading.size());
    checksum_ = checksum_of(piece, checksum_);
    length_ += piece.size();
}

bool ImageCheck::is_whole() const { return heading_ == heading_of(checksum_, length_); }

}  // namespace ap::host
