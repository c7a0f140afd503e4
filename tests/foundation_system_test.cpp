// foundation_system_test.cpp: what comes from the system and the platform: clocks and date texts at a fixed moment, whole
// files, versions, kernel rules with their JSON trace, character sets, and typed members of a JSON object.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <tuple>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tests/support/capture.h"

// A file that no memory holds is a failure for the library to report, not for the sanitizer.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

// No machine has such memory, and the 32-bit kernel takes the size as well, whose limit is twice that.
constexpr off_t huge_size = off_t{1} << 43;

bool sysinfo_fails = false;

// "FUNCTION: TEXT" of the one line that is logged; empty when there is none.
std::string logged_by(const std::function<void()> &action) {
    return std::regex_replace(test::printed_by(action), std::regex(".*\\] +\\d+ (\\w+) *: (.*)\n.*"), "$1: $2");
}

struct Files : testing::Test {
    void SetUp() override {
        set_dbg_level("prod", 3);
        test::write_text("/var/file", "0123456789");
    }
};

std::string hardware_version, call;  // the last platform call
int code_format = 0, conversion_result = 0;

int note(const std::string &text, int result) { return call = text, result; }
std::string print(const cJSON *json) { return ap::HeapPtr<char>(cJSON_PrintUnformatted(json)).get(); }
std::string pair(const char *ip, const char *mask) { return std::string(ip) + "/" + ap::printable(mask); }

}  // namespace

extern "C" {
int clock_gettime(clockid_t clock, timespec *now) noexcept {
    *now = clock == CLOCK_MONOTONIC ? timespec{5000000, 123456789} : timespec{};
    return 0;
}
int gettimeofday(timeval *now, void *) noexcept { return *now = {1717199999, 987654}, 0; }
time_t time(time_t *out) noexcept { return out == nullptr ? 1717199999 : (*out = 1717199999); }
int sysinfo(struct sysinfo *info) noexcept {
    if (sysinfo_fails) return errno = EFAULT, -1;
    return info->uptime = 86400, 0;
}
int GetValue(const char *key, char *value) {
    return std::strcmp(key, "sys.hwver") == 0 && std::strcpy(value, hardware_version.c_str()) != nullptr;
}
int km_dns_redirect_add_rule(cJSON *rule) { return note("add " + print(rule), 3); }
int km_dns_redirect_del_rule(cJSON *rule) { return note("del " + print(rule), 4); }
int km_auto_wizards_gw_port(int port) { return note("port " + std::to_string(port), 5); }
int km_auto_wizards_ip(const char *ip, const char *mask) { return note(pair(ip, mask), 6); }
int km_auto_wizards_manage_ip(const char *ip, const char *mask) { return note("manage " + pair(ip, mask), 7); }
int km_auto_wizards_enable(void) { return note("enable", 8); }
int km_auto_wizards_disable(void) { return note("disable", 9); }
int system_get_code_format(const char *) { return code_format; }
int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size) {
    std::snprintf(out, size, "<%s>", text);
    return note(std::string(target) + " " + std::to_string(size), conversion_result);
}
}

TEST(Clocks, CountInSixtyFourBits) {
    EXPECT_EQ(get_now_us(), 5000000123456U);
    EXPECT_EQ(get_now_ms(), 5000000123U);
    EXPECT_EQ(get_systime_us(), 1717199999987654U);
    EXPECT_EQ(get_systime_ms(), 1717199999987U);
    EXPECT_EQ(get_sys_uptime(), 86400);
    sysinfo_fails = true;
    EXPECT_EQ(logged_by([] { EXPECT_EQ(get_sys_uptime(), 0); }),
              "get_sys_uptime: Failed(14) to get sysinfo, Bad address.");
    sysinfo_fails = false;
}

TEST(Dates, AreLocalTextsInBuffersOfTheirOwn) {
    setenv("TZ", "UTC", 1);
    const char *texts[] = {get_date_str_by_sec(0), get_date_str(), get_datetime_str_by_sec(0), get_datetime_str()};
    EXPECT_STREQ(texts[0], "1970-01-01");
    EXPECT_STREQ(texts[1], "2024-05-31");
    EXPECT_STREQ(texts[2], "1970-01-01 00:00:00");
    EXPECT_STREQ(texts[3], "2024-05-31 23:59:59");
    setenv("TZ", "XST-8", 1);  // another time zone counts at once
    EXPECT_STREQ(get_datetime_str(), "2024-06-01 07:59:59");
}

TEST_F(Files, AreReadAndMeasuredWhenTheyAreFiles) {
    symlink("/var/file", "/var/link");
    test::write_text("/var/huge", "");
    ASSERT_EQ(truncate("/var/huge", huge_size), 0);
    const struct {
        const char *path, *content, *read_log;
        off_t size;  // -1: not measured
        const char *size_log;
    } cases[] = {
        {"/var/file", "0123456789", "", 10, ""},
        {"/var/link", "0123456789", "", 10, ""},
        {"/proc/self/stat", "", "", 0, ""},
        {"/var", nullptr, "get_file_content: /var is not a file.", -1, "get_file_size: '/var' is not a file."},
        {"/var/none", nullptr, "get_file_content: Failed(2) to stat file /var/none, No such file or directory.", -1,
         "get_file_size: Failed(2) to stat file '/var/none', No such file or directory."},
        {"/var/huge", nullptr, "get_file_content: Out of memory.", huge_size, ""},
        {nullptr, nullptr, "", -1, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path == nullptr ? "null" : c.path);
        char *text = nullptr;
        size_t length = 77, size = 77;
        EXPECT_EQ(logged_by([&] { EXPECT_EQ(get_file_content(c.path, &text, &length), c.content != nullptr); }),
                  c.read_log);
        const ap::HeapPtr<char> owner(text);
        EXPECT_STREQ(text, c.content);
        EXPECT_EQ(length, c.content == nullptr ? 77 : strlen(c.content));
        EXPECT_EQ(logged_by([&] { EXPECT_EQ(get_file_size(c.path, &size), c.size >= 0); }), c.size_log);
        EXPECT_EQ(size, c.size < 0 ? 77 : static_cast<size_t>(c.size));
    }
    EXPECT_EQ(get_file_content("/var/file", nullptr, nullptr), 0);
    set_dbg_level("prod", 2);
    char *text = nullptr;
    EXPECT_EQ(logged_by([&] { get_file_content("/var", &text, nullptr), get_file_content("/none", &text, nullptr); }),
              "");
}

TEST_F(Files, AreTouchedAndKeepWhatStandsBehindTheirNewBytes) {
    const int before = test::open_descriptors();
    EXPECT_EQ(touch_file("/var/file"), 0);
    EXPECT_EQ(test::read_text("/var/file"), "0123456789");
    EXPECT_EQ(write_file("/var/file", "abc", 3), 1);
    EXPECT_EQ(test::read_text("/var/file"), "abc3456789");
    umask(0);
    EXPECT_EQ(touch_file("/var/touched"), 0);
    EXPECT_EQ(write_file("/var/fresh", "a\0b", 3), 1);
    EXPECT_EQ(test::read_text("/var/fresh"), std::string("a\0b", 3));
    for (const char *path : {"/var/touched", "/var/fresh"}) {
        struct stat status = {};
        ASSERT_EQ(stat(path, &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0644U);
    }
    const struct {
        const char *path, *data;
        size_t length;
        const char *logged;
    } failures[] = {
        {"/var/unwritten", "abc", 0, ""},
        {"/var/unwritten", nullptr, 3, ""},
        {nullptr, "abc", 3, ""},
        {"/var", "abc", 3, "write_file: Failed(21) to open /var, Is a directory."},
        {"/dev/full", "abc", 3, "write_file: Failed(28) to write /dev/full, No space left on device."},
    };
    for (const auto &c : failures)
        EXPECT_EQ(logged_by([&] { EXPECT_EQ(write_file(c.path, c.data, c.length), 0); }), c.logged);
    EXPECT_NE(access("/var/unwritten", F_OK), 0);
    EXPECT_EQ(logged_by([] { EXPECT_EQ(touch_file("/var/none/x"), 0); }),
              "touch_file: Failed(2) to open /var/none/x, No such file or directory.");
    EXPECT_EQ(logged_by([] { touch_file(nullptr); }), "touch_file: Failed(14) to open (null), Bad address.");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(Versions, OfTheFirmwareComeFromOneFile) {
    using Case = std::tuple<const char *, int, const char *, int>;
    const Case cases[] = {{"V1.2(345)\n\n", 64, "V1.2(345)", 345},
                          {"V1.2(345)", 5, "V1.2", 345},
                          {"V(a)(7)", 64, "V(a)(7)", 0},
                          {"(345)", 64, "(345)", 0},
                          {"V1.2", 64, "V1.2", 0},
                          {"a\nb (-2)\n", 64, "a\nb (-2)", -2},
                          {"", 64, "", 0},
                          {"abc\n", 1, "", 0}};
    char version[64];
    for (const auto &[content, size, expected, revision] : cases) {
        test::write_text("/etc/prodversion.cfg", content);
        EXPECT_EQ(get_prod_version(version, size), 1);
        EXPECT_STREQ(version, expected);
        EXPECT_EQ(get_svn_version(), revision) << content;
    }
    EXPECT_EQ(get_prod_version(version, 0), 0);
    unlink("/etc/prodversion.cfg");
    EXPECT_EQ(get_prod_version(version, sizeof version) + get_svn_version(), 0);
}

TEST(Versions, OfTheHardwareAreFifteenCharacters) {
    using Case = std::tuple<const char *, int, const char *>;
    const Case cases[] = {{"H1", 32, "H1"},
                          {"0123456789abcdef", 32, "0123456789abcde"},
                          {"H1.0", 3, "H1"},
                          {"", 32, "old"},
                          {"H1", 0, "old"}};
    for (const auto &[value, size, expected] : cases) {
        hardware_version = value;
        char version[32] = "old";
        EXPECT_EQ(get_hard_version(version, size), 0);
        EXPECT_STREQ(version, expected);
    }
}

TEST(Versions, OfThePolicyAreASecondField) {
    using Case = std::pair<std::string, std::string>;
    const Case cases[] = {{"a;b\nver; 1.7 ;z\nver;2\n", "1.7"},
                          {"no field with ver\n", "old"},
                          {";ver;1\n", "old"},
                          {"nothing\n", "old"},
                          {"ver;" + std::string(300, 'x') + ";", std::string(251, 'x')}};
    for (const auto &[content, expected] : cases) {
        test::write_text("/etc/policy_bak.cfg", content);
        char version[256] = "old";
        EXPECT_EQ(get_policy_version(version, 1), 0);
        EXPECT_EQ(version, expected);
    }
    EXPECT_EQ(get_policy_version(nullptr, 256), 1);
    unlink("/etc/policy_bak.cfg");
    char version[256];
    EXPECT_EQ(get_policy_version(version, 256), 1);
}

TEST(KernelRules, PassTheirArgumentsOnOrSayWhyNot) {
    const struct {
        int result;
        std::string call, logged;
        std::function<int()> rule;
    } cases[] = {
        {3, R"(add {"Domain":"a.lan","Ip":"10.0.0.1"})", "", [] { return add_dns_redirect_rule("a.lan", "10.0.0.1"); }},
        {4, R"(del {"Domain":"a.lan"})", "", [] { return del_dns_redirect_rule("a.lan"); }},
        {5, "port -1", "", [] { return add_auto_wizards_gw_port(-1); }},
        {6, "10.0.0.1/(null)", "", [] { return add_auto_wizards_ip("10.0.0.1", nullptr); }},
        {7, "manage 10.0.0.1/m", "", [] { return add_auto_wizards_manage_ip("10.0.0.1", "m"); }},
        {8, "enable", "", auto_wizards_enable},
        {9, "disable", "", auto_wizards_disable},
        {-1, "", "Failed to add dns_redirect rule", [] { return add_dns_redirect_rule("a.lan", nullptr); }},
        {-1, "", "Failed to add dns_redirect rule", [] { return add_dns_redirect_rule(nullptr, "10.0.0.1"); }},
        {-1, "", "Failed to del rule by domain", [] { return del_dns_redirect_rule(nullptr); }},
        {-1, "", "Failed to add add_auto_wizards_ip", [] { return add_auto_wizards_ip(nullptr, "m"); }},
        {-1, "", "Failed to add add_auto_wizards_ip", [] { return add_auto_wizards_manage_ip(nullptr, "m"); }},
    };
    for (const auto &c : cases) {
        call.clear();
        const std::string printed = test::printed_by([&] { EXPECT_EQ(c.rule(), c.result); });
        EXPECT_EQ(call, c.call);
        EXPECT_TRUE(c.logged.empty() ? printed.empty() : printed.ends_with(": " + c.logged + "\n\033[0m")) << printed;
    }
}

TEST(KernelRules, ShowTheirJsonFromLevelThreeOn) {
    setenv("TZ", "UTC", 1);
    tzset();
    set_dbg_level("kjson", 2);
    EXPECT_EQ(test::printed_by([] { del_dns_redirect_rule("a.lan"); }), "");
    set_dbg_level("kjson", 3);
    EXPECT_EQ(
        std::regex_replace(test::printed_by([] { del_dns_redirect_rule("a.lan"); }), std::regex("m00\\d\\d "),
                           "mLINE "),
        "\033[0m[0531 23:59:59] \033[0m\033[1;40;35mLINE del_dns_redirect_rul: >>>> {\n\t\"Domain\":\t\"a.lan\"\n} "
        "<<<<\n\033[0m");
}

TEST(CharacterSets, AreConvertedByThePlatform) {
    const std::pair<const char *, std::string> cases[] = {
        {"gb2312", "gb2312 10"}, {"utf8", "utf8 10"}, {"utf-8", "utf8 10"}, {"latin1", ""}, {nullptr, ""}};
    for (const auto &[charset, conversion] : cases) {
        call.clear();
        ap::HeapPtr<char> text;
        const std::string printed = test::printed_by([&, from = charset] { text.reset(encode_chinese(from, "abc")); });
        EXPECT_STREQ(text.get(), conversion.empty() ? nullptr : "<abc>");
        EXPECT_EQ(call, conversion);
        EXPECT_EQ(printed.ends_with(": Failed to encode chinese string.\n\033[0m"), conversion.empty());
    }
    for (const int format : {0, 1, 2}) {
        code_format = format;
        const ap::HeapPtr<char> text(encode_str_to_utf8("abc"));
        EXPECT_STREQ(text.get(), format == 2 ? "abc" : "<abc>");
    }
    conversion_result = -1;
    EXPECT_EQ(encode_chinese("utf8", "abc"), nullptr);
    EXPECT_EQ(encode_str_to_utf8(nullptr), nullptr);
    EXPECT_EQ(get_gb2312("abc"), 0);
}

TEST(JsonMembers, AreReadByTypeOrGiveTheFallback) {
    const ap::UniqueJson json(cJSON_Parse(
        R"({"text":"t","empty":"","number":7.9,"flag":true,"ip":"10.0.0.1","bad":"300.1.1.1","null":null})"));
    using Case = std::tuple<const char *, const char *, int, const char *>;
    const Case cases[] = {{"text", "t", -1, "fb"},
                          {"empty", "", -1, ""},
                          {"number", "fb", 7, "fb"},
                          {"flag", "fb", -1, "fb"},
                          {"ip", "10.0.0.1", -1, "10.0.0.1"},
                          {"bad", "300.1.1.1", -1, "fb"},
                          {"null", "fb", -1, "fb"},
                          {"missing", "fb", -1, "fb"}};
    for (const auto &[key, text, number, ip] : cases) {
        SCOPED_TRACE(key);
        EXPECT_STREQ(cJSON_GetObjectStringValue(json.get(), key, "fb"), text);
        EXPECT_EQ(cJSON_GetObjectNumberValue(json.get(), key, -1), number);
        EXPECT_STREQ(cJSON_GetObjectIpValue(json.get(), key, "fb"), ip);
    }
    EXPECT_EQ(cJSON_GetObjectStringValue(nullptr, "text", nullptr), nullptr);
    EXPECT_EQ(cJSON_GetObjectStringValue(json.get(), "text", nullptr),
              cJSON_GetObjectItem(json.get(), "text")->valuestring);
}
