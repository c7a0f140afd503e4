// rule_lists.cpp: reads the entries of a stored list, moves the hosts in them and writes them back.
//
// Entries are read and written through 512 bytes: of a longer one the first 511 characters count and are kept.

#include "netcfg/rule_lists.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "foundation/config_value.h"

namespace ap {

namespace {

constexpr size_t entry_size = 512;  // with the NUL
constexpr size_t most_fields = 5;
constexpr std::string_view white_space = " \t\n\v\f\r";

using Fields = std::array<std::string_view, most_fields>;

// Takes what stands before `end` off the text; empty, and the text unchanged, when `end` is missing.
std::string_view take_until(std::string_view &text, char end, size_t skipped) {
    const size_t length = text.find(end);
    if (length == std::string_view::npos) return {};
    const std::string_view field(text.data(), length);
    text.remove_prefix(length + skipped);
    return field;
}

std::string_view first_word(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(white_space), text.size()));
    return {text.data(), std::min(text.find_first_of(white_space), text.size())};
}

// False when the entry has fewer fields than the list's entries have.
bool read_fields(const RuleList &list, std::string_view entry, Fields &fields) {
    for (size_t i = 0; i + 1 < list.fields; ++i) {
        fields[i] = take_until(entry, ';', list.separator.size());
        if (fields[i].empty()) return false;
    }
    fields[list.fields - 1] = first_word(entry);
    return !fields[list.fields - 1].empty();
}

// The moved text of one field; false when the field holds no host.
class MovedField {
public:
    bool move(const RuleList &list, const NetworkMove &network, std::string_view field) {
        if (!list.is_range) return append_moved(network, field);
        const std::string_view first = take_until(field, '-', 1);
        return append_moved(network, first) && append("-") && append_moved(network, first_word(field));
    }
    std::string_view view() const { return {text_, length_}; }

private:
    bool append(std::string_view text) {
        length_ += copy_text(text_ + length_, sizeof text_ - length_, text);
        return true;
    }
    bool append_moved(const NetworkMove &network, std::string_view host_text) {
        in_addr_t host = 0;
        return read_address(host_text, host) && append(AddressText(network.moved(host)).view());
    }

    char text_[2 * address_text_size] = {};  // two addresses and the "-" between them
    size_t length_ = 0;
};

void write_fields(const RuleList &list, const Fields &fields, char (&entry)[entry_size]) {
    size_t length = 0;
    for (size_t i = 0; i < list.fields; ++i) {
        if (i != 0) length += copy_text(entry + length, sizeof entry - length, list.separator);
        length += copy_text(entry + length, sizeof entry - length, fields[i]);
    }
}

void move_entry(const RuleList &list, const NetworkMove &network, const char *key) {
    const ConfigValue stored(key);
    const std::string_view entry(stored.c_str(), std::min(stored.view().size(), entry_size - 1));
    Fields fields;
    MovedField moved;
    if (!read_fields(list, entry, fields) || !moved.move(list, network, fields[list.moved_field])) return;

    fields[list.moved_field] = moved.view();
    char rewritten[entry_size];
    write_fields(list, fields, rewritten);
    SetValue(key, rewritten);
}

}  // namespace

int stored_count(const char *count_key) { return std::min(config_number(count_key), largest_list); }

void move_list(const RuleList &list, const NetworkMove &network, int first) {
    const int count = stored_count(list.count_key);
    for (int i = first; i <= count; ++i) {
        char key[config_key_size];
        std::snprintf(key, sizeof key, list.entry_key, i);
        move_entry(list, network, key);
    }
}

}  // namespace ap
