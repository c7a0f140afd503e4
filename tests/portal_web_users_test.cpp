// Web accounts: every answer of every call, names and their buckets, expiry dates, files of bound devices.

#include <cstdlib>
#include <ctime>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"

namespace {

using test::Account;

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
const std::string first = "AA:BB:CC:00:00:01", second = "AA:BB:CC:00:00:02", stranger = "AA:BB:CC:00:00:03";

std::string file_of(const std::string &name) { return test::read_text("/mnt/s_brcmnand/mac_web_" + name); }

TEST(WebUsers, AnswerEveryCallInEveryState) {
    const std::string full_name(16, 'n'), full_password(16, 'p');  // fields without a NUL
    ASSERT_EQ(test::add({.name = "bound", .macs = {first, second}}), 0);
    for (const char *password : {"older", "secret"})
        ASSERT_EQ(test::add({.name = "open", .password = password, .shared = 1}), 0);
    ASSERT_EQ(test::add({.name = "past", .shared = 1, .expiry_date = "2001-1-1 0:0"}), 0);
    ASSERT_EQ(test::add({.name = full_name, .password = full_password, .shared = 1}), 0);
    enum Call { in, out };
    const struct {
        const char *what;
        Call call;
        std::string name, mac, password;
        int result, state;  // the account's afterwards
    } steps[] = {
        {"nobody of that name", in, "boun", first, "secret", 12, -1},
        {"another case", in, "Bound", first, "secret", 12, -1},
        {"wrong password", in, "bound", first, "secreT", 12, 0},
        {"a password's beginning", in, "bound", first, "secre", 12, 0},
        {"a stranger's device", in, "bound", stranger, "secret", 14, 0},
        {"a MAC's beginning", in, "bound", "AA:BB:CC:00:00:0", "secret", 14, 0},
        {"no device", in, "bound", "", "secret", 14, 0},
        {"a device that is not in goes out", out, "bound", first, "", 255, 0},
        {"the first device", in, "bound", first, "secret", 15, 1},
        {"again", in, "bound", first, "secret", 15, 1},
        {"the second device", in, "bound", second, "secret", 15, 1},
        {"the first leaves", out, "bound", first, "", 0, 1},
        {"it was counted once", out, "bound", first, "", 255, 1},
        {"the last leaves", out, "bound", second, "", 0, 0},
        {"an unknown account", out, "bind", second, "", 255, -1},
        {"an older account of the name", in, "open", stranger, "older", 12, 0},
        {"a shared account asks no list", in, "open", stranger, "secret", 15, 1},
        {"expired, right password", in, "past", first, "secret", 13, 2},
        {"expired, wrong password", in, "past", first, "wrong", 12, 2},
        {"full fields", in, full_name, first, full_password, 15, 1},
        {"one character short", in, full_name, first, full_password.substr(1), 12, 1},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(step.call == in ? test::log_in(step.name, step.mac, step.password)
                                  : test::log_out(step.name, step.mac),
                  step.result);
        EXPECT_EQ(test::state_of(step.name), step.state);
    }
    EXPECT_EQ(test::remove("open"), 0);
    EXPECT_EQ(test::log_in("open", stranger, "older"), 15);
    for (const std::string &name : {std::string("bound"), std::string("open"), std::string("past"), full_name}) {
        EXPECT_EQ(test::remove(name), 0);
        EXPECT_EQ(test::remove(name), 255);
    }
}

TEST(WebUsers, ANameBeginsWithOneOfSixtyFiveCharacters) {
    for (int c = 0; c < 256; ++c) {
        SCOPED_TRACE(c);
        const std::string name = static_cast<char>(c) + std::string("x");
        const bool known = c != 0 && std::strchr(alphabet, c) != nullptr;
        EXPECT_EQ(test::add({.name = name, .shared = 1}), known ? 0 : 255);
        EXPECT_EQ(test::log_in(name, first), known ? 15 : 12);
        EXPECT_EQ(test::log_out(name, first), known ? 0 : 255);
        EXPECT_EQ(test::remove(name), known ? 0 : 255);
    }
}

TEST(WebUsers, OneCallAddsAtMostHundredAndFifty) {
    std::vector<portal_web_record> records(151, test::record_of({.name = "mass", .shared = 1}));
    EXPECT_EQ(tpi_ap_portal_add_web_user(151, records.data()), 255);
    EXPECT_EQ(test::state_of("mass"), -1);
    test::fill_field(records[75].user_name, "#refused");
    EXPECT_EQ(tpi_ap_portal_add_web_user(150, records.data()), 255);  // the others are added
    int added = 0;
    while (test::remove("mass") == 0) ++added;
    EXPECT_EQ(added, 149);
    EXPECT_EQ(tpi_ap_portal_add_web_user(0, nullptr), 0);
}

// The account is alive at its expiry and expired a second later. What cannot be read expired in 1970.
TEST(WebUsers, ExpiryDatesAreLocalTime) {
    const char *const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char *zone, *date;
        int64_t expiry_s;
    } cases[] = {
        {"UTC0", "2024-1-1 0:0", 1704067200},  {"UTC0", "2024-02-29 23:59", 1709251140},
        {"PST8", "2024-1-1 0:0", 1704096000},  {berlin, "2024-1-15 12:0", 1705316400},
        {berlin, "2024-7-1 12:0", 1719828000}, {"UTC0", "2024-1-1", 0},
        {"UTC0", "2024-13-1 0:0", 0},          {"UTC0", "1969-12-31 23:59", 0},
        {"UTC0", "99999-1-1 0:0", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.zone) + " " + c.date);
        setenv("TZ", c.zone, 1);
        tzset();
        for (const int after_s : {0, 1}) {
            const test::FakeClock clock(c.expiry_s + after_s);
            const Account account = {.name = "dated", .shared = 1, .expiry_date = c.date};
            EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(test::add(account), 0); }),
                        test::line("Debug", "ap_portal", ".*", "format time is :[-0-9]+ [0-9]+:[0-9]+\n"));
            EXPECT_EQ(test::state_of("dated"), after_s == 0 ? 0 : 2);
            EXPECT_EQ(test::log_in("dated", first), after_s == 0 ? 15 : 13);
            EXPECT_EQ(test::remove("dated"), 0);
        }
    }
    unsetenv("TZ");
    tzset();
    EXPECT_EQ(test::add({.name = "never", .expiry_date = "2107-1-1 0:0"}), 0);
    EXPECT_EQ(test::state_of("never"), 0);
    EXPECT_EQ(test::remove("never"), 0);
}

TEST(WebUsers, AnUpdateReplacesTheAccountAndForgetsItsDevices) {
    const auto update = [](const Account &account) {
        const portal_web_record record = test::record_of(account);
        return tpi_ap_portal_update_web_user(&record);
    };
    EXPECT_EQ(update({.name = "nobody"}), 255);
    ASSERT_EQ(test::add({.name = "guest", .shared = 1}), 0);
    EXPECT_EQ(test::log_in("guest", first), 15);
    EXPECT_EQ(update({.name = "guest", .password = "other", .macs = {second}}), 0);
    EXPECT_EQ(test::state_of("guest"), 0);
    EXPECT_EQ(test::log_out("guest", first), 255);
    EXPECT_EQ(test::log_in("guest", second, "other"), 15);
    EXPECT_EQ(update({.name = "#guest", .previous_name = "guest"}), 255);
    EXPECT_EQ(update({.name = "visitor", .shared = 1, .expiry_date = "2001-1-1 0:0", .previous_name = "guest"}), 0);
    EXPECT_EQ(test::state_of("guest"), -1);
    EXPECT_EQ(test::log_in("visitor", first), 13);
    EXPECT_EQ(test::remove("visitor"), 0);
}

TEST(BoundDevices, AreKeptInAFileOfTheAccount) {
    std::vector<std::string> twenty;
    std::string lines;
    for (unsigned int i = 0; i < 20; ++i) lines += twenty.emplace_back(test::mac_number(i)) + "\n";
    const struct {
        const char *what;
        Account account;
        std::string file, former_file;
    } cases[] = {
        {"twenty devices", {.name = "kept", .macs = twenty}, lines, "left\n"},
        {"the list ends at an empty entry", {.name = "kept", .macs = {first, "", second}}, first + "\n", "left\n"},
        {"no device leaves the file alone", {.name = "kept"}, "old\n", "left\n"},
        {"a shared account writes none", {.name = "kept", .shared = 1, .macs = {first}}, "old\n", "left\n"},
        {"a renamed one", {.name = "kept", .macs = {first}, .previous_name = "former"}, first + "\n", ""},
        {"a shared renamed one", {.name = "kept", .shared = 1, .previous_name = "former"}, "old\n", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::write_text("/mnt/s_brcmnand/mac_web_kept", "old\n");
        test::write_text("/mnt/s_brcmnand/mac_web_former", "left\n");
        EXPECT_EQ(test::add(c.account), 0);
        EXPECT_EQ(file_of("kept"), c.file);
        EXPECT_EQ(file_of("former"), c.former_file);
        EXPECT_EQ(test::remove("kept"), 0);
        EXPECT_EQ(file_of("kept"), "");
    }
}

}  // namespace
