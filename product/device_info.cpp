// device_info.cpp: what the device says of itself: build time, device record, LED type, system mode.
//
// The build time is the compiler's own; it follows SOURCE_DATE_EPOCH, so that builds stay reproducible.

#include <array>
#include <cstdio>
#include <string_view>

#include "applatform/system.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/text.h"
#include "product/product_data.h"

static_assert(sizeof(device_info) == 64 + 64 + 64 + 32 + 32 + 32 + 4);
static_assert(offsetof(device_info, hardware_version) == 192 && offsetof(device_info, uptime) == 288);

namespace ap {

namespace {

constexpr char build_date[] = __DATE__;  // "Mmm dd yyyy", the day padded with a blank
constexpr char build_time[] = __TIME__;  // "hh:mm:ss"
constexpr size_t compile_date_time_size = 4 + 1 + 2 + 1 + 2 + 1 + 2 + 1 + 2 + 1;

constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// 1 to 12, or 0 for no month's name.
int month_number(std::string_view name) {
    for (size_t i = 0; i < months.size(); ++i)
        if (name.starts_with(months[i])) return static_cast<int>(i) + 1;
    return 0;
}

}  // namespace

}  // namespace ap

using namespace ap;

int get_compile_date_time(char *out) {
    const int length =
        std::snprintf(out, compile_date_time_size, "%04d %02d %02d %02d %02d", to_int(build_date + 7),
                      month_number(build_date), to_int(build_date + 4), to_int(build_time), to_int(build_time + 3));
    return length > 0 ? 1 : 0;
}

int get_device_info(void *, struct device_info *out) {
    *out = {};
    copy_config("sys.hostname", out->host_name);
    copy_config("sys.vendor", out->vendor);
    copy_config("sys.targets", out->model);
    char hardware_version[16];
    copy_config("sys.hwver", hardware_version);
    copy_text(out->hardware_version, hardware_version);
    std::snprintf(out->software_version, sizeof out->software_version, "%s(%s)", firmware_version, firmware_build);
    get_compile_date_time(out->build_time);
    out->uptime = system_get_uptime();
    return 0;
}

int signal_led_type(int index) {
    const ConfigValue signal_index("led.signal.index");
    return !signal_index.empty() && signal_index.number() == index ? 1 : 0;
}

// A device that was never told works in the third mode.
int get_sys_mode(void) {
    const ConfigValue mode("sys.mode");
    return mode.empty() ? 3 : mode.number();
}
