// foundation_debug_table_test.cpp: the shared table of debug levels, between processes and at its limits.

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/shm.h>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "tests/support/capture.h"

namespace {

struct DebugTable : testing::Test {
    void SetUp() override { *get_dbg_info() = {}; }

    static void fill(unsigned int modules) {
        for (unsigned int i = 0; i < modules; ++i)
            EXPECT_EQ(set_dbg_level(("m" + std::to_string(i)).c_str(), i + 1), 1);
    }
};

}  // namespace

TEST_F(DebugTable, AddsChangesAndRemovesModules) {
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

TEST_F(DebugTable, KeepsThirtyOneCharactersOfAName) {
    const std::string longest(31, 'n'), longer(40, 'n');
    EXPECT_EQ(set_dbg_level(longer.c_str(), 2), 1);
    EXPECT_EQ(set_dbg_level(longer.c_str(), 4), 1);
    EXPECT_EQ(get_dbg_info()->slots[0].name, longest);
    EXPECT_EQ(get_dbg_info()->count, 1);
    EXPECT_EQ(get_dbg_info()->name_width, 31);
    EXPECT_EQ(get_dbg_level(longest.c_str()), 4U);
    EXPECT_EQ(get_dbg_level(longer.c_str()), 0U);
}

TEST_F(DebugTable, RefusesTheHundredAndFirstModule) {
    fill(100);
    EXPECT_EQ(set_dbg_level("one more", 1), 0);
    EXPECT_EQ(get_dbg_level("m99"), 100U);
    EXPECT_EQ(set_dbg_level("m99", 3), 1);
    EXPECT_EQ(set_dbg_level("m50", 0), 1);
    EXPECT_EQ(set_dbg_level("one more", 1), 1);
}

// Each case asks first, so that the slot is remembered, changes the table behind the library's back, and asks again.
TEST_F(DebugTable, SeesWhatTheWalkSeesWhereverASlotWasRemembered) {
    const struct {
        const char *what;
        unsigned int expected;
        void (*change)(dbg_info &table);
    } cases[] = {
        {"unchanged", 3, [](dbg_info &) {}},
        {"other level", 9, [](dbg_info &table) { table.slots[2].word = 9 << 1 | 1; }},
        {"not in use", 0, [](dbg_info &table) { table.slots[2].word = 3 << 1; }},
        {"other name", 0, [](dbg_info &table) { table.slots[2].name[1] = 'x'; }},
        {"just within the count", 3, [](dbg_info &table) { table.count = 3; }},
        {"just behind the count", 0, [](dbg_info &table) { table.count = 2; }},
        {"behind a free slot", 3, [](dbg_info &table) { table.slots[0].word = 0, table.count = 2; }},
        {"moved", 8,
         [](dbg_info &table) { table.slots[4] = table.slots[2], table.slots[4].word = 17, table.slots[2] = {}; }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        fill(5);
        ASSERT_EQ(get_dbg_level("m2"), 3U);
        c.change(*get_dbg_info());
        EXPECT_EQ(get_dbg_level("m2"), c.expected);
        EXPECT_EQ(get_dbg_level("m2"), c.expected);
    }
}

TEST_F(DebugTable, ComparesAFieldFullNameAndAReusedBuffer) {
    fill(20);  // more than are remembered
    char name[33] = "m0";
    for (unsigned int i = 0; i < 20; ++i) {
        std::snprintf(name, sizeof name, "m%u", i);
        EXPECT_EQ(get_dbg_level(name), i + 1);
    }
    std::memset(get_dbg_info()->slots[19].name, 'f', 32);
    std::memset(name, 'f', 32);
    EXPECT_EQ(get_dbg_level(name), 20U);
}

TEST_F(DebugTable, IsSharedBetweenProcesses) {
    EXPECT_EQ(set_dbg_level("rfo", 1), 1);
    EXPECT_EQ(get_dbg_level("rfo"), 1U);
    EXPECT_EQ(test::run_in_child([] { _exit(get_dbg_level("rfo") == 1 && set_dbg_level("rfo", 4) == 1 ? 0 : 1); }), 0);
    EXPECT_EQ(get_dbg_level("rfo"), 4U);
    const std::string line = test::printed_by([] { prod_debug("f", 1, 4, "rfo", "obeyed"); });
    EXPECT_NE(line.find("obeyed"), std::string::npos);
}

TEST_F(DebugTable, ShowsOneModuleOrAll) {
    const struct {
        const char *name;
        unsigned int level;
    } modules[] = {{"a", 1}, {"b", 2}, {"c", 3}, {"d", 4}, {"trace", 5}, {"f", 6}};
    for (const auto &m : modules) set_dbg_level(m.name, m.level);
    const auto line = [](const std::string &name, const std::string &level, const std::string &mark) {
        return "\033[0m....[" + name + "] level=" + level + mark;
    };
    const std::string trace = line("trace", "5", "\033[0m\033[0m [T]\n\033[0m");
    const std::string all = line("a    ", "1", "\033[0m\033[1;40;34m [F]\n\033[0m") +
                            line("b    ", "2", "\033[0m\033[1;40;31m [E]\n\033[0m") +
                            line("c    ", "3", "\033[0m\033[1;40;36m [D]\n\033[0m") +
                            line("d    ", "4", "\033[0m\033[1;40;37m [I]\n\033[0m") + trace +
                            line("f    ", "6", "\033[0m\033[1;40;30m [-]\n\033[0m");
    EXPECT_EQ(test::printed_by([] { show_dbg_level(nullptr); }),
              "\nDEBUG status: (total 6)\n\n" + all + "info->num:6\n");
    EXPECT_EQ(test::printed_by([] { show_dbg_level(""); }), "\nDEBUG status: (total 6)\n\n" + all + "info->num:6\n");
    EXPECT_EQ(test::printed_by([] { show_dbg_level("trace"); }), trace + "info->num:6\n");
    EXPECT_EQ(test::printed_by([] { show_dbg_level("nobody"); }), "info->num:6\n");
}

TEST_F(DebugTable, AttachesNamedSegmentsAndNotesTheNewOnes) {
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
