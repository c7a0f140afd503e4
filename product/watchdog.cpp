// watchdog.cpp: the hardware watchdog behind either of two kernel interfaces; the first that exists wins.

#include <unistd.h>

#include "applatform/commands.h"
#include "apsupport/product.h"

namespace ap {

namespace {

enum class Action { enable, disable, feed };

struct WatchdogInterface {
    const char *path;
    const char *commands[3][2];  // by action: what is run, in order
};

constexpr WatchdogInterface watchdog_interfaces[] = {
    {"/proc/watchdog",
     {{"echo enable > /proc/watchdog", "echo 60 > /proc/watchdog"},
      {"echo 60 > /proc/watchdog", "echo disable > /proc/watchdog"},
      {"echo 60 > /proc/watchdog", nullptr}}},
    {"/proc/watchdog_cmd",
     {{"echo enable 1 interval 30 > /proc/watchdog_cmd", "echo 1 > /proc/watchdog_kick"},
      {"echo 1 > /proc/watchdog_kick", "echo enable 0 interval 0 > /proc/watchdog_cmd"},
      {"echo 1 > /proc/watchdog_kick", nullptr}}},
};

// The last command's result, or that of `access` when the device has no watchdog.
int drive_watchdog(Action action) {
    int result = 0;
    for (const auto &interface : watchdog_interfaces) {
        result = access(interface.path, F_OK);
        if (result != 0) continue;
        for (const char *command : interface.commands[static_cast<int>(action)])
            if (command != nullptr) result = doSystemCmd("%s", command);
        return result;
    }
    return result;
}

}  // namespace

}  // namespace ap

using namespace ap;

int systool_enable_watchdog(void) { return drive_watchdog(Action::enable); }
int systool_disable_watchdog(void) { return drive_watchdog(Action::disable); }
int systool_feed_watchdog(void) { return drive_watchdog(Action::feed); }
