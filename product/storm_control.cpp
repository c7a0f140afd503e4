// storm_control.cpp: limits multicast that a bridge port takes in, where the kernel offers it.

#include <cstdio>

#include "applatform/commands.h"
#include "apsupport/product.h"
#include "foundation/shell_word.h"

namespace ap {

namespace {

constexpr size_t path_size = 256;

bool format_limit_path(char (&path)[path_size], int bridge, const char *port, const char *suffix) {
    const int length =
        std::snprintf(path, sizeof path, "/sys/class/net/br%d/brif/%s/in_multicast_limit%s", bridge, port, suffix);
    return length > 0 && static_cast<size_t>(length) < sizeof path;
}

}  // namespace

}  // namespace ap

using namespace ap;

int storm_ctl_enable(int bridge, const char *port) {
    char limit[path_size], threshold[path_size];
    if (!is_file_name(port) || !format_limit_path(limit, bridge, port, "") ||
        !format_limit_path(threshold, bridge, port, "_threshold") || file_check_exist_or_not(limit) == 0)
        return 0;
    doSystemCmd("echo 1 > %s ", ShellWord(limit).c_str());
    return doSystemCmd("echo 300 > %s", ShellWord(threshold).c_str());
}
