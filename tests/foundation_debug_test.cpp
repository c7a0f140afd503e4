// foundation_debug_test.cpp: the table of debug levels, between processes and at its limits; lines of the diagnostic log
// at a fixed moment, the error log's limit, and the hex dump.

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/shm.h>
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

constexpr char error_log[] = "/var/debug.rfo.log";
const std::string prefix = "23:59:59 [    rfo.E]   42 a_function_with_a_long_na: ";
const std::string red = "\033[1;40;31m", end = "\033[0m";

struct DebugLevels : testing::Test {
    void SetUp() override { *get_dbg_info() = {}; }

    static void fill(unsigned int modules) {
        for (unsigned int i = 0; i < modules; ++i)
            EXPECT_EQ(set_dbg_level(("m" + std::to_string(i)).c_str(), i + 1), 1);
    }
};
struct DebugLog : DebugLevels {
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        DebugLevels::SetUp();
        set_dbg_level("netctrl", 3);
        unlink(error_log);
    }
};

std::string printed_error(const std::string &message) {
    return test::printed_by(
        [&] { EXPECT_EQ(prod_debug("a_function_with_a_long_name", 42, 2, "rfo", "%s", message.c_str()), 0); });
}
std::string error_line(const std::string &message) { return red + prefix + message + "\n" + end; }

}  // namespace

TEST_F(DebugLevels, AddsChangesAndRemovesModules) {
    const struct {
        const char *module;
        unsigned int level, count, width;
    } steps[] = {
        {"rfo", 3, 1, 3}, {"netctrl", 5, 2, 7},      {"rfo", 4, 2, 7},
        {"rfo", 0, 1, 7}, {"cfm", 0x7fffffff, 2, 7}, {"none", 0, 2, 7},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.module);
        EXPECT_EQ(set_dbg_level(step.module, step.level), 1);
        EXPECT_EQ(get_dbg_level(step.module), step.level);
        EXPECT_EQ(get_dbg_info()->count, step.count);
        EXPECT_EQ(get_dbg_info()->name_width, step.width);
    }
    EXPECT_EQ(get_dbg_level("netctrl"), 5U);
    EXPECT_EQ(get_dbg_level("NETCTRL"), 0U);
    EXPECT_STREQ(get_dbg_info()->slots[0].name, "cfm");  // the first free slot
}

TEST_F(DebugLevels, KeepsThirtyOneCharactersOfAName) {
    const std::string longest(31, 'n'), longer(40, 'n');
    for (const unsigned int level : {2U, 4U}) EXPECT_EQ(set_dbg_level(longer.c_str(), level), 1);
    EXPECT_EQ(get_dbg_info()->slots[0].name, longest);
    EXPECT_EQ(get_dbg_info()->count, 1);
    EXPECT_EQ(get_dbg_info()->name_width, 31);
    EXPECT_EQ(get_dbg_level(longest.c_str()), 4U);
    EXPECT_EQ(get_dbg_level(longer.c_str()), 0U);
}

TEST_F(DebugLevels, RefusesTheHundredAndFirstModule) {
    fill(100);
    EXPECT_EQ(set_dbg_level("one more", 1), 0);
    EXPECT_EQ(get_dbg_level("m99"), 100U);
    EXPECT_EQ(set_dbg_level("m99", 3) + set_dbg_level("m50", 0) + set_dbg_level("one more", 1), 3);
}

// Each case asks first, so that the slot is remembered, changes the table behind the library's back, and asks again.
TEST_F(DebugLevels, SeesWhatTheWalkSeesWhereverASlotWasRemembered) {
    const struct {
        const char *what;
        unsigned int expected;
        void (*change)(dbg_slot *slots, uint16_t &count);
    } cases[] = {
        {"unchanged", 3, [](dbg_slot *, uint16_t &) {}},
        {"other level", 9, [](dbg_slot *slots, uint16_t &) { slots[2].word = 9 << 1 | 1; }},
        {"not in use", 0, [](dbg_slot *slots, uint16_t &) { slots[2].word = 3 << 1; }},
        {"other name", 0, [](dbg_slot *slots, uint16_t &) { slots[2].name[1] = 'x'; }},
        {"just within the count", 3, [](dbg_slot *, uint16_t &count) { count = 3; }},
        {"just behind the count", 0, [](dbg_slot *, uint16_t &count) { count = 2; }},
        {"behind a free slot", 3, [](dbg_slot *slots, uint16_t &count) { slots[0].word = 0, count = 2; }},
        {"name that fills its field", 0, [](dbg_slot *slots, uint16_t &) { std::memset(slots[2].name, 'm', 32); }},
        {"moved", 8, [](dbg_slot *slots, uint16_t &) { std::swap(slots[4], slots[2]), slots[4].word = 17; }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        fill(5);
        ASSERT_EQ(get_dbg_level("m2"), 3U);
        c.change(get_dbg_info()->slots, get_dbg_info()->count);
        EXPECT_EQ(get_dbg_level("m2"), c.expected);
        EXPECT_EQ(get_dbg_level("m2"), c.expected);
    }
}

TEST_F(DebugLevels, IsSharedBetweenProcesses) {
    EXPECT_EQ(set_dbg_level("rfo", 1), 1);
    EXPECT_EQ(test::run_in_child([] { _exit(get_dbg_level("rfo") == 1 && set_dbg_level("rfo", 4) == 1 ? 0 : 1); }), 0);
    EXPECT_EQ(get_dbg_level("rfo"), 4U);
    EXPECT_NE(test::printed_by([] { prod_debug("f", 1, 4, "rfo", "obeyed"); }), "");
}

TEST_F(DebugLevels, ShowsOneModuleOrAll) {
    const char *marks[] = {"\033[1;40;34m [F]", "\033[1;40;31m [E]", "\033[1;40;36m [D]",
                           "\033[1;40;37m [I]", "\033[0m [T]",       "\033[1;40;30m [-]"};
    std::string lines[6], all = "\nDEBUG status: (total 6)\n\n";
    for (unsigned int i = 0; i < 6; ++i) {
        const std::string name = i == 2 ? "longer" : "m" + std::to_string(i);
        set_dbg_level(name.c_str(), i + 1);
        lines[i] = "\033[0m....[" + name + std::string(6 - name.size(), ' ') + "] level=" + std::to_string(i + 1) +
                   "\033[0m" + marks[i] + "\n\033[0m";
        all += lines[i];
    }
    const std::pair<const char *, std::string> cases[] = {
        {nullptr, all}, {"", all}, {"longer", lines[2]}, {"m4", lines[4]}, {"nobody", ""}};
    for (const auto &[name, shown] : cases)
        EXPECT_EQ(test::printed_by([n = name] { show_dbg_level(n); }), shown + "info->num:6\n");
}

TEST_F(DebugLevels, AttachesNamedSegmentsAndNotesTheNewOnes) {
    const std::string before = test::read_text("/var/run/id.shm");
    void *first = get_shared_memory("test.segment", 100);
    void *again = get_shared_memory("test.segment", 40);
    ASSERT_TRUE(first != nullptr && again != nullptr);
    static_cast<char *>(first)[7] = 'x';
    EXPECT_EQ(static_cast<char *>(again)[7], 'x');

    const key_t key = ftok("/var/run/shm.test.segment", 1);
    char line[256];
    std::snprintf(line, sizeof line, "0x%08x id=%8d %5d/%-15s %s\n", static_cast<unsigned int>(key), shmget(key, 0, 0),
                  getpid(), get_self_pname(), "/var/run/shm.test.segment");
    EXPECT_EQ(test::read_text("/var/run/id.shm"), before + line);
    EXPECT_EQ(shmdt(first) + shmdt(again), 0);
    EXPECT_NE(get_shared_memory(std::string(200, 'x').c_str(), 8), nullptr);
    EXPECT_EQ(access(("/var/run/shm." + std::string(114, 'x')).c_str(), F_OK), 0);
}

TEST_F(DebugLog, ShowsLinesUpToTheModulesLevelInTheirColours) {
    using Case = std::tuple<int, const char *, std::string>;
    const Case cases[] = {{0, "netctrl", "\033[1;40;30m23:59:59 [netctrl.-"},
                          {1, "netctrl", "\033[1;40;34m23:59:59 [netctrl.F"},
                          {2, "netctrl", "\033[1;40;31m23:59:59 [netctrl.E"},
                          {3, "netctrl", "\033[1;40;36m23:59:59 [netctrl.D"},
                          {4, "netctrl", ""},
                          {5, "netctrl", ""},
                          {1, "unknown", ""},
                          {2, "unknown", "\033[1;40;31m23:59:59 [unknown.E"},
                          {4, "talk", "\033[1;40;37m23:59:59 [   talk.I"},
                          {5, "talk", "\033[0m23:59:59 [   talk.T"},
                          {6, "talk", "\033[1;40;30m23:59:59 [   talk.-"},
                          {2, nullptr, ""}};
    const std::string rest = "] 1234 f                        : hello\n" + end;
    set_dbg_level("talk", 6);
    for (const auto &[level, module, start] : cases) {
        SCOPED_TRACE(start);
        const std::string line = start.empty() ? "" : start + rest;
        EXPECT_EQ(test::printed_by([&, l = level, m = module] { prod_debug("f", 1234, l, m, "hel%s", "lo"); }), line);
    }
    EXPECT_EQ(test::printed_by([] { prod_debug(nullptr, 1, 2, "rfo", "x"); }), "");
}

TEST_F(DebugLog, EndsALineInOneLineFeedAndAtItsBuffer) {
    const std::pair<const char *, const char *> cases[] = {
        {"", ""}, {"\n\n\n", ""}, {"text", "text"}, {"text\n", "text"}, {"a\nb\n\n", "a\nb"}};
    for (const auto &[message, line] : cases) EXPECT_EQ(printed_error(message), error_line(line));
    const size_t room = 10240 - 2 - prefix.size() - 5;
    for (const size_t length : {room - 1, room, room + 1, size_t{20000}}) {
        const std::string message(length, 'm');
        EXPECT_EQ(printed_error(message), error_line(message.substr(0, room))) << length;
    }
    get_dbg_info()->name_width = 65535;
    EXPECT_EQ(printed_error("unseen").size(), red.size() + 10239 - 5 + end.size());
}

TEST_F(DebugLog, AppendsErrorsToTheirLogAndStartsOverAtTheLimit) {
    const std::string line = "0531 " + prefix + "broken\n";
    const int before = test::open_descriptors();
    for (const size_t size : {0U, 204799U, 204800U, 204801U}) {
        const std::string old_text(size, 'o');
        test::write_text(error_log, old_text);
        errno = ENOTTY;
        printed_error("broken");
        EXPECT_EQ(errno, ENOTTY);
        EXPECT_TRUE(test::read_text(error_log) == (size < 204800 ? old_text : "") + line) << size;
    }
    set_dbg_level("rfo", 5);
    prod_debug("f", 1, 3, "rfo", "not an error");
    prod_debug("f", 1, 2, "no/such/folder", "not logged");
    EXPECT_EQ(test::read_text(error_log), line);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(DebugLog, FlushesColouredLinesOnly) {
    set_dbg_level("rfo", 5);
    for (const int level : {2, 4, 5}) {
        const std::string left_at_exit =
            test::printed_by([&] { test::run_in_child([&] { prod_debug("f", 1, level, "rfo", "x"), _exit(0); }); });
        EXPECT_EQ(left_at_exit.empty(), level == 5);
    }
}

TEST_F(DebugLog, DumpsBytesInRowsOfSixteen) {
    const std::string bytes = "0123456\x1f\x20\x7e\x7f" + std::string("\0\xff", 2) + "ABCDEF";
    const std::string first = "00000000 | 30 31 32 33 34 35 36 1f  20 7e 7f 00 ff 41 42 43  | 0123456.  ~...ABC\n";
    const std::pair<int, std::string> cases[] = {
        {1, "00000000 | 30                                                | 0\n"},
        {8, "00000000 | 30 31 32 33 34 35 36 1f                           | 0123456.\n"},
        {9, "00000000 | 30 31 32 33 34 35 36 1f  20                       | 0123456.  \n"},
        {16, first},
        {17, first + "00000010 | 44                                                | D\n"}};
    for (const auto &[length, rows] : cases) {
        const std::string head = "\033[1;40;36mHEXDUMP `t`(length=" + std::to_string(length) + "):\n\033[0m";
        EXPECT_EQ(test::printed_by([&, n = length] { prod_hexdump("t", bytes.data(), n); }), head + rows);
    }
    EXPECT_EQ(test::printed_by([&] {
                  prod_hexdump("t", bytes.data(), 0), prod_hexdump(nullptr, "b", 1), prod_hexdump("t", nullptr, 1);
              }),
              "");
}
