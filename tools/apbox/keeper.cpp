// keeper.cpp: see keeper.h. Each start of the device is one new set of namespaces with a process 1 of its own; what
// lasts is the kept copy, the world, and the switches that the ports are plugged into.

#include "tools/apbox/keeper.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"
#include "tools/apbox/mounts.h"
#include "tools/apbox/process_one.h"
#include "tools/apbox/rights.h"

#ifndef CLONE_NEWTIME
#define CLONE_NEWTIME 0x00000080
#endif

namespace box {

namespace {

constexpr int status_without_power = 128 + SIGKILL;

struct Ending {
    enum class Kind { ended, restarts, failed, power_off } kind = Kind::power_off;
    int status = status_without_power;
    std::string why;
};

fs::path folder_of_programs() { return fs::read_symlink("/proc/self/exe").parent_path(); }

// The box has its own clocks that stand at zero when it starts, as a device's do; where the kernel can.
void reset_uptime() {
    timespec monotonic{}, since_boot{};
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    clock_gettime(CLOCK_BOOTTIME, &since_boot);
    if (unshare(CLONE_NEWTIME) != 0) return;
    const auto line = [](const char *clock, const timespec &now) {
        return std::string(clock) + " -" + std::to_string(now.tv_sec) + " 0\n";
    };
    const Descriptor offsets(open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC));
    if (offsets.ok()) write_all(offsets.get(), line("monotonic", monotonic) + line("boottime", since_boot), "clocks");
}

// The start of accelerated time: the factor, and what the machine's clock says now, in nanoseconds.
std::string clock_text(double factor) {
    if (factor == 1) return "";
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::to_string(factor) + " " + std::to_string(int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec) + "\n";
}

class Keeper {
public:
    Keeper(const Options &options, Claim &claim, bool in_background)
        : options_(options), claim_(claim), in_background_(in_background) {}

    int run(const std::function<void()> &is_up);

private:
    void prepare();
    void seal_machine();
    void open_kept_folder();
    void open_control();
    void block_signals();
    void bring_scenario(const fs::path &world) const;
    Start make_start() const;
    Ending boot();
    pid_t start_process_one(Start &start, int keeper_end);
    Ending accompany(pid_t process_1, int channel);
    void pass_on_signals(int channel) const;
    void hear(const Message &message, Ending &ending);

    const Options &options_;
    Claim &claim_;
    const bool in_background_;
    bool is_machine_root_ = false, is_up_ = false;
    Busybox busybox_;
    LanAddress address_{};
    fs::path kept_;
    Descriptor control_, signals_, keep_lock_;
    sigset_t command_signals_{};
    std::string clock_ = clock_text(options_.clock);
    std::string folder_ = fs::current_path();
    std::function<void()> call_when_up_;
};

int Keeper::run(const std::function<void()> &is_up) {
    call_when_up_ = is_up;
    prepare();
    for (;;) {
        ++claim_.info.boots;
        const Ending ending = boot();
        if (ending.kind == Ending::Kind::failed) throw Failure(ending.status, ending.why);
        if (ending.kind != Ending::Kind::restarts) return ending.status;
        if (!in_background_ && claim_.info.boots > options_.restarts)
            throw Failure(exit_failed, "the command restarts the device again and again; --restarts allows it " +
                                           std::to_string(options_.restarts) + " times");
    }
}

void Keeper::prepare() {
    umask(022);
    busybox_ = look_at_busybox();
    address_ = lan_address(options_.address, claim_.info.number);
    claim_.info.address = text_of(address_);
    claim_.info.keep = options_.keep;
    open_control();
    open_kept_folder();
    for (const std::string &folder : options_.writable) make_folder(folder);
    is_machine_root_ = gain_rights(claim_.network_keeper.value_or(0));
    make_or_join_switches(claim_.network_keeper.value_or(0));
    seal_machine();
    block_signals();
}

void Keeper::open_kept_folder() {
    for (const char *name : {"kept", "root"}) make_folder(claim_.folder / name);
    if (options_.keep.empty()) return;
    make_folder(options_.keep);
    keep_lock_ = open_file(fs::path(options_.keep) / ".lock", O_RDWR | O_CREAT);
    if (flock(keep_lock_.get(), LOCK_EX | LOCK_NB) != 0)
        throw Failure(exit_failed, options_.keep + " is in use by another box");
}

// From here on everything of the machine is read-only for the box. The flags are locked in its mount namespace, since
// that belongs to another user namespace.
void Keeper::seal_machine() {
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "keep mounts to ourselves");
    set_access("/", Access::read_only, true);
    set_access("/proc", Access::writable);  // where this process sets the box's clocks
    mount_tmpfs(claim_.folder / "kept", "mode=0755");
    std::vector<std::string> writable = options_.writable;
    if (!options_.keep.empty()) writable.push_back(options_.keep);
    if (!claim_.world.empty()) writable.push_back(claim_.world);
    for (const std::string &folder : writable) {
        bind_mount(folder, folder);
        set_access(folder, Access::writable);
    }
    kept_ = options_.keep.empty() ? claim_.folder / "kept" : fs::path(options_.keep);
    make_folder(kept_ / "flash");
    if (claim_.world.empty()) make_folder(claim_.folder / "kept/world");
    bring_scenario(claim_.world.empty() ? claim_.folder / "kept/world" : claim_.world);
}

void Keeper::bring_scenario(const fs::path &world) const {
    const fs::path usual = fs::path(AP_CHECKOUT) / "examples/device/scenario.json", place = world / "scenario.json";
    if (options_.scenario.empty()) {
        if (fs::exists(usual) && !fs::exists(place)) place_file(usual, place);
        return;
    }
    if (claim_.network_keeper && read_file(place) != read_file(options_.scenario))
        throw Failure(exit_failed, "network " + options_.network + " has another scenario already");
    place_file(options_.scenario, place);
}

void Keeper::open_control() {
    control_ = Descriptor(static_cast<int>(must(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "control socket")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = claim_.folder / "control";
    if (path.size() >= sizeof address.sun_path) throw Failure(exit_failed, path + " is too long for a socket");
    path.copy(address.sun_path, path.size());
    must(::bind(control_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), path);
    must(listen(control_.get(), 16), path);
}

void Keeper::block_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2, SIGCONT}) sigaddset(&set, number);
    sigprocmask(SIG_BLOCK, &set, &command_signals_);
    signals_ = Descriptor(static_cast<int>(must(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signals")));
}

Start Keeper::make_start() const {
    const fs::path device = fs::path(AP_CHECKOUT) / "examples/device";
    Start start{};
    start.options = &options_;
    start.tree.root = claim_.folder / "root";
    start.tree.device = device;
    if (!options_.tree.empty()) start.tree.extra = {options_.tree};
    start.tree.shown = {AP_CHECKOUT, folder_of_programs()};
    const fs::path build = folder_of_programs().parent_path();
    if (fs::exists(build / "CMakeCache.txt")) start.tree.shown.push_back(build);
    for (const auto *folders : {&options_.shown, &options_.writable, &options_.programs})
        start.tree.shown.insert(start.tree.shown.end(), folders->begin(), folders->end());
    start.tree.busybox = busybox_;
    start.tree.flash = kept_ / "flash";
    start.tree.world = claim_.world.empty() ? claim_.folder / "kept/world" : claim_.world;
    start.tree.boot = claim_.info.boots;
    if (in_background_ || !options_.name.empty()) start.tree.name = claim_.info.name;
    start.tree.clock = clock_;
    start.kept = kept_;
    start.host_name = claim_.info.name;
    start.folder = folder_;
    start.programs = folder_of_programs();
    start.address = address_;
    start.control = control_.get();
    start.command_signals = command_signals_;
    start.is_machine_root = is_machine_root_;
    start.lives_on = in_background_;
    start.has_bus = in_background_ || options_.bus || !options_.network.empty();
    return start;
}

Ending Keeper::boot() {
    auto [here, there] = socket_pair();
    Start start = make_start();
    start.channel = there.get();
    reset_uptime();
    const pid_t process_1 = start_process_one(start, here.get());
    there.reset();
    return accompany(process_1, here.get());
}

pid_t Keeper::start_process_one(Start &start, int keeper_end) {
    std::fflush(nullptr);
    const long process = syscall(SYS_clone, CLONE_NEWNS | CLONE_NEWPID | SIGCHLD, 0, 0, 0, 0);
    if (process < 0) throw Failure(exit_no_box, "this machine allows no box: it gives no process namespace");
    if (process == 0) {
        close(keeper_end);
        be_process_one(start);
    }
    return static_cast<pid_t>(process);
}

// Hears what process 1 has to say until it is gone.
Ending Keeper::accompany(pid_t process_1, int channel) {
    Ending ending;
    for (bool alive = true; alive;) {
        pollfd waits[] = {{channel, POLLIN, 0}, {signals_.get(), POLLIN, 0}};
        if (poll(waits, std::size(waits), -1) < 0 && errno != EINTR) must(-1, "wait");
        if (waits[1].revents != 0) pass_on_signals(channel);
        if (waits[0].revents == 0) continue;
        const auto message = receive_message(channel);
        alive = message.has_value();
        if (alive && message->words[0] == "ports") {
            plug_in(process_1, claim_.info.number, claim_.info.boots);
            send_message(channel, {"plugged in"});
        } else if (alive) {
            hear(*message, ending);
        }
    }
    while (waitpid(process_1, nullptr, 0) < 0 && errno == EINTR) {}
    return ending;
}

void Keeper::hear(const Message &message, Ending &ending) {
    const Words &words = message.words;
    const auto number = [&] { return words.size() > 1 ? number_in(words[1]) : exit_failed; };
    if (words[0] == "up") {
        claim_.info.state = "up";
        claim_.publish();
        if (!std::exchange(is_up_, true)) call_when_up_();
    } else if (words[0] == "ended") {
        ending = {Ending::Kind::ended, number(), ""};
    } else if (words[0] == "failed") {
        ending = {Ending::Kind::failed, number(), words.back()};
    } else if (words[0] == "restart" || words[0] == "power-cut") {
        ending.kind = Ending::Kind::restarts;
    }
}

// What the terminal sends reaches the command by itself.
void Keeper::pass_on_signals(int channel) const {
    signalfd_siginfo info{};
    while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (in_background_) {
            send_message(channel, {"stop"});
        } else if (info.ssi_code != SI_KERNEL) {
            send_message(channel, {"signal", std::to_string(info.ssi_signo)});
        }
    }
}

}  // namespace

int keep_box(const Options &options, Claim &claim, bool in_background, const std::function<void()> &is_up) {
    return Keeper(options, claim, in_background).run(is_up);
}

}  // namespace box
