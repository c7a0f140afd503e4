// tree.h: the device's file tree, built anew at each start of a box.
#pragma once

#include <string>
#include <vector>

#include "tools/apbox/files.h"

namespace box {

// What the machine's busybox is like.
struct Busybox {
    bool shell_prefers_applets = false;  // its shell would run its own `ip` in place of the real one
    std::vector<std::string> applets;
};

// Throws when there is no busybox.
Busybox look_at_busybox();

// Folders of the machine that a tree is made of.
struct TreeSources {
    fs::path root;                // the empty folder that becomes the box's root
    fs::path device;              // the device's own files; default.cfg and the like beside them
    std::vector<fs::path> extra;  // folders copied over the device's files
    std::vector<fs::path> shown;  // visible at the same path, with the rights that they have outside
    Busybox busybox;
    fs::path flash, world;  // shown at /apbox/flash and /apbox/world; /apbox/scenario.json is the one in the world
    int boot = 1;           // the number in /apbox/boot
    std::string
        name;  // the text of /apbox/name; empty: none, as for a device without a place of its own in the scenario
    std::string clock;  // the text of /apbox/clock; empty: none
};

// Process 1 builds the tree in three steps: first, with the rights of apbox, everything that the box shall not undo;
// then, in the box's own namespaces and with its network up, what belongs to those; then the tree becomes its root.
void build_tree(const TreeSources &sources);
void finish_tree(const TreeSources &sources);

// Where the real /proc and /sys are mounted in the box.
inline const fs::path real_proc = "/apbox/proc", real_sys = "/apbox/sys";

}  // namespace box
