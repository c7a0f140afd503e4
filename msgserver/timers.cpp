// timers.cpp: one-shot timers in the order of their expiry, and the uptime that they are measured by.
//
// An expiry is two words, seconds and a sub-second part, that are added without carry: a sub-second sum of 1000 or more
// is reached only when the seconds have passed. All of it belongs to the loop's thread. A callback may add and delete
// timers, itself and its successor included: the walk's two cursors are struck when their timer goes.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "foundation/file_io.h"
#include "msgserver/records.h"

namespace ap {

decltype(timers) timers;

namespace {

// Calls in one walk of timers that were added during it. Two timers that add themselves again without delay would
// otherwise follow each other for ever; the rest of the walk waits for the next idle moment.
constexpr int max_added_calls = 1000;

struct Walk {
    ms_timer *current, *next;
} walk;

uint32_t last_serial;

uint32_t saturated_sum(uint32_t a, uint32_t b) {
    constexpr uint32_t most = std::numeric_limits<uint32_t>::max();
    return a > most - b ? most : a + b;
}

uint32_t digits(const char *text, uint64_t unit) {
    constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(std::min(std::min<uint64_t>(std::strtoul(text, nullptr, 10), most) * unit, most));
}

bool expires_later(const ms_timer &timer, uint32_t seconds, uint32_t subseconds) {
    return timer.expiry_seconds > seconds || (timer.expiry_seconds == seconds && timer.expiry_subseconds > subseconds);
}

bool is_due(const ms_timer &timer) {
    ms_uptime now;
    ms_get_uptime(&now);
    return !expires_later(timer, now.seconds, now.subseconds);
}

ms_timer *new_timer(ms_timer_callback callback, const void *argument, int length) {
    if (length < 0 || (argument == nullptr && length > 0)) return nullptr;
    const auto size = static_cast<size_t>(length);
    HeapPtr<ms_timer> timer(static_cast<ms_timer *>(std::calloc(1, sizeof(ms_timer))));
    HeapPtr<void> copy(std::malloc(std::max<size_t>(size, 1)));
    if (!timer || !copy) return nullptr;
    if (size > 0) std::memcpy(copy.get(), argument, size);
    timer->argument = copy.release();
    timer->length = length;
    timer->callback = callback;
    return timer.release();
}

void unlink_timer(ms_timer &timer) {
    if (walk.next == &timer) walk.next = timers.after(timer);
    if (walk.current == &timer) walk.current = nullptr;
    timers.remove(timer);
}

// Clears the argument copy, then the record, then releases the pointer that the cleared record holds, so the copy
// itself stays with the process: a callback that deletes its own timer may go on reading it.
void release_timer(ms_timer *timer) {
    explicit_bzero(timer->argument, static_cast<size_t>(timer->length));
    explicit_bzero(timer, sizeof *timer);
    std::free(timer->argument);
    std::free(timer);
}

void fire(ms_timer &timer) {
    if (timer.callback != nullptr) timer.callback(timer.argument, timer.length);
    if (walk.current == nullptr) return;  // deleted by its own callback
    unlink_timer(timer);
    release_timer(&timer);
}

}  // namespace

void run_due_timers() {
    const uint32_t newest_before = last_serial;
    int added_calls = 0;
    for (walk.current = timers.first; walk.current != nullptr; walk.current = walk.next) {
        ms_timer &timer = *walk.current;
        walk.next = timers.after(timer);
        if (!is_due(timer)) continue;
        const bool is_added = static_cast<int32_t>(timer.serial - newest_before) > 0;
        if (is_added && ++added_calls > max_added_calls) break;
        fire(timer);
    }
    walk = {};
}

}  // namespace ap

using namespace ap;

struct ms_uptime *ms_get_uptime(struct ms_uptime *out) {
    *out = {};
    const UniqueFd file = open_fd("/proc/uptime", O_RDONLY);
    char line[127 + 1] = {};
    if (!file || retry_interrupted([&] { return read(file.get(), line, sizeof line - 1); }) <= 0) return out;
    line[strcspn(line, " \n")] = '\0';
    out->seconds = digits(line, 1);
    if (const char *const point = std::strchr(line, '.')) out->subseconds = digits(point + 1, 10);
    return out;
}

// The walk starts at the end: timers are mostly added late, and the place is the one that a walk from the head would
// find.
void ms_add_timer(ms_timer_callback callback, const void *argument, int length, unsigned int seconds,
                  unsigned int subseconds) {
    ms_timer *const timer = new_timer(callback, argument, length);
    if (timer == nullptr) return;
    ms_uptime now;
    ms_get_uptime(&now);
    timer->expiry_seconds = saturated_sum(now.seconds, seconds);
    timer->expiry_subseconds = saturated_sum(now.subseconds, subseconds);
    timer->serial = ++last_serial;

    ms_timer *successor = nullptr;
    for (ms_timer *other = timers.last; other != nullptr; other = other->hook.previous) {
        if (!expires_later(*other, timer->expiry_seconds, timer->expiry_subseconds)) break;
        successor = other;
    }
    timers.insert_before(successor, *timer);
}

// All matches are taken out before the first is released: `argument` may be the copy of one of them.
void ms_del_timer(ms_timer_callback callback, const void *argument, int length) {
    if (argument == nullptr && length > 0) return;
    ms_timer *matches = nullptr;
    for (ms_timer *timer = timers.first, *next = nullptr; timer != nullptr; timer = next) {
        next = timers.after(*timer);
        if (timer->callback != callback || timer->length != length) continue;
        if (length > 0 && std::memcmp(timer->argument, argument, static_cast<size_t>(length)) != 0) continue;
        unlink_timer(*timer);
        timer->hook.next = std::exchange(matches, timer);
    }
    while (matches != nullptr) release_timer(std::exchange(matches, matches->hook.next));
}
