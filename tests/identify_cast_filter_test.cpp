// The cast filter: its requests on the box's own device, and what happens when the device is not there or refuses.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "applatform/commands.h"
#include "apsupport/identify.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"

namespace {

std::string log_text;  // "LEVEL FUNCTION TEXT|" a line
unsigned long refused_request = 0;

constexpr char state_path[] = "/var/run/cast_filter";

}  // namespace

extern "C" void log_debug_print(const char *function, int, int level, const char *module, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    EXPECT_STREQ(module, "ap_common_so");
    log_text += std::to_string(level) + " " + function + " " + text + "|";
}

// The refused request fails; every other one reaches the device.
int scripted_ioctl(int fd, unsigned long request, void *argument) __asm__("ioctl");
int scripted_ioctl(int fd, unsigned long request, void *argument) {
    static const auto next = reinterpret_cast<decltype(&scripted_ioctl)>(dlsym(RTLD_NEXT, "ioctl"));
    return request == refused_request ? (errno = EIO, -1) : next(fd, request, argument);
}

namespace {

enum Command { clear = -1, off, on, unknown };

class CastFilter : public testing::Test {
protected:
    void SetUp() override { std::filesystem::remove_all(state_path); }

    // Between its entry and its exit, the call logs `line`, which begins with the function that logs it.
    static void expect(int command, int value, int result, const std::string &line) {
        log_text.clear();
        EXPECT_EQ(command == clear ? ap_cast_filter_clear() : ap_cast_filter_set(command, value), result);
        const std::string own = command == clear ? "6 ap_cast_filter_clear " : "6 ap_cast_filter_set ";
        EXPECT_EQ(log_text,
                  own + "function entry!|" + (line.empty() ? "" : "2 " + line + "\n|") + own + "function exit!|");
    }
};

TEST_F(CastFilter, EachCallLeavesItsMarkOnTheDevice) {
    const std::string refusal = " ioctl to the kernel error.type ";
    const struct {
        const char *what;
        int command, value;
        unsigned long refused;
        std::string state, line;
    } steps[] = {
        {"on", on, 7, 0, "enabled 1 value 7 cleared 0\n", ""},
        {"another value", on, -2147483647 - 1, 0, "enabled 1 value -2147483648 cleared 0\n", ""},
        {"off, refused", off, 9, 18, "enabled 1 value -2147483648 cleared 0\n", "ap_cast_filter_set" + refusal + "18"},
        {"off", off, 9, 0, "enabled 0 value -2147483648 cleared 0\n", ""},
        {"clear, refused", clear, 0, 20, "enabled 0 value -2147483648 cleared 0\n",
         "ap_cast_filter_clear" + refusal + "20"},
        {"clear", clear, 0, 0, "enabled 0 value 0 cleared 1\n", ""},
        {"no such command", unknown, 5, 0, "enabled 0 value 0 cleared 1\n",
         "ap_cast_filter_set type of command is error"},
        {"on, refused", on, 5, 17, "enabled 0 value 0 cleared 1\n", "ap_cast_filter_set" + refusal + "17"},
        {"its value refused, logged as off", on, 5, 19, "enabled 1 value 0 cleared 1\n",
         "ap_cast_filter_set" + refusal + "18"},
    };
    const int descriptors = test::open_descriptors();
    for (const auto &step : steps) {
        SCOPED_TRACE(step.what);
        refused_request = step.refused;
        expect(step.command, step.value, step.refused == 0 ? 0 : 255, step.line);
        EXPECT_EQ(test::read_text(state_path), step.state);
    }
    refused_request = 0;
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST_F(CastFilter, ADeviceThatNeverOpensIsGivenUpAfterThreeSeconds) {
    std::filesystem::create_directory(state_path);
    for (const int command : {clear, off, on, unknown}) {
        SCOPED_TRACE(command);
        const test::FakeClock clock;
        expect(command, 1, 255, "open_filter_dev open /dev/castfilter failure");
        EXPECT_EQ(clock.waits_ms(), (std::vector<int64_t>{1000, 2000}));
    }
}

TEST_F(CastFilter, ItsModuleMayFailToLoad) {
    log_text.clear();
    EXPECT_EQ(ap_cast_filter_init(), 1);
    EXPECT_EQ(log_text, "6 ap_cast_filter_init function entry!|6 ap_cast_filter_init function exit!|");
}

}  // namespace
