// clock_daemon.cpp: a daemon with timers that add themselves again, one a period, which tells its ticks to whoever
// asks:
//
//   clock_daemon unix:clock 1500 200 &
//   apctl msg ask unix:clock ticks

#include <cstdio>
#include <cstdlib>

#include "apsupport/msgserver.h"

static int ticks = 0;

struct Clock {
    unsigned period_ms;
    int ticks;
};

static void tick(void *argument, int length);

// A timer fires once, and its callback gets a copy of the argument that it was added with.
static void start(const Clock &clock) {
    ms_add_timer(tick, &clock, sizeof clock, clock.period_ms / 1000, clock.period_ms % 1000);
}

static void tick(void *argument, int) {
    Clock &clock = *static_cast<Clock *>(argument);
    printf("%u ms: tick %d\n", clock.period_ms, ++clock.ticks);
    ++ticks;
    start(clock);
}

static int tell(struct ms_session *session, char *, int length) {
    if (length <= 0) return 0;
    char text[32];
    return ms_send(session, text, snprintf(text, sizeof text, "%d ticks", ticks));
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s ADDRESS MILLISECONDS...\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (ms_server(argv[1], tell) == nullptr) return 1;
    for (int i = 2; i < argc; ++i) start({static_cast<unsigned>(strtoul(argv[i], nullptr, 10)), 0});
    ms_run();
}
