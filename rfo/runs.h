// runs.h: what the channel and the power survey share: at most one of them runs at a time, on a detached worker thread.
#pragma once

#include <pthread.h>

#include "apsupport/rfo.h"
#include "rfo/radio.h"

namespace ap {

// One kind of run. The flag and what belongs to it stand under the run's mutex; the two mutexes are never held
// together.
struct Run {
    pthread_mutex_t mutex;
    bool active;
    bool ended;  // the worker came to its end, perhaps before its starter could set the flag
    int delay_seconds;
    pthread_t *thread;
    rfo_callback *callback;
    void (*body)();
    const char *no_callback_text, *no_thread_text;
};

extern Run channel_run, power_run;

// Tells the controller's wish in the log and stops the vendor's own optimiser. False for a null request.
bool begin_request(const unsigned char *request, Caller caller = Caller::here());

// Starts a run unless one of either kind is active. 0 or -1.
int start_run(Run &run, rfo_callback callback, int delay_seconds, Caller caller = Caller::here());

// Seconds by which this access point stands back, so that those of one controller do not scan at the same moment.
unsigned int stagger_seconds(const unsigned char (&lan_mac)[mac_size], int delay_seconds);

// Hands a record to the run's callback, if there is one.
void upload(const Run &run, const void *record, size_t length);

}  // namespace ap
