// bus.cpp: the message bus over MQTT: each message goes to the broker on the box's local socket and is acknowledged
// there before the call returns. Timers run one after the other on a thread of their own, the bus's context.
//
// A publisher connects, sends and leaves, so that nothing stays open and a process may fork at any time. A child does
// not inherit timers.

#include "applatform/message_bus.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <memory>
#include <mosquitto.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "foundation/file_io.h"
#include "foundation/owned.h"

namespace ap::host {

namespace {

constexpr char broker_socket[] = "/var/run/bus.socket";
constexpr int keep_alive_s = 60, answer_timeout_ms = 5000, step_timeout_ms = 1000;

struct DestroyClient {
    void operator()(mosquitto *client) const { mosquitto_destroy(client); }
};
using BusClient = std::unique_ptr<mosquitto, DestroyClient>;

// How far a message has come.
struct Delivery {
    bool connected = false, refused = false, acknowledged = false;
};

void on_connect(mosquitto *, void *delivery, int refusal) {
    auto *state = static_cast<Delivery *>(delivery);
    (refusal == 0 ? state->connected : state->refused) = true;
}

void on_publish(mosquitto *, void *delivery, int) { static_cast<Delivery *>(delivery)->acknowledged = true; }

// Works on the connection until the delivery has come as far as `done` says.
bool work_until(mosquitto *client, const Delivery &delivery, const bool &done) {
    for (int waited_ms = 0; !done && waited_ms < answer_timeout_ms; waited_ms += step_timeout_ms)
        if (delivery.refused || mosquitto_loop(client, step_timeout_ms, 1) != MOSQ_ERR_SUCCESS) return false;
    return done;
}

bool publish(const char *topic, const void *data, unsigned int length) {
    static const int library = mosquitto_lib_init();
    Delivery delivery;
    const BusClient client(mosquitto_new(nullptr, true, &delivery));
    if (library != MOSQ_ERR_SUCCESS || !client) return false;
    mosquitto_connect_callback_set(client.get(), on_connect);
    mosquitto_publish_callback_set(client.get(), on_publish);
    if (mosquitto_connect(client.get(), broker_socket, 0, keep_alive_s) != MOSQ_ERR_SUCCESS) return false;
    if (!work_until(client.get(), delivery, delivery.connected)) return false;
    constexpr int at_least_once = 1;
    const int result =
        mosquitto_publish(client.get(), nullptr, topic, static_cast<int>(length), data, at_least_once, false);
    if (result != MOSQ_ERR_SUCCESS || !work_until(client.get(), delivery, delivery.acknowledged)) return false;
    mosquitto_disconnect(client.get());
    return true;
}

struct Timer {
    void (*handler)(void *argument);
    void *argument;
};

double now_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The timers of this process. Timers that are due at the same moment run in the order in which they were set.
class TimerThread {
public:
    bool set(double due, Timer timer) {
        const std::scoped_lock lock(mutex_);
        if (!start()) return false;
        timers_.emplace(due, timer);
        wake();
        return true;
    }

private:
    bool start() {
        if (wake_fd_) return true;
        ap::UniqueFd wake_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        pthread_t thread;
        if (!wake_fd || pthread_create(&thread, nullptr, run_timers, this) != 0) return false;
        pthread_detach(thread);
        wake_fd_ = std::move(wake_fd);
        return true;
    }

    static void *run_timers(void *timers) {
        for (;;) static_cast<TimerThread *>(timers)->run_one();
        return nullptr;
    }

    void wake() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(wake_fd_.get(), &one, sizeof one);
    }

    // Waits until the next timer is due or another one is set, and runs what is due, without the lock.
    void run_one() {
        std::unique_lock lock(mutex_);
        const auto next = timers_.begin();
        const double wait_s = next == timers_.end() ? -1 : next->first - now_seconds();
        if (next != timers_.end() && wait_s <= 0) {
            const Timer timer = next->second;
            timers_.erase(next);
            lock.unlock();
            return timer.handler(timer.argument);
        }
        const int fd = wake_fd_.get();
        lock.unlock();
        pollfd waiting = {fd, POLLIN, 0};
        constexpr double longest_wait_s = 3600;
        const int wait_ms = wait_s < 0 ? -1 : static_cast<int>(std::ceil(std::min(wait_s, longest_wait_s) * 1000));
        uint64_t wakes = 0;
        if (poll(&waiting, 1, wait_ms) > 0) [[maybe_unused]]
            const ssize_t got = read(fd, &wakes, sizeof wakes);
    }

    std::mutex mutex_;
    std::multimap<double, Timer> timers_;
    ap::UniqueFd wake_fd_;  // open while the thread runs
};

// Never destroyed, since its thread runs until the process ends. A forked child begins with timers of its own.
TimerThread &timer_thread() {
    static TimerThread *timers = new TimerThread;
    static const int watched = pthread_atfork(nullptr, nullptr, [] { timers = new TimerThread; });
    (void)watched;
    return *timers;
}

}  // namespace

}  // namespace ap::host

using namespace ap::host;

int holymsg_publish(const char *topic, const void *data, unsigned int length) {
    if (topic == nullptr || (data == nullptr && length != 0)) return -1;
    return publish(topic, data, length) ? 0 : -1;
}

int holymsg_set_timeout(double seconds, void (*handler)(void *argument), void *argument) {
    if (handler == nullptr || !std::isfinite(seconds)) return -1;
    return timer_thread().set(now_seconds() + std::max(0.0, seconds), {handler, argument}) ? 0 : -1;
}
