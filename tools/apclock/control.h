/* control.h: a program that is linked against libapclock.so drives its own
 * clock. For tests; see tests/support/fake_clock.h.
 *
 * While the clock is driven it stands still, but for waits: a sleep returns at
 * once and moves the clock on by what it was asked for; a wait for descriptors
 * or for a condition first gives others a few real milliseconds to do their
 * part, and moves the clock on only when it times out. Clocks of other
 * processes are not touched; a forked child has its own copy. All functions may
 * be called from any thread.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the clocks over: the calendar clock stands at `calendar_ns` since 1970,
 * the others where they are. */
void apclock_drive(int64_t calendar_ns);

/* The clocks are the machine's, or the box's, again. */
void apclock_release(void);

void apclock_advance(int64_t duration_ns);

/* Nanoseconds that the clock was moved on since it was taken over. */
int64_t apclock_elapsed(void);

/* The waits since the clock was taken over, in their order: copies at most
 * `room` durations, returns how many there were. */
uint32_t apclock_waits(int64_t *durations_ns, uint32_t room);

#ifdef __cplusplus
}
#endif
