// registry.h: the boxes that are up. Each has a folder boxes/NAME below the state folder, with
//   lock      held (flock) by the box's keeper as long as the box lives: a folder whose lock is free is a leftover
//   info      "key=value" lines for `apbox list`
//   control   the socket that process 1 answers
//   console   what a box in the background prints
// and each network a folder networks/NAME with the world that its boxes share. The state folder is /run/apbox for root
// and $XDG_RUNTIME_DIR/apbox or /tmp/apbox-UID for others; the file `lock` in it guards joining and cleaning.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/apbox/files.h"

namespace box {

struct BoxInfo {
    std::string name, network, address, keep, state;
    int keeper = 0;  // process number of the keeper, as the machine counts
    int number = 1;  // 1, 2, ... among the boxes of one network
    int boots = 0;
};

fs::path state_folder();

// The boxes that are up, sorted by name; removes what dead ones left behind.
std::vector<BoxInfo> living_boxes();

// A box's folder, from the moment that its name is taken to its end.
class Claim {
public:
    // Takes the name (or finds a free one), the network's next number, and the folder of the network's world. Throws
    // when a living box has the name.
    static Claim take(const std::string &name, const std::string &network, bool in_background);
    Claim(Claim &&) = default;
    ~Claim();

    void publish() const;  // writes `info`

    BoxInfo info;
    fs::path folder, world;             // `world` is empty for a box without a network
    std::optional<int> network_keeper;  // the keeper of a living box on the same network, to join it

private:
    Claim() = default;
    void join_network(const std::vector<BoxInfo> &others);

    Descriptor lock_;
    // The state folder as it was reached at first; it stays writable when this process seals its mounts.
    Descriptor root_;
};

// The box that `name` means; without a name the only one that is up. Throws when there is no such box.
BoxInfo find_box(const std::string &name);

fs::path box_folder(const std::string &name);

// Waits until the box's keeper is gone, at most `timeout_ms`.
bool wait_until_gone(const std::string &name, int timeout_ms);

}  // namespace box
