// Timers, in this process: the uptime is a text of the test's, every wait is idle, and the loop is left after a few of
// them.

#include <climits>
#include <csetjmp>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <tuple>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "tests/support/capture.h"

static std::string uptime;
static jmp_buf leave_loop;
static int idle_waits_left;

extern "C" int open(const char *path, int flags, ...) {
    if (std::string(path) != "/proc/uptime") return openat(AT_FDCWD, path, flags, 0644);
    if (uptime == "unreadable") return -1;
    const int fd = memfd_create("uptime", 0);
    if (write(fd, uptime.data(), uptime.size()) != static_cast<ssize_t>(uptime.size())) abort();
    lseek(fd, 0, SEEK_SET);
    return fd;
}

extern "C" int epoll_wait(int, epoll_event *, int most, int timeout_ms) {
    EXPECT_EQ(most, 20);
    EXPECT_EQ(timeout_ms, 50);
    if (idle_waits_left-- == 0) longjmp(leave_loop, 1);
    return 0;
}

namespace {

// Walks over the timers at a moment, by default the one of before; what fired, one letter a timer.
std::string fired;
std::string walk(const std::string &now = uptime, int walks = 1) {
    fired.clear();
    uptime = now;
    idle_waits_left = walks;
    if (setjmp(leave_loop) == 0) ms_run();
    return fired;
}

// Each timer's argument is its name. A callback notes it and does what the test has planned for that name.
const void *argument_now;
std::map<char, std::function<void()>> plan;

void note(void *argument, int length) {
    ASSERT_EQ(length, 1);
    argument_now = argument;
    const char name = *static_cast<const char *>(argument);
    fired += name;
    if (plan[name]) plan[name]();
}
void other_callback(void *, int) { fired += '!'; }

void add(const std::string &names, unsigned seconds = 0, unsigned subseconds = 0) {
    for (const char name : names) ms_add_timer(note, &name, 1, seconds, subseconds);
}
void remove(const std::string &names) {
    for (const char name : names) ms_del_timer(note, &name, 1);
}

class Timers : public testing::Test {
protected:
    void SetUp() override {
        uptime = "10.00 1.00\n";
        plan.clear();
    }
    void TearDown() override {
        plan.clear();
        walk("4294967295.99 0\n");
        EXPECT_EQ(test::printed_by(print_timer_list), "");
    }
};

TEST_F(Timers, ReadsTheUptime) {
    using Case = std::tuple<const char *, uint32_t, uint32_t>;
    const Case cases[] = {{"123.45 99.00\n", 123, 450},
                          {"7.05 1.00\n", 7, 50},
                          {"0.99 0.00\n", 0, 990},
                          {"3 4.75\n", 3, 0},
                          {"unreadable", 0, 0},
                          {"", 0, 0},
                          {"99999999999.5\n", UINT_MAX, 50},
                          {"1.999999999 2", 1, UINT_MAX}};
    for (const auto &[text, seconds, subseconds] : cases) {
        uptime = text;
        ms_uptime read = {1, 1};
        EXPECT_EQ(ms_get_uptime(&read), &read);
        EXPECT_EQ(read.seconds, seconds) << text;
        EXPECT_EQ(read.subseconds, subseconds) << text;
    }
}

TEST_F(Timers, FireWhenTheyAreDueWithoutCarry) {
    const std::tuple<const char *, unsigned, unsigned, const char *, const char *> cases[] = {
        {"10.00 0", 0, 0, "9.99 0", "10.00 0"},
        {"10.40 0", 0, 100, "10.49 0", "10.50 0"},
        {"10.95 0", 0, 100, "10.99 0", "11.00 0"},  // 1050 is reached only when second 10 has passed
        {"10.95 0", 0, 5000, "10.99 0", "11.00 0"},
        {"10.50 0", 2, 490, "12.98 0", "12.99 0"},
        {"10.50 0", 2, 500, "12.99 0", "13.00 0"},
        {"10.00 0", UINT_MAX, 0, "4294967294.99 0", "4294967295.00 0"},  // the sum saturates
    };
    for (const auto &[added_at, seconds, subseconds, not_yet, due] : cases) {
        uptime = added_at;
        add("t", seconds, subseconds);
        EXPECT_EQ(walk(not_yet), "") << due;
        EXPECT_EQ(walk(due, 2), "t") << due;
    }
}

TEST_F(Timers, FireByExpiryAndThenInTheOrderOfAdding) {
    add("c", 2), add("a", 1), add("d", 2), add("b", 1, 10), add("e", 2), add("0");
    EXPECT_EQ(walk("12.00 0"), "0abcde");
}

TEST_F(Timers, MayChangeTheListFromTheirCallbacks) {
    const struct {
        const char *what;
        std::function<void()> first;  // what timer "a" of "abc" does; "d" is due much later
        const char *in_one_walk, *in_the_next;
    } cases[] = {
        {"it adds one that lands behind", [] { add("x"); }, "abcx", ""},
        {"it adds one that lands later", [] { add("x", 1); }, "abc", ""},
        {"it adds itself", [] { plan.clear(), add("a"); }, "abca", ""},
        {"it deletes itself", [] { remove("a"); }, "abc", ""},
        {"it deletes itself and the next", [] { remove("ab"); }, "ac", ""},
        {"it deletes all", [] { remove("abcd"); }, "a", ""},
        {"it deletes and adds the next again", [] { remove("b"), add("b"); }, "acb", ""},
        {"it leaves nothing behind and adds one", [] { remove("bcd"), add("x"); }, "a", "x"},
        {"it deletes all of its name by its own argument", [] { ms_del_timer(note, argument_now, 1); }, "abc", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        plan = {{'a', c.first}};
        add("abc"), add("d", 100);
        EXPECT_EQ(walk(), c.in_one_walk);
        EXPECT_EQ(walk(), c.in_the_next);
        remove("dx");
    }
    plan = {{'a', [] { ms_del_timer(note, argument_now, 1); }}};
    add("abaac");
    EXPECT_EQ(walk(), "abc");
    EXPECT_EQ(*static_cast<const char *>(argument_now), '\0');  // cleared, and kept by the process
}

TEST_F(Timers, ThatAddEachOtherForEverEndTheWalk) {
    plan = {{'a', [] { add("a"); }}, {'b', [] { add("b"); }}};
    add("ab");
    EXPECT_EQ(walk().size(), 2U + 1000U);
    EXPECT_EQ(fired.substr(0, 6), "ababab");
}

TEST_F(Timers, AreListedAndDeletedByCallbackLengthAndBytes) {
    add("a", 1);
    ms_add_timer(other_callback, "ab", 1, 5, 0);
    ms_add_timer(other_callback, "text", 5, 6, 0);
    ms_add_timer(other_callback, nullptr, 0, 7, 0);
    ms_add_timer(note, nullptr, 1, 1, 0);  // an argument that cannot be copied makes no timer
    ms_add_timer(note, "a", -1, 1, 0);
    ms_del_timer(note, "ab", 2);
    ms_del_timer(note, "a", 0);
    ms_del_timer(note, nullptr, 1);
    remove("b");
    EXPECT_THAT(
        test::printed_by(print_timer_list),
        testing::MatchesRegex("print_timer_list\\[[0-9 ]*\\]---:list\\[0\\] = 0x[0-9a-f]+, arg_p = 0x[0-9a-f]+, "
                              "time = 11, arg = a\n.*list\\[1\\] = .*, time = 15, arg = a\n"
                              ".*list\\[2\\] = .*, time = 16, arg = text\n.*list\\[3\\] = .*, arg = \n"));
    EXPECT_EQ(walk("17.00 0"), "a!!!");
}

}  // namespace
