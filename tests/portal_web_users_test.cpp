// Web accounts: every answer of every call, names and their buckets, expiry dates, files of bound devices.

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"

namespace {

using test::Account;
using test::mac_number;

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
const std::string first = "AA:BB:CC:00:00:01", second = "AA:BB:CC:00:00:02", stranger = "AA:BB:CC:00:00:03";

std::string file_of(const std::string &name) { return test::read_text("/mnt/s_brcmnand/mac_web_" + name); }

TEST(WebUsers, AnswerEveryCallInEveryState) {
    ASSERT_EQ(test::add({.name = "bound", .macs = {first, second}}), 0);
    ASSERT_EQ(test::add({.name = "open", .shared = 1}), 0);
    ASSERT_EQ(test::add({.name = "past", .shared = 1, .expiry_date = "2001-1-1 0:0"}), 0);
    enum Call { in, out };
    const struct {
        const char *what;
        Call call;
        std::string name, mac, password;
        int result, state;  // the account's afterwards
    } steps[] = {
        {"nobody of that name", in, "boun", first, "secret", 12, -1},
        {"a longer name", in, "bound2", first, "secret", 12, -1},
        {"another case", in, "Bound", first, "secret", 12, -1},
        {"no name", in, "", first, "secret", 12, -1},
        {"wrong password", in, "bound", first, "secreT", 12, 0},
        {"a password's beginning", in, "bound", first, "secre", 12, 0},
        {"no password", in, "bound", first, "", 12, 0},
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
        {"a shared account asks no list", in, "open", stranger, "secret", 15, 1},
        {"expired, right password", in, "past", first, "secret", 13, 2},
        {"expired, wrong password", in, "past", first, "wrong", 12, 2},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(step.call == in ? test::log_in(step.name, step.mac, step.password)
                                  : test::log_out(step.name, step.mac),
                  step.result);
        EXPECT_EQ(test::state_of(step.name), step.state);
    }
    for (const char *name : {"bound", "open", "past"}) {
        EXPECT_EQ(test::remove(name), 0);
        EXPECT_EQ(test::remove(name), 255);
        EXPECT_EQ(test::state_of(name), -1);
    }
}

TEST(WebUsers, ANameBeginsWithOneOfSixtyFiveCharacters) {
    for (int c = 1; c < 256; ++c) {
        SCOPED_TRACE(c);
        const std::string name = static_cast<char>(c) + std::string("x");
        const bool known = std::strchr(alphabet, c) != nullptr;
        EXPECT_EQ(test::add({.name = name, .shared = 1}), known ? 0 : 255);
        EXPECT_EQ(test::log_in(name, first), known ? 15 : 12);
        EXPECT_EQ(test::log_out(name, first), known ? 0 : 255);
        EXPECT_EQ(test::remove(name), known ? 0 : 255);
    }
    EXPECT_EQ(test::add({.name = ""}), 255);
    EXPECT_EQ(test::state_of(""), -1);
}

TEST(WebUsers, FullFieldsAreNamesAndPasswordsToo) {
    const std::string name(16, 'n'), password(16, 'p');
    ASSERT_EQ(test::add({.name = name, .password = password, .shared = 1}), 0);
    EXPECT_EQ(test::log_in(name, first, password), 15);
    EXPECT_EQ(test::log_in(name.substr(1), first, password), 12);
    EXPECT_EQ(test::log_in(name, first, password.substr(1)), 12);
    EXPECT_EQ(test::remove(name), 0);
}

TEST(WebUsers, OneCallAddsAtMostHundredAndFifty) {
    std::vector<portal_web_record> records;
    for (unsigned int i = 0; i < 151; ++i)
        records.push_back(test::record_of({.name = "mass" + std::to_string(i), .shared = 1}));
    EXPECT_EQ(tpi_ap_portal_add_web_user(151, records.data()), 255);
    EXPECT_EQ(test::state_of("mass0"), -1);
    EXPECT_EQ(tpi_ap_portal_add_web_user(150, records.data()), 0);
    EXPECT_EQ(test::state_of("mass0"), 0);
    EXPECT_EQ(test::state_of("mass149"), 0);
    EXPECT_EQ(test::state_of("mass150"), -1);
    for (unsigned int i = 0; i < 150; ++i) EXPECT_EQ(test::remove("mass" + std::to_string(i)), 0);
    EXPECT_EQ(tpi_ap_portal_add_web_user(0, nullptr), 0);
}

TEST(WebUsers, ANewerAccountOfTheSameNameComesFirst) {
    ASSERT_EQ(test::add({.name = "twin", .password = "old", .shared = 1}), 0);
    ASSERT_EQ(test::add({.name = "twin", .password = "new", .shared = 1}), 0);
    EXPECT_EQ(test::log_in("twin", first, "old"), 12);
    EXPECT_EQ(test::log_in("twin", first, "new"), 15);
    EXPECT_EQ(test::remove("twin"), 0);
    EXPECT_EQ(test::log_in("twin", first, "old"), 15);
    EXPECT_EQ(test::remove("twin"), 0);
}

// The account is alive at its expiry and expired a second later.
TEST(WebUsers, ExpiryDatesAreLocalTime) {
    constexpr int64_t always_past = 0, never = UINT32_MAX;
    const char *const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char *zone, *date;
        int64_t expected;
    } cases[] = {
        {"UTC0", "2024-1-1 0:0", 1704067200},      {"UTC0", "2024-01-01 00:00", 1704067200},
        {"UTC0", "2024-2-29 23:59", 1709251140},   {"UTC0", "2023-2-29 0:0", 1677628800},  // the first of March
        {"CST-8", "2024-1-1 0:0", 1704038400},     {"PST8", "2024-1-1 0:0", 1704096000},
        {berlin, "2024-1-15 12:0", 1705316400},    {berlin, "2024-7-1 12:0", 1719828000},
        {berlin, "2024-3-31 1:59", 1711846740},  // the last minute before the clocks go forward
        {berlin, "2024-3-31 3:0", 1711846800},   // and the first after
        {"UTC0", "2024-1-1", always_past},         {"UTC0", "soon", always_past},
        {"UTC0", "2024-13-1 0:0", always_past},    {"UTC0", "2024-0-1 0:0", always_past},
        {"UTC0", "1969-12-31 23:59", always_past}, {"CST-8", "1970-1-1 0:0", always_past},
        {"UTC0", "2107-1-1 0:0", never},           {"UTC0", "99999-1-1 0:0", always_past},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.zone) + " " + c.date);
        setenv("TZ", c.zone, 1);
        tzset();
        const Account account = {.name = "dated", .shared = 1, .expiry_date = c.date};
        for (const int64_t after : {0, 1}) {
            const test::FakeClock clock(c.expected == never || c.expected == always_past
                                            ? test::FakeClock::usual_start_s + after
                                            : c.expected + after);
            const bool is_past = c.expected == always_past || (c.expected != never && after == 1);
            const std::string printed = test::printed_by([&] { EXPECT_EQ(test::add(account), 0); });
            EXPECT_THAT(printed, testing::ContainsRegex("^Debug->src/ap_portal/ap_portal.c: .*--format time is :"));
            EXPECT_EQ(test::state_of("dated"), is_past ? 2 : 0);
            EXPECT_EQ(test::log_in("dated", first), is_past ? 13 : 15);
            EXPECT_EQ(test::remove("dated"), 0);
        }
    }
    unsetenv("TZ");
    tzset();
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
    EXPECT_EQ(test::log_in("guest", first, "other"), 14);
    EXPECT_EQ(test::log_in("guest", second, "other"), 15);
    EXPECT_EQ(update({.name = "guest", .shared = 1, .expiry_date = "2001-1-1 0:0"}), 0);
    EXPECT_EQ(test::log_in("guest", first), 13);

    EXPECT_EQ(update({.name = "#guest", .previous_name = "guest"}), 255);
    EXPECT_EQ(update({.name = "visitor", .shared = 1, .previous_name = "guest"}), 0);
    EXPECT_EQ(test::state_of("guest"), -1);
    EXPECT_EQ(test::log_in("visitor", first), 15);
    EXPECT_EQ(test::remove("visitor"), 0);
}

TEST(BoundDevices, AreKeptInAFileOfTheAccount) {
    std::vector<std::string> twenty;
    std::string lines;
    for (unsigned int i = 0; i < 20; ++i) {
        twenty.push_back(mac_number(i));
        lines += mac_number(i) + "\n";
    }
    const struct {
        const char *what;
        Account account;
        std::string file, old_file;
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
        EXPECT_EQ(file_of("former"), c.old_file);
        EXPECT_EQ(test::remove("kept"), 0);
        EXPECT_EQ(file_of("kept"), "");
    }
}

TEST(BoundDevices, NeverLeaveTheirFolderOrReachAShell) {
    test::write_text("/mnt/victim", "safe");
    for (const std::string name : {"../victim", "a/../../victim", "..", "x;rm -fr /mnt", "$(rm -fr /mnt)", "a'b c"}) {
        SCOPED_TRACE(name);
        const bool has_account = std::strchr(alphabet, name[0]) != nullptr;
        const bool has_file = has_account && name.find('/') == std::string::npos;
        EXPECT_EQ(test::add({.name = name, .macs = {first}, .previous_name = name}), has_account ? 0 : 255);
        EXPECT_EQ(file_of(name), has_file ? first + "\n" : "");
        EXPECT_EQ(test::remove(name), has_account ? 0 : 255);
        EXPECT_FALSE(std::filesystem::exists("/mnt/s_brcmnand/mac_web_" + name));
        EXPECT_EQ(test::read_text("/mnt/victim"), "safe");
    }
}

}  // namespace
