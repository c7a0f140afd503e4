// cast_filter.cpp: drives the kernel's multicast and broadcast filter through its character device.
//
// Each call opens the device afresh and closes it before it returns. A request hands its number over by address.

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "apsupport/identify.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"

#define FILTER_LOG(level, ...) AP_PLATFORM_LOG(level, ap::log_module, __VA_ARGS__)

namespace ap {

namespace {

constexpr char log_module[] = "ap_common_so";
constexpr char filter_path[] = "/dev/castfilter";
constexpr int failed = 255;

enum Request : int { enable = 17, disable = 18, set_value = 19, clear = 20 };
enum Command { turn_off = 0, turn_on = 1 };

// Two attempts, since the module may still be loading; the second failure waits as well before it gives up.
UniqueFd open_filter_dev() {
    for (const unsigned int wait_seconds : {1U, 2U}) {
        if (UniqueFd device = open_fd(filter_path, O_RDWR)) return device;
        sleep(wait_seconds);
    }
    FILTER_LOG(2, "open /dev/castfilter failure\n");
    return UniqueFd();
}

// 0, or the number under which the refused request is logged.
int turn_filter_off(const UniqueFd &device) {
    int flag = 0;
    return ioctl(device.get(), Request::disable, &flag) < 0 ? Request::disable : 0;
}

// Likewise. A refused value is logged with the number of the disabling request.
int turn_filter_on(const UniqueFd &device, int value) {
    int flag = 1;
    if (ioctl(device.get(), Request::enable, &flag) < 0) return Request::enable;
    return ioctl(device.get(), Request::set_value, &value) < 0 ? Request::disable : 0;
}

}  // namespace

}  // namespace ap

using namespace ap;

int ap_cast_filter_init(void) {
    AP_PLATFORM_TRACE(log_module);
    [[maybe_unused]] const int status = std::system("insmod /lib/modules/multi_broad_filter.ko");
    return 1;
}

int ap_cast_filter_clear(void) {
    AP_PLATFORM_TRACE(log_module);
    const UniqueFd device = open_filter_dev();
    if (!device) return failed;
    if (ioctl(device.get(), Request::clear, nullptr) >= 0) return 0;
    FILTER_LOG(2, "ioctl to the kernel error.type %d\n", Request::clear);
    return failed;
}

int ap_cast_filter_set(int command, int value) {
    AP_PLATFORM_TRACE(log_module);
    const UniqueFd device = open_filter_dev();
    if (!device) return failed;
    if (command != Command::turn_off && command != Command::turn_on) {
        FILTER_LOG(2, "type of command is error\n");
        return 0;
    }
    const int refused = command == Command::turn_on ? turn_filter_on(device, value) : turn_filter_off(device);
    if (refused == 0) return 0;
    FILTER_LOG(2, "ioctl to the kernel error.type %d\n", refused);
    return failed;
}
