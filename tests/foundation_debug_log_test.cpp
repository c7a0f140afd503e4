// foundation_debug_log_test.cpp: lines of the diagnostic log at a fixed moment, the error log's limit, and the hex
// dump.

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

extern "C" time_t time(time_t *out) {
    const time_t fixed = 1717199999;  // 2024-05-31 23:59:59 UTC
    if (out != nullptr) *out = fixed;
    return fixed;
}

namespace {

constexpr char function_name[] = "a_function_with_a_long_name";
constexpr char error_log[] = "/var/debug.rfo.log";
const std::string prefix = "23:59:59 [    rfo.E]   42 a_function_with_a_long_na: ";
const std::string red = "\033[1;40;31m", end = "\033[0m";

struct DebugLog : testing::Test {
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        *get_dbg_info() = {};
        set_dbg_level("netctrl", 3);
        unlink(error_log);
    }
};

std::string error_line(const std::string &message) { return red + prefix + message + end; }

std::string printed_at(int level, const char *module, const char *message) {
    return test::printed_by([&] { EXPECT_EQ(prod_debug(function_name, 42, level, module, "%s", message), 0); });
}

}  // namespace

TEST_F(DebugLog, ShowsLinesUpToTheModulesLevelInTheirColours) {
    const std::string name = "] 1234 f                        : hello\n";
    const struct {
        int level;
        const char *module;
        std::string printed;
    } cases[] = {
        {0, "netctrl", "\033[1;40;30m23:59:59 [netctrl.-" + name + end},
        {1, "netctrl", "\033[1;40;34m23:59:59 [netctrl.F" + name + end},
        {2, "netctrl", "\033[1;40;31m23:59:59 [netctrl.E" + name + end},
        {3, "netctrl", "\033[1;40;36m23:59:59 [netctrl.D" + name + end},
        {4, "netctrl", ""},
        {5, "netctrl", ""},
        {1, "unknown", ""},
        {2, "unknown", "\033[1;40;31m23:59:59 [unknown.E" + name + end},
        {4, "talk", "\033[1;40;37m23:59:59 [   talk.I" + name + end},
        {5, "talk", "\033[0m23:59:59 [   talk.T" + name + end},
        {6, "talk", "\033[1;40;30m23:59:59 [   talk.-" + name + end},
    };
    set_dbg_level("talk", 6);
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.module) + " " + std::to_string(c.level));
        EXPECT_EQ(test::printed_by([&] { prod_debug("f", 1234, c.level, c.module, "hel%s", "lo"); }), c.printed);
    }
}

TEST_F(DebugLog, PrintsNothingWithoutAModuleOrAFunction) {
    EXPECT_EQ(test::printed_by([] { prod_debug(nullptr, 1, 2, "rfo", "x"); }), "");
    EXPECT_EQ(test::printed_by([] { prod_debug("f", 1, 2, nullptr, "x"); }), "");
}

TEST_F(DebugLog, EndsALineInExactlyOneLineFeed) {
    const std::pair<const char *, const char *> cases[] = {
        {"", "\n"}, {"\n\n\n", "\n"}, {"text", "text\n"}, {"text\n", "text\n"}, {"a\nb\n\n", "a\nb\n"}};
    for (const auto &[message, line] : cases) EXPECT_EQ(printed_at(2, "rfo", message), error_line(line));
}

TEST_F(DebugLog, CutsALineAtItsBuffer) {
    const size_t room = 10240 - 2 - prefix.size() - 5;
    for (const size_t length : {room - 1, room, room + 1, size_t{20000}}) {
        SCOPED_TRACE(length);
        const std::string message(length, 'm');
        EXPECT_EQ(printed_at(2, "rfo", message.c_str()), error_line(message.substr(0, room) + "\n"));
    }
    get_dbg_info()->name_width = 65535;
    EXPECT_EQ(printed_at(2, "rfo", "unseen").size(), red.size() + 10239 - 5 + end.size());
}

TEST_F(DebugLog, AppendsErrorsToTheirLogAndStartsOverAtTheLimit) {
    const std::string line = "0531 " + prefix + "broken\n";
    const std::tuple<const char *, size_t, bool> cases[] = {
        {"new", 0, true}, {"one byte below", 204799, true}, {"at the limit", 204800, false}, {"above", 204801, false}};
    for (const auto &[what, size, appends] : cases) {
        SCOPED_TRACE(what);
        const std::string old_text(size, 'o');
        test::write_text(error_log, old_text);
        printed_at(2, "rfo", "broken");
        EXPECT_TRUE(test::read_text(error_log) == (appends ? old_text : "") + line);
    }
    set_dbg_level("rfo", 5);
    printed_at(3, "rfo", "not an error");
    EXPECT_EQ(test::read_text(error_log), line);
}

TEST_F(DebugLog, KeepsErrnoAndCountsDescriptors) {
    const int before = test::open_descriptors();
    errno = ENOTTY;
    printed_at(2, "rfo", "broken");
    prod_debug("f", 1, 2, "no/such/folder", "not logged");
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(DebugLog, FlushesColouredLinesOnly) {
    set_dbg_level("rfo", 5);
    const auto survives_exit = [](int level) {
        return !test::printed_by([&] {
                    test::run_in_child([&] { prod_debug("f", 1, level, "rfo", "x"), _exit(0); });
                }).empty();
    };
    EXPECT_TRUE(survives_exit(2));
    EXPECT_TRUE(survives_exit(4));
    EXPECT_FALSE(survives_exit(5));
}

TEST_F(DebugLog, DumpsBytesInRowsOfSixteen) {
    const std::string bytes = "0123456\x1f\x20\x7e\x7f" + std::string("\0\xff", 2) + "ABCDEF";
    const std::string head = "\033[1;40;36mHEXDUMP `t`(length=";
    const std::string first = "00000000 | 30 31 32 33 34 35 36 1f  20 7e 7f 00 ff 41 42 43  | 0123456.  ~...ABC\n";
    const struct {
        int length;
        std::string printed;
    } cases[] = {
        {0, ""},
        {1, head + "1):\n\033[0m00000000 | 30                                                | 0\n"},
        {8, head + "8):\n\033[0m00000000 | 30 31 32 33 34 35 36 1f                           | 0123456.\n"},
        {9, head + "9):\n\033[0m00000000 | 30 31 32 33 34 35 36 1f  20                       | 0123456.  \n"},
        {16, head + "16):\n\033[0m" + first},
        {17, head + "17):\n\033[0m" + first + "00000010 | 44                                                | D\n"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(test::printed_by([&] { prod_hexdump("t", bytes.data(), c.length); }), c.printed);
    }
    EXPECT_EQ(test::printed_by([&] { prod_hexdump(nullptr, bytes.data(), 1), prod_hexdump("t", nullptr, 1); }), "");
}
