// kept_store.cpp: see kept_store.h. Used by process 1 alone, on one thread.

#include "tools/apbox/kept_store.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <unistd.h>

#include "tools/apbox/failure.h"
#include "tools/apbox/tree.h"

namespace box {

namespace {

constexpr const char *kept_folders[] = {"cfg", "mnt"};

Descriptor open_in(int folder, const std::string &name, int flags) {
    return Descriptor(
        static_cast<int>(must(openat(folder, name.c_str(), flags | O_RDONLY | O_NOFOLLOW | O_CLOEXEC), name)));
}

std::vector<std::string> names_in(int folder) {
    std::vector<std::string> names;
    Descriptor copy = open_in(folder, ".", O_DIRECTORY);
    DIR *const list = fdopendir(copy.get());
    if (list == nullptr) throw Failure(exit_failed, "a folder cannot be read");
    copy.take();
    while (const dirent *entry = readdir(list)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(list);
    return names;
}

std::string link_target(int folder, const std::string &name) {
    char target[4096];
    return {target, static_cast<size_t>(must(readlinkat(folder, name.c_str(), target, sizeof target), name))};
}

// The way to an open folder, whatever is mounted where it was.
fs::path path_of(const Descriptor &folder) { return real_proc / "self/fd" / std::to_string(folder.get()); }

// A rename between two names of one file does nothing and leaves both; so the first is removed in any case.
void move_over(const fs::path &from, const fs::path &to) {
    must(rename(from.c_str(), to.c_str()), to);
    unlink(from.c_str());
}

}  // namespace

KeptStore::KeptStore(Descriptor kept) : kept_folder_(std::move(kept)), new_file_(path_of(kept_folder_) / ".new") {
    for (const char *name : kept_folders) {
        const fs::path top = new_file_.parent_path() / name;
        make_folder(top);
        Descriptor live = open_file(fs::path("/") / name, O_RDONLY | O_DIRECTORY);
        struct stat info {};
        must(fstat(live.get(), &info), name);
        const NodePointer node = node_of(info);
        node->top = top;
        tops_.push_back({node, std::move(live), info.st_dev});
    }
    unlink(new_file_.c_str());
}

bool KeptStore::holds(const struct stat &info) const {
    return std::ranges::find(tops_, info.st_dev, &TopFolder::device) != tops_.end();
}

KeptStore::NodePointer KeptStore::node_of(const struct stat &info) {
    NodePointer &node = nodes_[{info.st_dev, info.st_ino}];
    if (!node) node = std::make_shared<Node>();
    node->mode = info.st_mode;
    return node;
}

// Null for what has no bytes and no names: sockets, pipes, devices; and for what has just gone.
KeptStore::NodePointer KeptStore::look_up(int folder, const std::string &name) {
    struct stat info {};
    if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return nullptr;
    if (!holds(info) || !(S_ISREG(info.st_mode) || S_ISDIR(info.st_mode) || S_ISLNK(info.st_mode))) return nullptr;
    NodePointer node = node_of(info);
    if (S_ISLNK(info.st_mode)) node->bytes = link_target(folder, name);
    return node;
}

fs::path KeptStore::place_of(const Node &node) {
    return node.top.empty() ? place_of(*node.homes.front().folder) / node.homes.front().name : node.top;
}

void KeptStore::load() {
    std::map<ino_t, fs::path> linked;
    for (const TopFolder &top : tops_) {
        load_folder(top.node->top, path_of(top.live), top.node, linked);
        sync_below(top.live.get(), Depth::names);
    }
}

void KeptStore::load_folder(const fs::path &kept, const fs::path &live, const NodePointer &node,
                            std::map<ino_t, fs::path> &linked) {
    for (const auto &entry : fs::directory_iterator(kept)) {
        const std::string name = entry.path().filename();
        const fs::path place = live / name;
        struct stat info {};
        must(lstat(entry.path().c_str(), &info), entry.path());
        fs::path &first_name = linked[info.st_ino];
        if (S_ISDIR(info.st_mode)) {
            make_folder(place, info.st_mode & 07777);
        } else if (S_ISLNK(info.st_mode)) {
            link_to(fs::read_symlink(entry.path()), place);
        } else if (!first_name.empty()) {
            unlink(place.c_str());
            must(link(first_name.c_str(), place.c_str()), place);
        } else {
            place_file(entry.path(), place);
            first_name = place;
        }
        const Descriptor folder = open_file(live, O_RDONLY | O_DIRECTORY);
        const NodePointer child = look_up(folder.get(), name);
        if (!child) continue;
        child->homes.push_back({node.get(), name});
        node->names[name] = child;
        if (S_ISDIR(info.st_mode)) load_folder(entry.path(), place, child, linked);
    }
}

void KeptStore::sync(int fd, const struct stat &info) {
    if (S_ISREG(info.st_mode)) sync_file(fd, info);
    if (S_ISDIR(info.st_mode)) sync_folder(fd, info);
}

void KeptStore::sync_all() {
    for (const TopFolder &top : tops_) sync_below(top.live.get(), Depth::names_and_bytes);
}

void KeptStore::sync_below(int folder, Depth depth) {
    for (const std::string &name : names_in(folder)) {
        struct stat info {};
        if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || !holds(info)) continue;
        if (S_ISDIR(info.st_mode)) sync_below(open_in(folder, name, O_DIRECTORY).get(), depth);
        if (S_ISREG(info.st_mode) && depth == Depth::names_and_bytes) sync_file(open_in(folder, name, 0).get(), info);
    }
    struct stat info {};
    must(fstat(folder, &info), "a folder");
    sync_folder(folder, info);
}

void KeptStore::sync_file(int fd, const struct stat &info) {
    const NodePointer node = node_of(info);
    std::string bytes = read_all(fd);
    if (node->homes.empty()) {
        node->bytes = std::move(bytes);
    } else {
        write_file(new_file_, bytes, info.st_mode & 07777);
        const fs::path first = place_of(*node);
        move_over(new_file_, first);
        for (size_t i = 1; i < node->homes.size(); ++i) {
            must(link(first.c_str(), new_file_.c_str()), first);
            move_over(new_file_, place_of(*node->homes[i].folder) / node->homes[i].name);
        }
    }
}

void KeptStore::sync_folder(int fd, const struct stat &info) {
    const NodePointer node = node_of(info);
    Names now;
    for (const std::string &name : names_in(fd))
        if (const NodePointer child = look_up(fd, name)) now[name] = child;
    if (is_kept(*node)) {
        for (const auto &[name, child] : now) take_place(*node, name, *child);
        for (const auto &[name, child] : node->names)
            if (!now.contains(name)) drop(*node, name, *child);
    }
    const bool lost_some = !std::ranges::includes(now, node->names);
    node->names = std::move(now);
    if (lost_some) forget_what_is_gone();
}

// Gives `child` its place in the kept copy, which another file may have had.
void KeptStore::take_place(const Node &folder, const std::string &name, Node &child) {
    const Home home{&folder, name};
    if (has_home(child, home)) return;
    const auto before = folder.names.find(name);
    Node *const other = before == folder.names.end() ? nullptr : before->second.get();
    if (other == nullptr || S_ISDIR(other->mode) || S_ISDIR(child.mode)) {
        if (other != nullptr) drop(folder, name, *other);
        put(folder, name, child);
        return;
    }
    save_bytes(home, *other);
    put(folder, name, child);
    std::erase(other->homes, home);
}

void KeptStore::put(const Node &folder, const std::string &name, Node &child) {
    const fs::path place = place_of(folder) / name;
    if (!S_ISDIR(child.mode)) {
        put_file(place, child);
    } else if (is_kept(child)) {
        must(rename(place_of(child).c_str(), place.c_str()), place);
        child.homes.clear();
    } else {
        make_folder(place, child.mode & 07777);
    }
    const bool is_new = child.homes.empty();
    child.homes.push_back({&folder, name});
    if (is_new && S_ISDIR(child.mode))
        for (const auto &[below, grandchild] : child.names)
            if (!has_home(*grandchild, {&child, below})) put(child, below, *grandchild);
}

void KeptStore::put_file(const fs::path &place, Node &child) {
    if (S_ISLNK(child.mode)) {
        link_to(child.bytes, new_file_);
    } else if (!child.homes.empty()) {
        must(link(place_of(child).c_str(), new_file_.c_str()), place);
    } else {
        write_file(new_file_, child.bytes, child.mode & 07777);
        child.bytes.clear();
    }
    move_over(new_file_, place);
}

bool KeptStore::has_home(const Node &node, const Home &home) {
    return std::ranges::find(node.homes, home) != node.homes.end();
}

// A file about to lose its only home may have moved to a folder that was not synced yet.
void KeptStore::save_bytes(const Home &home, Node &child) {
    if (!S_ISREG(child.mode) || child.homes.size() != 1) return;
    child.bytes = read_all(open_file(place_of(*home.folder) / home.name, O_RDONLY).get());
}

void KeptStore::drop(const Node &folder, const std::string &name, Node &child) {
    const Home home{&folder, name};
    if (!has_home(child, home)) return;  // it has moved on
    const fs::path place = place_of(folder) / name;
    if (S_ISDIR(child.mode)) {
        for (const auto &[below, grandchild] : child.names) drop(child, below, *grandchild);
        must(rmdir(place.c_str()), place);
    } else {
        save_bytes(home, child);
        must(unlink(place.c_str()), place);
    }
    std::erase(child.homes, home);
}

// Nodes of files that are neither kept nor in memory any more. A file that was moved has a name somewhere in memory.
void KeptStore::forget_what_is_gone() {
    std::set<std::pair<dev_t, ino_t>> present;
    for (const TopFolder &top : tops_) {
        struct stat info {};
        for (const auto &entry : fs::recursive_directory_iterator(path_of(top.live) / "."))
            if (lstat(entry.path().c_str(), &info) == 0) present.insert({info.st_dev, info.st_ino});
    }
    std::erase_if(nodes_, [&](const auto &entry) { return !is_kept(*entry.second) && !present.contains(entry.first); });
}

}  // namespace box
