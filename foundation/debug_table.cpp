// debug_table.cpp: the debug levels of all modules, in the shared segment "prod.debug.info".
//
// The table holds 100 slots and the number of slots in use; a slot that stands behind that many used ones is not seen.
// Nothing is locked between processes: a slot is taken out of use while its name changes, so that a torn update can at
// worst misreport one level once.

#include "foundation/debug_table.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/shm.h>

#include "foundation/console.h"
#include "foundation/text.h"

static_assert(sizeof(dbg_slot) == 32 + 4 && offsetof(dbg_slot, word) == 32);
static_assert(sizeof(dbg_info) == 2 + 2 + 100 * 36 && offsetof(dbg_info, count) == 2 && offsetof(dbg_info, slots) == 4);

namespace ap {

dbg_info *attached_debug_table = nullptr;

namespace {

constexpr char table_name[] = "prod.debug.info";
constexpr int function_width = 15;  // of the function's name in this file's diagnostics
constexpr uint32_t in_use_bit = 1;

constexpr LevelMark level_marks[] = {{'-', 30}, {'F', 34}, {'E', 31}, {'D', 36}, {'I', 37}, {'T', no_colour}};

uint32_t word_of(const dbg_slot &slot) { return __atomic_load_n(&slot.word, __ATOMIC_RELAXED); }
void set_word(dbg_slot &slot, uint32_t word) { __atomic_store_n(&slot.word, word, __ATOMIC_RELAXED); }
bool is_in_use(uint32_t word) { return (word & in_use_bit) != 0; }

unsigned int count_of(const dbg_info &table) { return __atomic_load_n(&table.count, __ATOMIC_RELAXED); }

// A name that fills its field ends there.
bool has_name(const dbg_slot &slot, const char *name) {
    for (size_t i = 0;; ++i) {
        const char stored = i < sizeof slot.name ? __atomic_load_n(&slot.name[i], __ATOMIC_RELAXED) : '\0';
        if (stored != name[i]) return false;
        if (stored == '\0') return true;
    }
}

// Walks the used slots, at most as many as the count says. `visit` gets the slot and its word, and returns true to
// stop.
template <typename Visit> void walk_used_slots(const dbg_info &table, Visit visit) {
    unsigned int left = count_of(table);
    for (const dbg_slot &slot : table.slots) {
        if (left == 0) return;
        const uint32_t word = word_of(slot);
        if (!is_in_use(word)) continue;
        if (visit(slot, word)) return;
        --left;
    }
}

// The slots in which the last few modules were found, by the address of the caller's name. Threads share it without a
// lock: what it says is only a hint, checked against the table before use.
class RecentSlots {
public:
    // The slot remembered for this address, or `none`.
    unsigned int find(const char *module) const {
        for (const Entry &entry : entries_) {
            if (__atomic_load_n(&entry.module, __ATOMIC_RELAXED) == module) {
                return __atomic_load_n(&entry.slot, __ATOMIC_RELAXED);
            }
        }
        return none;
    }

    void remember(const char *module, unsigned int slot) {
        Entry *entry = std::begin(entries_);
        while (entry != std::end(entries_) && __atomic_load_n(&entry->module, __ATOMIC_RELAXED) != module) ++entry;
        if (entry == std::end(entries_)) {
            entry = &entries_[__atomic_fetch_add(&next_, 1, __ATOMIC_RELAXED) % std::size(entries_)];
        }
        __atomic_store_n(&entry->slot, slot, __ATOMIC_RELAXED);
        __atomic_store_n(&entry->module, module, __ATOMIC_RELAXED);
    }

    static constexpr unsigned int none = ~0U;

private:
    struct Entry {
        const char *module;
        unsigned int slot;
    };
    Entry entries_[8];
    unsigned int next_;
};
RecentSlots recent_slots;

unsigned int level_by_walk(const dbg_info &table, const char *module) {
    unsigned int level = 0;
    walk_used_slots(table, [&](const dbg_slot &slot, uint32_t word) {
        if (!has_name(slot, module)) return false;
        recent_slots.remember(module, static_cast<unsigned int>(&slot - table.slots));
        level = word >> 1;
        return true;
    });
    return level;
}

}  // namespace

LevelMark mark_of(unsigned int level) { return level_marks[level < std::size(level_marks) ? level : 0]; }

// At most `slot` used slots stand before a remembered one, so the walk reaches it for certain while the count is above
// that; with a smaller count only the walk can tell.
unsigned int level_in(const dbg_info &table, const char *module) {
    const unsigned int slot = recent_slots.find(module);
    if (slot < count_of(table) && slot < std::size(table.slots)) {
        const uint32_t word = word_of(table.slots[slot]);
        if (is_in_use(word) && has_name(table.slots[slot], module)) return word >> 1;
    }
    return level_by_walk(table, module);
}

namespace {

// The slot that a module has, or else the first free one; null when it has none and all are taken.
struct Target {
    dbg_slot *slot;
    bool is_new;
};
Target find_target(dbg_info &table, const char *name) {
    dbg_slot *free_slot = nullptr;
    unsigned int used = 0;
    for (dbg_slot &slot : table.slots) {
        if (!is_in_use(word_of(slot))) {
            if (free_slot == nullptr) free_slot = &slot;
        } else if (++used <= count_of(table) && has_name(slot, name)) {
            return {&slot, false};
        }
        if (used > count_of(table) && free_slot != nullptr) break;
    }
    return {free_slot, true};
}

void add_to_count(dbg_info &table, int change) {
    __atomic_store_n(&table.count, static_cast<uint16_t>(static_cast<int>(count_of(table)) + change), __ATOMIC_RELAXED);
}

// The first 31 characters of a module's name, padded with NULs.
struct SlotName {
    char text[sizeof(dbg_slot::name) + 1] = {};
    size_t length;

    explicit SlotName(const char *module) : length(copy_text(text, sizeof(dbg_slot::name), module)) {}
};

void fill(dbg_info &table, dbg_slot &slot, const SlotName &name, unsigned int level) {
    set_word(slot, 0);
    for (size_t i = 0; i < sizeof slot.name; ++i) __atomic_store_n(&slot.name[i], name.text[i], __ATOMIC_RELAXED);
    set_word(slot, level << 1 | (level != 0 ? in_use_bit : 0));
    if (level == 0) add_to_count(table, -1);
}

// Adds, changes or removes a module. Names are told apart by what a slot can hold of them.
int set_level(dbg_info &table, const SlotName &name, unsigned int level) {
    const Target target = find_target(table, name.text);
    if (target.slot == nullptr) return 0;
    if (target.is_new) add_to_count(table, 1);
    fill(table, *target.slot, name, level);
    if (target.is_new && static_cast<int>(name.length) > name_width_of(table)) {
        __atomic_store_n(&table.name_width, static_cast<uint16_t>(name.length), __ATOMIC_RELAXED);
    }
    return 1;
}

void show_slot(const dbg_info &table, const dbg_slot &slot, uint32_t word) {
    char name[sizeof slot.name + 1] = {};
    for (size_t i = 0; i < sizeof slot.name; ++i) name[i] = __atomic_load_n(&slot.name[i], __ATOMIC_RELAXED);
    const LevelMark mark = mark_of(word >> 1);
    std::printf("\033[0m....[%-*s] level=%d\033[0m", name_width_of(table), name, static_cast<int>(word >> 1));
    if (mark.colour == no_colour) {
        std::printf("\033[0m [%c]\n\033[0m", mark.letter);
    } else {
        std::printf("\033[1;%d;%dm [%c]\n\033[0m", 40, mark.colour, mark.letter);
    }
}

}  // namespace

}  // namespace ap

#define PRINT_FAILURE(...) ap::print_prod_line(ap::Colour::red, ap::function_width, __func__, __LINE__, __VA_ARGS__)

struct dbg_info *get_dbg_info(void) {
    if (dbg_info *table = ap::debug_table_if_attached()) return table;

    auto *fresh = static_cast<dbg_info *>(get_shared_memory(ap::table_name, sizeof(dbg_info)));
    if (fresh == nullptr) {
        PRINT_FAILURE("Failed to get shared memory!");
        return nullptr;
    }
    dbg_info *first = nullptr;
    if (__atomic_compare_exchange_n(&ap::attached_debug_table, &first, fresh, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE)) {
        return fresh;
    }
    shmdt(fresh);  // another thread was faster
    return first;
}

unsigned int get_dbg_level(const char *module) {
    const dbg_info *table = ap::debug_table();
    if (table == nullptr || module == nullptr) {
        PRINT_FAILURE("invalid parameters");
        return 0;
    }
    return ap::level_in(*table, module);
}

int set_dbg_level(const char *module, unsigned int level) {
    if (module == nullptr) {
        PRINT_FAILURE("invalid parameters");
        return 0;
    }
    auto *table = static_cast<dbg_info *>(get_shared_memory(ap::table_name, sizeof(dbg_info)));
    if (table == nullptr) {
        PRINT_FAILURE("Failed to get shared memory!");
        return 0;
    }
    const int result = ap::set_level(*table, ap::SlotName(module), level);
    if (shmdt(table) != 0) {
        PRINT_FAILURE("Failed(%d) to shmdt(%p), %s.", errno, static_cast<void *>(table), std::strerror(errno));
    }
    return result;
}

void show_dbg_level(const char *module) {
    const dbg_info *table = ap::debug_table();
    if (table == nullptr) return;

    const bool all = ap::is_empty(module);
    if (all) std::printf("\nDEBUG status: (total %d)\n\n", static_cast<int>(ap::count_of(*table)));
    ap::walk_used_slots(*table, [&](const dbg_slot &slot, uint32_t word) {
        if (all || ap::has_name(slot, module)) ap::show_slot(*table, slot, word);
        return false;
    });
    std::printf("info->num:%d\n", static_cast<int>(ap::count_of(*table)));
}
