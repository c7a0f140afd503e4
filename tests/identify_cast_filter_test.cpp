// The cast filter: its requests on the box's own device, and what happens when the device is not there or refuses.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "applatform/commands.h"
#include "apsupport/identify.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"

namespace {

std::vector<std::string> log_lines;  // "LEVEL TEXT"
unsigned long refused_request = 0;

std::vector<std::string> framed(std::vector<std::string> lines) {
    lines.insert(lines.begin(), "6 function entry!");
    lines.emplace_back("6 function exit!");
    return lines;
}

constexpr char state_path[] = "/var/run/cast_filter";

}  // namespace

extern "C" void log_debug_print(const char *, int, int level, const char *module, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    EXPECT_STREQ(module, "ap_common_so");
    log_lines.push_back(std::to_string(level) + " " + text);
}

// The refused request fails; every other one reaches the device.
int scripted_ioctl(int fd, unsigned long request, void *argument) __asm__("ioctl");
int scripted_ioctl(int fd, unsigned long request, void *argument) {
    static const auto next = reinterpret_cast<decltype(&scripted_ioctl)>(dlsym(RTLD_NEXT, "ioctl"));
    return request == refused_request ? (errno = EIO, -1) : next(fd, request, argument);
}

namespace {

class CastFilter : public testing::Test {
protected:
    void SetUp() override {
        log_lines.clear();
        std::filesystem::remove_all(state_path);
    }
};

TEST_F(CastFilter, EachCallLeavesItsMarkOnTheDevice) {
    const struct {
        const char *what;
        int command, value;  // command -1: clear
        std::string state;
        std::vector<std::string> lines;
    } steps[] = {
        {"on", 1, 7, "enabled 1 value 7 cleared 0\n", {}},
        {"another value", 1, -2147483647 - 1, "enabled 1 value -2147483648 cleared 0\n", {}},
        {"off", 0, 9, "enabled 0 value -2147483648 cleared 0\n", {}},
        {"clear", -1, 0, "enabled 0 value 0 cleared 1\n", {}},
        {"no such command", 2, 5, "enabled 0 value 0 cleared 1\n", {"2 type of command is error\n"}},
        {"nor this one", -5, 5, "enabled 0 value 0 cleared 1\n", {"2 type of command is error\n"}},
    };
    const int descriptors = test::open_descriptors();
    for (const auto &step : steps) {
        SCOPED_TRACE(step.what);
        log_lines.clear();
        EXPECT_EQ(step.command == -1 ? ap_cast_filter_clear() : ap_cast_filter_set(step.command, step.value), 0);
        EXPECT_EQ(test::read_text(state_path), step.state);
        EXPECT_EQ(log_lines, framed(step.lines));
    }
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST_F(CastFilter, ADeviceThatNeverOpensIsGivenUpAfterThreeSeconds) {
    std::filesystem::create_directory(state_path);
    for (const int command : {-1, 0, 1, 2}) {
        SCOPED_TRACE(command);
        log_lines.clear();
        const test::FakeClock clock;
        EXPECT_EQ(command == -1 ? ap_cast_filter_clear() : ap_cast_filter_set(command, 1), 255);
        EXPECT_EQ(clock.waits_ms(), (std::vector<int64_t>{1000, 2000}));
        EXPECT_EQ(log_lines, framed({"2 open /dev/castfilter failure\n"}));
    }
}

TEST_F(CastFilter, ARefusedValueIsLoggedAsTheDisablingRequest) {
    const struct {
        unsigned long refused;
        int command;
        const char *line, *state;
    } cases[] = {{17, 1, "2 ioctl to the kernel error.type 17\n", ""},
                 {18, 0, "2 ioctl to the kernel error.type 18\n", ""},
                 {19, 1, "2 ioctl to the kernel error.type 18\n", "enabled 1 value 0 cleared 0\n"},
                 {20, -1, "2 ioctl to the kernel error.type 20\n", ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.refused);
        SetUp();
        refused_request = c.refused;
        EXPECT_EQ(c.command == -1 ? ap_cast_filter_clear() : ap_cast_filter_set(c.command, 4), 255);
        refused_request = 0;
        EXPECT_EQ(log_lines, framed({c.line}));
        EXPECT_EQ(test::read_text(state_path), c.state);
    }
}

TEST_F(CastFilter, TheModuleIsLoadedByACommand) {
    EXPECT_EQ(ap_cast_filter_init(), 1);
    EXPECT_EQ(log_lines.front(), "6 function entry!");
    EXPECT_EQ(log_lines.back(), "6 function exit!");
}

}  // namespace
