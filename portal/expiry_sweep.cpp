// expiry_sweep.cpp: expires web accounts and has their devices kicked off on every access point.
//
// The caller presets the batch's type, socket and addresses; the sweep fills its count and MACs and sends it whenever
// it is full. The table's mutex is held throughout.

#include <cstdlib>
#include <ctime>

#include "portal/web_users.h"

static_assert(sizeof(portal_broadcast) == 4 + 4 + 4 + 2 + 4 + 6 && offsetof(portal_broadcast, source) == 18);
static_assert(sizeof(portal_kick_batch) == sizeof(portal_broadcast) + size_t{170} * 6);

namespace ap {

namespace {

constexpr int64_t sweep_interval_seconds = 60;

int64_t last_sweep;

void start_batch(portal_kick_batch &batch) {
    batch.head.count = 0;
    std::memset(batch.macs, 0, sizeof batch.macs);
}

void expire(WebUser &user, portal_kick_batch &batch) {
    for (const LoggedInDevice *device = user.devices; device != nullptr; device = device->next) {
        parse_mac(device->mac, batch.macs[batch.head.count++]);
        if (batch.head.count < std::size(batch.macs)) continue;
        tpi_portal_broadcast_pkt_to_ap(&batch.head);
        start_batch(batch);
    }
    free_devices(user);
    user.device_count = 0;
    user.state = WebUserState::expired;
}

void sweep(portal_kick_batch &batch, int64_t now) {
    for (WebUser *user : web_users)
        for (; user != nullptr; user = user->next)
            if (user->expires != 0 && user->expiry_time < now) expire(*user, batch);
}

}  // namespace

}  // namespace ap

using namespace ap;

void tpi_web_user_timeout(struct portal_kick_batch *batch) {
    const MutexLock lock(web_user_mutex);
    const int64_t now = time(nullptr);
    start_batch(*batch);
    if (std::abs(now - last_sweep) > sweep_interval_seconds) {
        last_sweep = now;
        sweep(*batch, now);
    }
    if (batch->head.count != 0) tpi_portal_broadcast_pkt_to_ap(&batch->head);
}
