// rule_lists.h: the stored lists whose entries name hosts of the LAN, as one table, and the move of one list.
#pragma once

#include <cstddef>
#include <string_view>

#include "netcfg/address.h"

namespace ap {

// A list is a count key and entries numbered from 1. An entry is `fields` fields: each but the last ends before the
// next ";" and holds at least one character, the last is a word, which white space ends.
struct RuleList {
    const char *count_key, *entry_key;
    std::string_view separator;  // what is left out between two fields when reading, and put there when writing
    size_t fields;
    size_t moved_field;  // counted from 0
    bool is_range;       // the moved field is "FIRST-LAST", two hosts
};

inline constexpr RuleList static_leases{"dhcps.Staticnum", "dhcps.Staticip%d", "", 2, 0, false};
inline constexpr RuleList source_nat{"adv.snat.listnum", "adv.snat.list%d", ";", 2, 0, false};
inline constexpr RuleList log_servers{"adv.logs.listnum", "adv.logs.list%d", ";", 2, 0, false};
inline constexpr RuleList virtual_servers{"adv.virtualser.listnum", "adv.virtualser.list%d", ";", 5, 3, false};
inline constexpr RuleList bandwidth_rules{"bandwidth.mode.listnum", "bandwidth.mode.list%d", ";", 5, 3, true};
inline constexpr RuleList host_bindings{"security.ipbind.listnum", "security.ipbind.list%d", ";", 4, 2, false};

// The number of entries that a count key tells, at most `largest_list`: no count, however large, keeps a caller busy.
inline constexpr int largest_list = 65536;
int stored_count(const char *count_key);

// Moves the hosts of the entries `first` to the last. An entry that does not parse, or whose field holds no address,
// stays byte for byte.
void move_list(const RuleList &list, const NetworkMove &network, int first = 1);

}  // namespace ap
