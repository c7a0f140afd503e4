// gpio_active_low.cpp: turns the polarity of a GPIO line, under the line's lock.

#include <cstdio>
#include <fcntl.h>

#include "applatform/interfaces.h"
#include "apsupport/product.h"
#include "foundation/file_io.h"

namespace ap {

namespace {

constexpr int failed_invalid = -22, failed_busy = -16, failed_open = -2, failed_write = -5;
constexpr size_t path_size = 80;

bool is_valid_gpio(int gpio) { return (gpio >= 0 && gpio <= 10) || (gpio >= 32 && gpio <= 37); }

// 0 when the line is ours from now on.
int take_lock(int gpio) {
    int locked = 0;
    const int result = iof_gpio_lock_get(gpio, &locked);
    if (result != 0) return std::printf("get lock fail"), result;
    if (locked != 0) return failed_busy;
    return iof_gpio_lock_set(gpio, 1);
}

// Writes the digit with its terminating NUL.
int write_value(const char *path, int value) {
    const UniqueFd file = open_fd(path, O_WRONLY);
    if (!file) return std::printf("Fail to open %s\n", path), failed_open;
    const char text[2] = {static_cast<char>('0' + value), '\0'};
    const ssize_t written = retry_interrupted([&] { return write(file.get(), text, sizeof text); });
    if (written != static_cast<ssize_t>(sizeof text))
        return std::printf("Fail to set start[%d]\n", value), failed_write;
    return 0;
}

}  // namespace

}  // namespace ap

using namespace ap;

int iof_gpio_set_active_low(int gpio, int value) {
    if (!is_valid_gpio(gpio)) return std::printf("Gpio id[%d] invalid\n", gpio), failed_invalid;
    if (value != 0 && value != 1) return std::printf("start invalid [%d]\n", value), failed_invalid;
    if (const int result = take_lock(gpio); result != 0) return result;

    // A line whose folder is unknown stays locked.
    const char *folder = iof_gpio_dir_get(gpio);
    if (folder == nullptr) return std::printf("NO find gpio catalog_name gpio_id:%d\n", gpio), failed_invalid;
    char path[path_size];
    std::snprintf(path, sizeof path, "%s/%s/%s", "/sys/devices/virtual/misc/ugw_gpio/gpio_base/", folder, "active_low");

    const int result = write_value(path, value);
    const int unlocked = iof_gpio_lock_set(gpio, 0);
    return unlocked != 0 ? unlocked : result;
}
