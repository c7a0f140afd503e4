// config_text.h: the text form of a set of configuration values, and what a key and a value may hold.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ap::host {

inline constexpr size_t longest_key = 511;
inline constexpr size_t longest_value = 2307;

struct Entry {
    std::string key, value;

    bool operator==(const Entry &) const = default;
};
using Entries = std::vector<Entry>;  // in the order of their lines; the last of a key wins

using Visitor = std::function<void(std::string_view key, std::string_view value)>;

// Why no line of a configuration file can hold this key with this value; null when one can.
const char *refusal_of(std::string_view key, std::string_view value);

struct BadLine {
    size_t number;  // from 1
    const char *reason;
};
struct ParsedText {
    Entries entries;
    std::vector<BadLine> bad_lines;
};

// Reads lines `key=value`. Empty lines and lines that begin with "#" say nothing; a line may end with CR LF.
ParsedText parse_config_text(std::string_view text);

void append_line(std::string &text, std::string_view key, std::string_view value);

// The committed form, an image: a heading with version, checksum and length, then the lines.
class ImageWriter {
public:
    explicit ImageWriter(size_t expected_length);
    void add(std::string_view key, std::string_view value) { append_line(image_, key, value); }
    std::string take();  // the finished image

private:
    std::string image_;
};

// Takes an image in pieces and tells whether it is whole: neither damaged nor cut short.
class ImageCheck {
public:
    void add(std::string_view piece);
    bool is_whole() const;

private:
    std::string heading_;
    unsigned long checksum_ = 0;
    size_t length_ = 0;  // of the lines so far
};

}  // namespace ap::host
