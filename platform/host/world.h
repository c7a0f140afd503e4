// world.h: the world that the virtual radios live in: the scenario, and the state that all boxes of a network share.
//
//   WorldAccess access;                             // waits for the world's lock and reads scenario and state
//   if (!access) return -1;                         // no box, or a scenario that describes no world
//   for (const auto &heard : access->heard_by(place)) ...
//
// Without a scenario the world is empty. There is no daemon: whoever asks reads both files under one lock. A change
// becomes visible to the other boxes when the access that made it ends. An access must be short, and a thread holds one
// at a time.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/host/process_lock.h"
#include "platform/host/radio_signal.h"
#include "platform/host/scenario.h"
#include "platform/host/world_state.h"

namespace ap::host {

// A radio interface of an access point: the whole radio, or one of its networks.
struct RadioPlace {
    const AccessPoint *access_point = nullptr;
    const Radio *radio = nullptr;
    const Network *network = nullptr;  // null: the interface is the whole radio

    explicit operator bool() const { return radio != nullptr; }
    std::string key() const { return access_point->name + "/" + radio->interface; }
    bool is_up() const { return radio->enabled && (network == nullptr || network->enabled); }
};

class World {
public:
    World(Scenario scenario, WorldState state, const std::string &own_name);
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    const Scenario &scenario() const { return scenario_; }
    const WorldState &state() const { return state_; }
    WorldState &change() { return changed_ = true, state_; }  // what is changed here is kept and shared
    bool is_changed() const { return changed_; }

    // The access point that this box is: the one of its name, or of what stands behind the last "-" of its name, else
    // the first. Null when the scenario has none.
    const AccessPoint *own() const { return own_; }

    // The interface of that name, at this box's access point. A network is found by either of its two names.
    RadioPlace find_interface(const std::string &name) const;

    RadioState radio_state(const RadioPlace &place) const;
    std::vector<const Client *> clients_of(const RadioPlace &place) const;

    // The seconds since a client associated, and its counters now.
    double connected_seconds(const Client &client) const;
    uint32_t bytes_received(const Client &client) const;
    uint32_t bytes_sent(const Client &client) const;
    double client_strength(const RadioPlace &place, const Client &client) const;

    // Every network of the band that a radio hears, the strongest first, without the radio's own.
    std::vector<HeardNetwork> heard_by(const RadioPlace &place) const;

    // The scripted failure that this call meets, and one more call counted towards it; null when it goes well.
    const Fault *meet_fault(const std::string &call, const std::string &interface);

private:
    template <typename Action> void each_transmitter(int band, Action action) const;
    double load_of(const RadioPlace &place) const;
    double seconds_since_start() const;

    Scenario scenario_;
    WorldState state_;
    const AccessPoint *own_ = nullptr;
    bool changed_ = false;
};

class WorldAccess {
public:
    WorldAccess();
    ~WorldAccess();
    WorldAccess(const WorldAccess &) = delete;
    WorldAccess &operator=(const WorldAccess &) = delete;

    explicit operator bool() const { return world_.has_value(); }
    World *operator->() { return &*world_; }
    World &operator*() { return *world_; }

private:
    ProcessLock lock_;
    std::optional<World> world_;
};

}  // namespace ap::host
