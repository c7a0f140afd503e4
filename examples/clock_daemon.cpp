// clock_daemon.cpp: a daemon with a timer that adds itself again: it counts ticks, and tells the count to whoever asks.
//
//   clock_daemon unix:clock 1 0 &       a tick a second; "0 100" is one each 100 milliseconds
//   apctl msg ask unix:clock ticks

#include <cstdio>
#include <cstdlib>

#include "apsupport/msgserver.h"

struct Clock {
    unsigned seconds, milliseconds;  // between two ticks
};

static int ticks = 0;

// A timer fires once; the callback gets a copy of the argument that it was added with.
static void tick(void *argument, int length) {
    const Clock &clock = *static_cast<const Clock *>(argument);
    printf("tick %d\n", ++ticks);
    ms_add_timer(tick, argument, length, clock.seconds, clock.milliseconds);
}

static int tell(struct ms_session *session, char *, int length) {
    if (length <= 0) return 0;
    char text[32];
    ms_send(session, text, snprintf(text, sizeof text, "%d ticks", ticks));
    return 0;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s ADDRESS SECONDS MILLISECONDS   (milliseconds below 1000)\n", argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Clock clock = {static_cast<unsigned>(strtoul(argv[2], nullptr, 10)),
                         static_cast<unsigned>(strtoul(argv[3], nullptr, 10))};
    if (ms_server(argv[1], tell) == nullptr) return 1;
    ms_add_timer(tick, &clock, sizeof clock, clock.seconds, clock.milliseconds);
    ms_run();
}
