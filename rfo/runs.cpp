// runs.cpp: starts survey workers, one at a time.
//
// The flag is set after the thread was created, as its callers know it. A worker may be done before that, so its end is
// kept too; starters take turns, so that two at once never both see an idle optimiser.

#include "rfo/runs.h"

#include <algorithm>

#include "applatform/commands.h"
#include "applatform/system.h"
#include "foundation/owned.h"
#include "rfo/log.h"

namespace ap {

namespace {

pthread_mutex_t starter_mutex = PTHREAD_MUTEX_INITIALIZER;

bool is_active(Run &run) {
    const MutexLock lock(run.mutex);
    return run.active;
}

void *work(void *argument) {
    Run &run = *static_cast<Run *>(argument);
    run.body();
    const MutexLock lock(run.mutex);
    run.active = false;
    run.ended = true;
    return nullptr;
}

void prepare(Run &run, rfo_callback callback, int delay_seconds) {
    const MutexLock lock(run.mutex);
    *run.callback = callback;
    run.delay_seconds = delay_seconds;
    run.ended = false;
}

void mark_active(Run &run) {
    const MutexLock lock(run.mutex);
    run.active = !run.ended;
}

}  // namespace

bool begin_request(const unsigned char *request, Caller caller) {
    if (request == nullptr) return RFO_ERROR_OF(caller, "parameter fail\n"), false;
    RFO_TRACE_OF(caller, " by %s\n", request[0] == 0 ? "immediate" : "schedule");
    if (proc_check_app("acbs") != 0) {
        doSystemCmd("killall -9 acbs");
        RFO_TRACE_OF(caller, "killall acbs by rfo");
    }
    return true;
}

int start_run(Run &run, rfo_callback callback, int delay_seconds, Caller caller) {
    if (callback == nullptr) return RFO_ERROR_OF(caller, "%s", run.no_callback_text), -1;
    const MutexLock lock(starter_mutex);
    if (is_active(power_run)) return RFO_ERROR_OF(caller, "power optmz is running!\n"), -1;
    if (is_active(channel_run)) return RFO_ERROR_OF(caller, "chan optmz is running!\n"), -1;

    prepare(run, callback, delay_seconds);
    if (pthread_create(run.thread, nullptr, work, &run) != 0) return RFO_ERROR_OF(caller, "%s", run.no_thread_text), -1;
    mark_active(run);
    pthread_detach(*run.thread);
    return 0;
}

unsigned int stagger_seconds(const unsigned char (&lan_mac)[mac_size], int delay_seconds) {
    return static_cast<unsigned int>((lan_mac[3] ^ lan_mac[4] ^ lan_mac[5]) % 5 + std::max(delay_seconds, 0));
}

void upload(const Run &run, const void *record, size_t length) {
    if (const rfo_callback callback = *run.callback; callback != nullptr) callback(record, static_cast<int>(length));
}

}  // namespace ap
