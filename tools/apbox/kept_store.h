// kept_store.h: what of a box's kept folders survives a power cut.
//
// The device works on /cfg and /mnt in memory. Beside them lies the kept copy, a plain folder with the subfolders cfg
// and mnt, which holds only what was synced: a file's bytes as of its last sync, a folder's names as of the folder's
// last sync.
//   - a synced file whose name was never synced is not there after a power cut;
//   - a name that was synced without its file's bytes is an empty file;
//   - a rename, removal or link in a folder that was not synced since is undone.
// At each start the folders in memory are filled from the kept copy. An orderly end syncs everything. Files in the kept
// copy are replaced by rename, so that a kill in the middle leaves the old or the new one.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "tools/apbox/files.h"

namespace box {

class KeptStore {
public:
    // `kept` is the kept copy's folder. For process 1 inside the box, whose root is the device's.
    explicit KeptStore(Descriptor kept);

    // Fills the folders in memory; what lies there already belongs to the device and stays.
    void load();

    // True when a file or folder with this status lies in one of the folders in memory.
    bool holds(const struct stat &info) const;

    // Takes the present state of one file or folder, or of everything, into the kept copy. Throws when that fails.
    void sync(int fd, const struct stat &info);
    void sync_all();

private:
    struct Node;
    using NodePointer = std::shared_ptr<Node>;
    using Names = std::map<std::string, NodePointer>;

    // A place in the kept copy: a folder and a name in it.
    struct Home {
        const Node *folder;
        std::string name;
        bool operator==(const Home &) const = default;
    };

    // One file, folder or symbolic link, as it was last synced.
    struct Node {
        mode_t mode = 0;
        std::string bytes;        // its synced bytes while it has no home; of a symbolic link: where it leads
        Names names;              // of a folder
        std::vector<Home> homes;  // a folder has one at most
        fs::path top;             // of a top folder: its place in the kept copy
    };

    struct TopFolder {
        NodePointer node;
        Descriptor live;  // the folder in memory, whatever is mounted over it later
        dev_t device;
    };

    enum class Depth { names, names_and_bytes };

    NodePointer node_of(const struct stat &info);
    NodePointer look_up(int folder, const std::string &name);
    void load_folder(const fs::path &kept, const fs::path &live, const NodePointer &node,
                     std::map<ino_t, fs::path> &linked);
    void sync_file(int fd, const struct stat &info);
    void sync_folder(int fd, const struct stat &info);
    void sync_below(int folder, Depth depth);
    void forget_what_is_gone();

    static bool is_kept(const Node &node) { return !node.top.empty() || !node.homes.empty(); }
    static bool has_home(const Node &node, const Home &home);
    static fs::path place_of(const Node &node);
    void take_place(const Node &folder, const std::string &name, Node &child);
    void put(const Node &folder, const std::string &name, Node &child);
    void put_file(const fs::path &place, Node &child);
    static void drop(const Node &folder, const std::string &name, Node &child);
    static void save_bytes(const Home &home, Node &child);

    const Descriptor kept_folder_;
    const fs::path new_file_;
    std::vector<TopFolder> tops_;
    std::map<std::pair<dev_t, ino_t>, NodePointer> nodes_;
};

}  // namespace box
