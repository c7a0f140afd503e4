// registry.cpp: see registry.h. Locks are flock on files of their own; they vanish with the process that holds them.

#include "tools/apbox/registry.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/apbox/channel.h"
#include "tools/apbox/failure.h"

namespace box {

namespace {

fs::path own_folder(const fs::path &path) {
    make_folder(path, 0700);
    struct stat info {};
    must(lstat(path.c_str(), &info), path.string());
    if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid())
        throw Failure(exit_failed, path.string() + " belongs to someone else");
    return path;
}

Descriptor lock_registry(const fs::path &root) {
    Descriptor lock = open_file(root / "lock", O_RDWR | O_CREAT);
    must(flock(lock.get(), LOCK_EX), "lock");
    return lock;
}

// True when the box's keeper is alive: it holds the lock.
bool is_alive(const fs::path &folder) {
    const Descriptor lock(open((folder / "lock").c_str(), O_RDWR | O_CLOEXEC));
    return lock.ok() && flock(lock.get(), LOCK_EX | LOCK_NB) != 0;
}

BoxInfo read_info(const fs::path &folder) {
    std::map<std::string, std::string> values;
    std::ifstream file(folder / "info");
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    const auto number = [&](const char *key) { return number_in(values[key]); };
    return {folder.filename(), values["network"], values["address"], values["keep"],
            values["state"],   number("keeper"),  number("number"),  number("boots")};
}

// Removes the networks on which no box is left.
void clean_networks(const fs::path &root, const std::vector<BoxInfo> &boxes) {
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(root / "networks", error))
        if (std::ranges::find(boxes, entry.path().filename().string(), &BoxInfo::network) == boxes.end())
            fs::remove_all(entry.path(), error);
}

// The living boxes; removes what dead ones left behind. Call with the registry's lock held.
std::vector<BoxInfo> scan_boxes(const fs::path &root) {
    std::vector<BoxInfo> boxes;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(root / "boxes", error)) {
        if (is_alive(entry.path())) {
            boxes.push_back(read_info(entry.path()));
        } else {
            fs::remove_all(entry.path(), error);
        }
    }
    clean_networks(root, boxes);
    std::ranges::sort(boxes, {}, &BoxInfo::name);
    return boxes;
}

fs::path path_of(const Descriptor &folder) { return "/proc/self/fd/" + std::to_string(folder.get()); }

std::string free_name(const std::vector<BoxInfo> &boxes) {
    for (int i = 1;; ++i) {
        std::string name = "ap" + std::to_string(i);
        if (std::ranges::find(boxes, name, &BoxInfo::name) == boxes.end()) return name;
    }
}

}  // namespace

fs::path state_folder() {
    static const fs::path folder = [] {
        if (geteuid() == 0 && access("/run", W_OK) == 0) return own_folder("/run/apbox");
        const char *run_time = std::getenv("XDG_RUNTIME_DIR");
        if (run_time != nullptr && access(run_time, W_OK) == 0) return own_folder(fs::path(run_time) / "apbox");
        return own_folder("/tmp/apbox-" + std::to_string(geteuid()));
    }();
    return folder;
}

fs::path box_folder(const std::string &name) { return state_folder() / "boxes" / name; }

std::vector<BoxInfo> living_boxes() {
    const Descriptor registry = lock_registry(state_folder());
    return scan_boxes(state_folder());
}

Claim Claim::take(const std::string &name, const std::string &network, bool in_background) {
    const Descriptor registry = lock_registry(state_folder());
    const auto others = scan_boxes(state_folder());
    Claim claim;
    claim.info.name = !name.empty() ? name : in_background ? free_name(others) : "run-" + std::to_string(getpid());
    claim.folder = box_folder(claim.info.name);
    if (std::ranges::find(others, claim.info.name, &BoxInfo::name) != others.end())
        throw Failure(exit_failed, "a box named " + claim.info.name + " is up already");
    make_folder(claim.folder);
    claim.lock_ = open_file(claim.folder / "lock", O_RDWR | O_CREAT);
    must(flock(claim.lock_.get(), LOCK_EX | LOCK_NB), "lock");
    claim.info.network = network;
    if (!network.empty()) claim.join_network(others);
    claim.root_ = open_file(state_folder(), O_RDONLY | O_DIRECTORY);
    claim.info.keeper = getpid();
    claim.info.state = "starting";
    claim.publish();
    return claim;
}

// The smallest number that no other box of the network has. The first box starts the world anew.
void Claim::join_network(const std::vector<BoxInfo> &others) {
    std::vector<int> taken;
    for (const BoxInfo &other : others) {
        if (other.network != info.network) continue;
        taken.push_back(other.number);
        network_keeper = other.keeper;
    }
    while (std::ranges::find(taken, info.number) != taken.end()) ++info.number;
    world = state_folder() / "networks" / info.network;
    make_folder(world);
}

void Claim::publish() const {
    std::string text;
    const auto line = [&](const char *key, const std::string &value) { text += std::string(key) + "=" + value + "\n"; };
    line("network", info.network);
    line("address", info.address);
    line("keep", info.keep);
    line("state", info.state);
    line("keeper", std::to_string(info.keeper));
    line("number", std::to_string(info.number));
    line("boots", std::to_string(info.boots));
    const fs::path place = path_of(root_) / "boxes" / info.name;
    write_file(place / "info.new", text);
    fs::rename(place / "info.new", place / "info");
}

Claim::~Claim() {
    if (!root_.ok()) return;
    try {
        const fs::path root = path_of(root_);
        const Descriptor registry = lock_registry(root);
        lock_.reset();
        scan_boxes(root);
    } catch (const std::exception &) {  // the next command cleans up
    }
}

BoxInfo find_box(const std::string &name) {
    const auto boxes = living_boxes();
    if (name.empty() && boxes.size() == 1) return boxes.front();
    if (name.empty() && boxes.empty()) throw Failure(exit_failed, "no box is up");
    if (name.empty()) throw Failure(exit_failed, "several boxes are up; name one (`apbox list` shows them)");
    const auto found = std::ranges::find(boxes, name, &BoxInfo::name);
    if (found == boxes.end()) throw Failure(exit_failed, "no box named " + name + " is up");
    return *found;
}

bool wait_until_gone(const std::string &name, int timeout_ms) {
    for (int waited_ms = 0; is_alive(box_folder(name)); waited_ms += 10) {
        if (waited_ms >= timeout_ms) return false;
        usleep(10 * 1000);
    }
    return true;
}

}  // namespace box
