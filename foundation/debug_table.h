// debug_table.h: the table of debug levels that all processes share, as the debug log and the table's own functions use
// it.
//
// Every word of the table is shared by processes without a lock, so it is read and written as one relaxed atomic.
#pragma once

#include "apsupport/foundation.h"

namespace ap {

inline constexpr int no_colour = 0;

// How a level shows: its letter, and the ANSI foreground of its lines.
struct LevelMark {
    char letter;
    int colour;
};
LevelMark mark_of(unsigned int level);

// This process's attachment, null until the first `get_dbg_info` that succeeds.
extern dbg_info *attached_debug_table;

inline dbg_info *debug_table_if_attached() { return __atomic_load_n(&attached_debug_table, __ATOMIC_ACQUIRE); }

inline dbg_info *debug_table() {
    dbg_info *table = debug_table_if_attached();
    return table != nullptr ? table : get_dbg_info();
}

// The level of a module, 0 when the table does not hold it.
unsigned int level_in(const dbg_info &table, const char *module);

inline int name_width_of(const dbg_info &table) { return __atomic_load_n(&table.name_width, __ATOMIC_RELAXED); }

}  // namespace ap
