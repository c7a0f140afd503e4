// bound_devices.cpp: the file that keeps an account's bound devices, one MAC a line.
//
// The user name is part of the file's name, so a name that would leave the folder has no file.

#include <cstdio>

#include "applatform/commands.h"
#include "foundation/shell_word.h"
#include "portal/web_users.h"

namespace ap {

namespace {

constexpr size_t path_size = sizeof "/mnt/s_brcmnand/mac_web_" + sizeof(portal_web_record::user_name);

// False when the name makes no path inside the folder.
bool bound_device_path(char (&path)[path_size], std::string_view user_name) {
    if (user_name.empty() || user_name.find('/') != std::string_view::npos) return false;
    std::snprintf(path, sizeof path, "/mnt/s_brcmnand/mac_web_%.*s", static_cast<int>(user_name.size()),
                  user_name.data());
    return true;
}

}  // namespace

void write_bound_devices(const portal_web_record &record) {
    char path[path_size];
    if (!bound_device_path(path, field_text(record.user_name))) return;
    int append = 0;
    for (const auto &mac : record.macs) {
        char line[mac_text_size + 1];
        if (copy_text(line, field_text(mac)) == 0) break;
        do_file_cmd(path, append, "%s\n", line);
        append = 1;
    }
}

void remove_bound_devices(std::string_view user_name) {
    char path[path_size];
    if (bound_device_path(path, user_name)) doSystemCmd("rm -fr %s", ShellWord(path).c_str());
}

}  // namespace ap
