// private_lines.cpp: the driver's files under "/proc/kv_wlan/private_ie": "private_ie_98" takes the own line and holds
// the lines of other access points, "private_ie" takes the command "age 98 SECONDS".
//
// They are plain files. What a process of the firmware writes there is taken over when it closes the file; then, and
// whenever a scan's results are read, the driver replaces the first one by the lines that it has heard. A line is heard
// by every access point that has a line port and receives one of the sender's radios, and it is kept until its sender
// has been silent for the age.

#include "platform/host/private_lines.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "foundation/file_io.h"
#include "foundation/text.h"
#include "platform/host/interpose.h"

namespace ap::host {

namespace {

constexpr char lines_file[] = "/proc/kv_wlan/private_ie/private_ie_98";
constexpr char control_file[] = "/proc/kv_wlan/private_ie/private_ie";
constexpr int line_port = 98;
constexpr size_t longest_line = 256;

double now_seconds() { return static_cast<double>(time(nullptr)); }

bool has_line_port(const PrivateElements &elements) {
    return elements.on && std::ranges::find(elements.ports, line_port, &PrivatePort::port) != elements.ports.end();
}

bool sends(const AccessPoint &point, const Network *network) {
    return std::ranges::any_of(point.radios, [&](const Radio &radio) {
        return std::ranges::any_of(radio.networks, [&](const Network &own) { return &own == network; });
    });
}

bool receives(const World &world, const AccessPoint &receiver, const AccessPoint &sender) {
    return std::ranges::any_of(receiver.radios, [&](const Radio &radio) {
        if (!radio.enabled) return false;
        const auto heard = world.heard_by({&receiver, &radio, nullptr});
        return std::ranges::any_of(heard, [&](const HeardNetwork &h) { return sends(sender, h.network); });
    });
}

// Calls action(name, elements) for every other access point that has ever used private elements and is in reach of this
// one; `towards` says which of the two receives.
enum class Towards { own, others };
template <typename Action> void each_in_reach(World &world, Towards towards, Action action) {
    for (const AccessPoint &other : world.scenario().access_points) {
        if (&other == world.own() || !world.state().private_elements.contains(other.name)) continue;
        const bool reached =
            towards == Towards::own ? receives(world, *world.own(), other) : receives(world, other, *world.own());
        if (reached) action(other.name, world.change().private_elements[other.name]);
    }
}

void hear_senders(World &world, PrivateElements &own, double noticed_at) {
    each_in_reach(world, Towards::own, [&](const std::string &name, const PrivateElements &other) {
        if (!other.line.empty()) own.heard[name] = {other.line, noticed_at};
    });
}

void write_heard_lines(const PrivateElements &own) {
    std::string text;
    for (const auto &[sender, heard] : own.heard) text += heard.text + "\n";
    const std::string temporary = std::string(lines_file) + ".new";
    ap::UniqueFd file = ap::open_fd(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!file || !ap::write_full(file.get(), text.data(), text.size())) return;
    file.reset();
    if (std::rename(temporary.c_str(), lines_file) != 0) std::perror(lines_file);
}

// What a closed file held at its beginning, as far as the driver takes it.
std::string written_text(int fd) {
    char bytes[longest_line];
    const ssize_t length = pread(fd, bytes, sizeof bytes, 0);
    return {bytes, static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

void broadcast(World &world, const std::string &written) {
    PrivateElements &own = world.change().private_elements[world.own()->name];
    own.line = has_line_port(own) ? written.substr(0, written.find_first_of("\r\n")) : "";
    if (own.line.empty()) return;
    each_in_reach(world, Towards::others, [&](const std::string &, PrivateElements &other) {
        if (has_line_port(other)) other.heard[world.own()->name] = {own.line, 0};
    });
    write_heard_lines(own);
}

void take_command(World &world, const std::string &written) {
    constexpr std::string_view age_of_lines = "age 98 ";
    if (!written.starts_with(age_of_lines)) return;
    const int seconds = ap::to_int(written.c_str() + age_of_lines.size());
    if (seconds > 0) world.change().private_elements[world.own()->name].age_seconds = seconds;
}

using TakeText = void (*)(World &world, const std::string &written);
template <TakeText take> void take_closed_file(int fd, uintptr_t) {
    const KeepErrno keep;
    const std::string written = written_text(fd);
    WorldAccess access;
    if (access && access->own() != nullptr) take(*access, written);
}

constexpr StandIn own_line = {.closing = take_closed_file<broadcast>};
constexpr StandIn commands = {.closing = take_closed_file<take_command>};

// A file that is only read is the plain one. One that is written can also be read, by the driver when it is closed.
int open_plain(const char *path, int flags, const StandIn &stand_in) {
    if ((flags & O_ACCMODE) == O_RDONLY) return libc::open(path, flags, 0644);
    return adopt_or_close(libc::open(path, (flags & ~O_ACCMODE) | O_RDWR, 0644), stand_in);
}

const PathClaim lines_claim(lines_file, [](int flags) { return open_plain(lines_file, flags, own_line); });
const PathClaim control_claim(control_file, [](int flags) { return open_plain(control_file, flags, commands); });

}  // namespace

void follow_ports(World &world) {
    PrivateElements &own = world.change().private_elements[world.own()->name];
    if (has_line_port(own)) return hear_senders(world, own, now_seconds());
    own.line.clear();
    own.heard.clear();
}

void collect_lines(World &world) {
    const auto known = world.state().private_elements.find(world.own()->name);
    if (known == world.state().private_elements.end() || !has_line_port(known->second)) return;
    PrivateElements &own = world.change().private_elements[world.own()->name];
    const double now = now_seconds();
    hear_senders(world, own, now);
    for (auto &[sender, heard] : own.heard)
        if (heard.noticed_at <= 0) heard.noticed_at = now;
    std::erase_if(own.heard, [&](const auto &entry) { return now - entry.second.noticed_at > own.age_seconds; });
    write_heard_lines(own);
}

}  // namespace ap::host
