// leds.cpp: drives all LEDs at once.

#include "applatform/interfaces.h"
#include "apsupport/product.h"
#include "foundation/console.h"

namespace ap {

namespace {

constexpr int led_lines[] = {0, 8, 5, 1, 2, 3, 4};  // in the order in which they are set

constexpr int value_of_mode(int mode) { return mode == 1 || mode == 2 ? mode : 3; }

}  // namespace

}  // namespace ap

// A line that fails does not stop the others. With the value 3 the first line's failure is logged without a line feed.
int hal_set_all_led(int mode) {
    const int value = ap::value_of_mode(mode);
    for (const int line : ap::led_lines) {
        const int result = iof_gpio_set(line, value);
        if (result == 0) continue;
        if (value == 3 && line == ap::led_lines[0]) {
            AP_PLATFORM_LOG(2, "ap_common_so", "iof_gpio_set failed ret=%d", result);
        } else {
            AP_PLATFORM_LOG(2, "ap_common_so", "iof_gpio_set failed ret=%d\n", result);
        }
    }
    return 0;
}
