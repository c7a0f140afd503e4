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
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "tests/support/capture.h"

static std::string uptime;
static jmp_buf leave_loop;
static int idle_waits_left;

// With 64-bit file offsets this is open64, which the library calls.
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

void run_due_timers(int walks = 1) {
    idle_waits_left = walks;
    if (setjmp(leave_loop) == 0) ms_run();
}

// Each timer's argument is its name. A callback notes it and does what the test has planned for that name.
std::string fired;
const void *argument_now;
std::map<char, std::function<void()>> plan;

void note(void *argument, int length) {
    ASSERT_EQ(length, 1);
    const char name = *static_cast<const char *>(argument);
    fired += name;
    argument_now = argument;
    if (const auto planned = plan.find(name); planned != plan.end()) planned->second();
}
void other_callback(void *, int) { fired += '!'; }

void add(char name, unsigned seconds = 0, unsigned subseconds = 0) {
    ms_add_timer(note, &name, 1, seconds, subseconds);
}
void remove(char name) { ms_del_timer(note, &name, 1); }

class Timers : public testing::Test {
protected:
    Timers() {
        uptime = "10.00 1.00\n";
        fired.clear();
        plan.clear();
    }
    ~Timers() override {
        uptime = "4294967295.99 0\n";
        plan.clear();
        run_due_timers();
        EXPECT_EQ(test::printed_by(print_timer_list), "");
    }
};

TEST_F(Timers, ReadsTheUptime) {
    const struct {
        const char *text;
        uint32_t seconds, subseconds;
    } cases[] = {
        {"123.45 99.00\n", 123, 450},
        {"7.05 1.00\n", 7, 50},
        {"0.99 0.00\n", 0, 990},
        {"3 4.75\n", 3, 0},
        {"", 0, 0},
        {"unreadable", 0, 0},
        {"99999999999.5\n", UINT_MAX, 50},
        {"1.999999999 2", 1, UINT_MAX},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        uptime = c.text;
        ms_uptime read = {1, 1};
        EXPECT_EQ(ms_get_uptime(&read), &read);
        EXPECT_EQ(read.seconds, c.seconds);
        EXPECT_EQ(read.subseconds, c.subseconds);
    }
}

TEST_F(Timers, FireWhenTheyAreDueWithoutCarry) {
    const struct {
        const char *added_at;
        unsigned seconds, subseconds;
        const char *not_yet, *due;
    } cases[] = {
        {"10.00 0", 0, 0, "9.99 0", "10.00 0"},
        {"10.40 0", 0, 100, "10.49 0", "10.50 0"},
        {"10.95 0", 0, 100, "10.99 0", "11.00 0"},  // 1050 is reached only when second 10 has passed
        {"10.95 0", 0, 5000, "10.99 0", "11.00 0"},
        {"10.50 0", 2, 490, "12.98 0", "12.99 0"},
        {"10.50 0", 2, 500, "12.99 0", "13.00 0"},
        {"10.00 0", UINT_MAX, 0, "4294967294.99 0", "4294967295.00 0"},  // the sum saturates
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.due);
        fired.clear();
        uptime = c.added_at;
        add('t', c.seconds, c.subseconds);
        uptime = c.not_yet;
        run_due_timers();
        EXPECT_EQ(fired, "");
        uptime = c.due;
        run_due_timers(2);
        EXPECT_EQ(fired, "t");
    }
}

TEST_F(Timers, FireByExpiryAndThenInTheOrderOfAdding) {
    add('c', 2), add('a', 1), add('d', 2), add('b', 1, 10), add('e', 2), add('0');
    uptime = "12.00 0";
    run_due_timers();
    EXPECT_EQ(fired, "0abcde");
}

TEST_F(Timers, MayChangeTheListFromTheirCallbacks) {
    const struct {
        const char *what;
        std::function<void()> first;  // what timer "a" of "abc" does; "d" is due much later
        const char *in_one_walk, *in_the_next;
    } cases[] = {
        {"it adds one that lands behind", [] { add('x'); }, "abcx", ""},
        {"it adds one that lands later", [] { add('x', 1); }, "abc", ""},
        {"it adds itself", [] { plan.clear(), add('a'); }, "abca", ""},
        {"it deletes itself", [] { remove('a'); }, "abc", ""},
        {"it deletes the next one", [] { remove('b'); }, "ac", ""},
        {"it deletes itself and the next", [] { remove('a'), remove('b'); }, "ac", ""},
        {"it deletes all", [] { remove('a'), remove('b'), remove('c'), remove('d'); }, "a", ""},
        {"it deletes and adds the next again", [] { remove('b'), add('b'); }, "acb", ""},
        {"it leaves nothing behind and adds one", [] { remove('b'), remove('c'), remove('d'), add('x'); }, "a", "x"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        fired.clear();
        plan = {{'a', c.first}};
        for (const char name : {'a', 'b', 'c'}) add(name);
        add('d', 100);
        run_due_timers();
        EXPECT_EQ(fired, c.in_one_walk);
        fired.clear();
        run_due_timers();
        EXPECT_EQ(fired, c.in_the_next);
        for (const char name : {'d', 'x'}) remove(name);
    }
}

TEST_F(Timers, ThatAddEachOtherForEverEndTheWalk) {
    plan = {{'a', [] { add('a'); }}, {'b', [] { add('b'); }}};
    add('a'), add('b');
    run_due_timers();
    EXPECT_EQ(fired.size(), 2U + 1000U);
    EXPECT_EQ(fired.substr(0, 6), "ababab");
    remove('a'), remove('b');
}

TEST_F(Timers, AreDeletedByCallbackLengthAndBytes) {
    add('a', 1);
    ms_add_timer(other_callback, "a", 1, 1, 0);
    ms_add_timer(other_callback, nullptr, 0, 1, 0);
    ms_add_timer(note, nullptr, 1, 1, 0);  // an argument that cannot be copied makes no timer
    ms_add_timer(note, "a", -1, 1, 0);
    ms_del_timer(note, "ab", 2);
    ms_del_timer(note, "a", 0);
    ms_del_timer(note, nullptr, 1);
    remove('b');
    uptime = "11.00 0";
    run_due_timers();
    EXPECT_EQ(fired, "a!!");
}

TEST_F(Timers, AreAllDeletedByTheArgumentOfTheOneThatRuns) {
    plan = {{'a', [] { ms_del_timer(note, argument_now, 1); }}};
    for (const char name : {'a', 'b', 'a', 'a', 'c'}) add(name);
    run_due_timers();
    EXPECT_EQ(fired, "abc");
    add('d');
    run_due_timers();
    EXPECT_EQ(*static_cast<const char *>(argument_now), '\0');  // cleared, and kept by the process
}

TEST_F(Timers, AreListedWithTheirArgumentAsText) {
    const char unterminated[] = {'a', 'b', 'c'};
    ms_add_timer(other_callback, unterminated, 2, 5, 0);
    ms_add_timer(other_callback, "text", 5, 6, 0);
    const std::string list = test::printed_by(print_timer_list);
    EXPECT_THAT(list,
                testing::ContainsRegex("---:list\\[0\\] = 0x[0-9a-f]+, arg_p = 0x[0-9a-f]+, time = 15, arg = ab\n"));
    EXPECT_THAT(list, testing::ContainsRegex("---:list\\[1\\] = .*, time = 16, arg = text\n$"));
}

}  // namespace
