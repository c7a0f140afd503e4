// world.cpp: answers questions about the world, and reads and writes its two files under the lock.

#include "platform/host/world.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "foundation/file_io.h"
#include "platform/host/safe_file.h"

namespace ap::host {

namespace {

constexpr char scenario_file[] = "/apbox/scenario.json", name_file[] = "/apbox/name";
constexpr char state_file[] = "/apbox/world/state.json", lock_file[] = "/apbox/world/lock";
constexpr double beacon_load = 0.01, highest_load = 0.95;

pthread_mutex_t world_mutex = PTHREAD_MUTEX_INITIALIZER;

double now_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string box_name() {
    std::string name, error;
    read_whole_file(name_file, name, error);
    return name.substr(0, name.find_first_of("\r\n"));
}

// By the box's whole name, else by what stands behind its last "-"; else the first.
const AccessPoint *find_own(const std::vector<AccessPoint> &points, const std::string &name) {
    for (const std::string &wanted : {name, name.substr(name.rfind('-') + 1)}) {
        const auto found = std::ranges::find(points, wanted, &AccessPoint::name);
        if (found != points.end()) return &*found;
    }
    return points.empty() ? nullptr : &points.front();
}

// Says once in a process what is wrong with the scenario.
void complain(const std::string &error) {
    static std::atomic<bool> said{false};
    if (!said.exchange(true)) std::fprintf(stderr, "%s: %s\n", scenario_file, error.c_str());
}

std::optional<Scenario> read_scenario() {
    std::string text, error;
    if (!read_whole_file(scenario_file, text, error)) return Scenario{};
    auto scenario = parse_scenario(text, error);
    if (!scenario) complain(error);
    return scenario;
}

// A counter that has been growing since the client associated; it wraps as the driver's do.
uint32_t counter(uint32_t before, double per_second, double seconds) {
    const double grown = std::fmod(std::floor(std::max(0.0, per_second) * seconds), 4294967296.0);
    return before + static_cast<uint32_t>(grown);
}

}  // namespace

World::World(Scenario scenario, WorldState state, const std::string &own_name)
    : scenario_(std::move(scenario)), state_(std::move(state)) {
    own_ = find_own(scenario_.access_points, own_name);
    if (state_.started_at <= 0) change().started_at = now_seconds();
}

RadioPlace World::find_interface(const std::string &name) const {
    if (own_ == nullptr || name.empty()) return {};
    for (const Radio &radio : own_->radios) {
        if (radio.interface == name) return {own_, &radio, nullptr};
        for (const Network &network : radio.networks)
            if (network.interface == name || network.os_name == name) return {own_, &radio, &network};
    }
    return {};
}

RadioState World::radio_state(const RadioPlace &place) const {
    const auto found = state_.radios.find(place.key());
    if (found != state_.radios.end()) return found->second;
    return {place.radio->setting, place.radio->power_dbm};
}

std::vector<const Client *> World::clients_of(const RadioPlace &place) const {
    const auto is_here = [&](const Client &client) {
        if (client.access_point != place.access_point->name) return false;
        if (place.network != nullptr) return client.interface == place.network->interface;
        return std::ranges::find(place.radio->networks, client.interface, &Network::interface) !=
               place.radio->networks.end();
    };
    std::vector<const Client *> here;
    for (const Client &client : scenario_.clients)
        if (is_here(client)) here.push_back(&client);
    return here;
}

double World::seconds_since_start() const { return std::max(0.0, now_seconds() - state_.started_at); }

double World::connected_seconds(const Client &client) const { return client.connected_before + seconds_since_start(); }

uint32_t World::bytes_received(const Client &client) const {
    return counter(client.received_before, client.received_per_second, seconds_since_start());
}

uint32_t World::bytes_sent(const Client &client) const {
    return counter(client.sent_before, client.sent_per_second, seconds_since_start());
}

double World::client_strength(const RadioPlace &place, const Client &client) const {
    return received_strength(scenario_, place.radio->band, client.power_dbm, client.position,
                             place.access_point->position);
}

double World::load_of(const RadioPlace &place) const {
    double bytes_per_second = 0;
    for (const Client *client : clients_of(place))
        bytes_per_second += client->received_per_second + client->sent_per_second;
    const double capacity = link_capacity(radio_state(place).setting.bandwidth) * 1e6;
    return std::min(highest_load, beacon_load + bytes_per_second * 8 / capacity);
}

// Calls action(place) for every network of the band that an access point sends.
template <typename Action> void World::each_transmitter(int band, Action action) const {
    for (const AccessPoint &point : scenario_.access_points) {
        for (const Radio &radio : point.radios) {
            for (const Network &network : radio.networks) {
                const RadioPlace place{&point, &radio, &network};
                if (radio.band == band && place.is_up()) action(place);
            }
        }
    }
}

std::vector<HeardNetwork> World::heard_by(const RadioPlace &place) const {
    std::vector<HeardNetwork> heard;
    const int band = place.radio->band;
    const auto add = [&](const Network &network, const ChannelSetting &setting, int power, Position from, double load) {
        const double strength = received_strength(scenario_, band, power, from, place.access_point->position);
        if (strength >= scenario_.sensitivity_dbm) heard.push_back({&network, band, setting, strength, load});
    };
    each_transmitter(band, [&](const RadioPlace &source) {
        if (source.radio == place.radio) return;
        const RadioState state = radio_state(source);
        add(*source.network, state.setting, state.power_dbm, source.access_point->position, load_of(source));
    });
    for (const Neighbour &neighbour : scenario_.neighbours)
        if (neighbour.band == band)
            add(neighbour.network, neighbour.setting, neighbour.power_dbm, neighbour.position, neighbour.load);
    std::ranges::stable_sort(heard, std::greater(), &HeardNetwork::strength_dbm);
    return heard;
}

const Fault *World::meet_fault(const std::string &call, const std::string &interface) {
    for (size_t i = 0; i < scenario_.faults.size(); ++i) {
        const Fault &fault = scenario_.faults[i];
        if (fault.call != call) continue;
        if (!fault.interface.empty() && fault.interface != interface) continue;
        if (!fault.access_point.empty() && (own_ == nullptr || fault.access_point != own_->name)) continue;
        const int calls = change().fault_calls[static_cast<int>(i)]++;
        if (calls < fault.after || (fault.times >= 0 && calls - fault.after >= fault.times)) continue;
        return &fault;
    }
    return nullptr;
}

WorldAccess::WorldAccess() : lock_(world_mutex, lock_file) {
    if (!lock_) return;
    auto scenario = read_scenario();
    if (scenario) world_.emplace(std::move(*scenario), read_world_state(state_file), box_name());
}

WorldAccess::~WorldAccess() {
    if (world_ && world_->is_changed() && !write_world_state(state_file, world_->state())) std::perror(state_file);
}

}  // namespace ap::host
