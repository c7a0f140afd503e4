// made_up.h: folders that show another folder's entries as links and files of our own among them.
//
// The kernel's /proc and /sys take no new files, and neither may be written to. So a box shows folders of its own in
// their place: one link per entry of the real folder, which is mounted elsewhere, and the device's own files beside
// them. Only the folders on the way to such a file are made up; everything else is the real thing behind one link.
#pragma once

#include "tools/apbox/files.h"

namespace box {

class MadeUpFolder {
public:
    // `shown` becomes a folder with a link for each entry of `real`, a folder that a program finds at `seen_as`.
    MadeUpFolder(fs::path real, fs::path shown, fs::path seen_as);

    // Makes up the folder `below` too, so that programs can put files into it.
    void open_up(const fs::path &below);

    // Puts every file below `source` at the same place below the shown folder, in front of the real one.
    void add_files(const fs::path &source);

private:
    void add(const fs::path &source, const fs::path &below);

    const fs::path real_, shown_, seen_as_;
};

// Makes `to` a folder with one link per entry of `from`, which a program finds at `seen_as`.
void link_entries(const fs::path &from, const fs::path &to, const fs::path &seen_as);

// Links for the folders of the processes numbered from `first` to before `end`.
void link_processes(const fs::path &shown, const fs::path &seen_as, int first, int end);

}  // namespace box
