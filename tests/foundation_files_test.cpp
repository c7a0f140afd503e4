// foundation_files_test.cpp: clocks and date texts at a fixed moment, whole files, and typed members of a JSON object.

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <tuple>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "foundation/owned.h"
#include "tests/support/capture.h"

// A file that no memory holds is a failure for the library to report, not for the sanitizer.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

bool sysinfo_fails = false;

// A line of module "prod", from the function's name on; empty when nothing was printed.
std::string logged_by(const std::function<void()> &action) {
    const std::string text = test::printed_by(action);
    const size_t start = text.find("] ");
    return start == std::string::npos ? text : text.substr(text.find_first_not_of(" 0123456789", start + 1));
}

std::string line_of(const std::string &function, const std::string &text) {
    return function + std::string(25 - function.size(), ' ') + ": " + text + "\n\033[0m";
}

struct Files : testing::Test {
    void SetUp() override {
        set_dbg_level("prod", 3);
        test::write_text("/var/file", "0123456789");
    }
};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    *now = clock == CLOCK_MONOTONIC ? timespec{5000000, 123456789} : timespec{};
    return 0;
}
extern "C" int gettimeofday(timeval *now, void *) noexcept { return *now = {1717199999, 987654}, 0; }
extern "C" time_t time(time_t *out) noexcept { return out == nullptr ? 1717199999 : (*out = 1717199999); }
extern "C" int sysinfo(struct sysinfo *info) noexcept {
    if (sysinfo_fails) return errno = EFAULT, -1;
    return info->uptime = 86400, 0;
}

TEST(Clocks, CountInSixtyFourBits) {
    EXPECT_EQ(get_now_us(), 5000000123456U);
    EXPECT_EQ(get_now_ms(), 5000000123U);
    EXPECT_EQ(get_systime_us(), 1717199999987654U);
    EXPECT_EQ(get_systime_ms(), 1717199999987U);
    EXPECT_EQ(get_sys_uptime(), 86400);
    sysinfo_fails = true;
    EXPECT_EQ(logged_by([] { EXPECT_EQ(get_sys_uptime(), 0); }),
              line_of("get_sys_uptime", "Failed(14) to get sysinfo, Bad address."));
    sysinfo_fails = false;
}

TEST(Dates, AreLocalTextsInBuffersOfTheirOwn) {
    setenv("TZ", "UTC", 1);
    tzset();
    const char *texts[] = {get_date_str_by_sec(0), get_date_str(), get_datetime_str_by_sec(0), get_datetime_str()};
    EXPECT_STREQ(texts[0], "1970-01-01");
    EXPECT_STREQ(texts[1], "2024-05-31");
    EXPECT_STREQ(texts[2], "1970-01-01 00:00:00");
    EXPECT_STREQ(texts[3], "2024-05-31 23:59:59");
    setenv("TZ", "XST-8", 1);
    tzset();
    EXPECT_STREQ(get_datetime_str(), "2024-06-01 07:59:59");
}

TEST_F(Files, AreReadWholeOrNotAtAll) {
    test::write_text("/var/empty", "");
    symlink("/var/file", "/var/link");
    test::write_text("/var/huge", "");
    ASSERT_EQ(truncate("/var/huge", off_t{1} << 46), 0);
    const std::string name = "get_file_content";
    const struct {
        const char *path;
        int result;
        std::string content, logged;
    } cases[] = {
        {"/var/file", 1, "0123456789", ""},
        {"/var/link", 1, "0123456789", ""},
        {"/var/empty", 1, "", ""},
        {"/proc/self/stat", 1, "", ""},
        {"/var", 0, "", line_of(name, "/var is not a file.")},
        {"/var/none", 0, "", line_of(name, "Failed(2) to stat file /var/none, No such file or directory.")},
        {"/var/huge", 0, "", line_of(name, "Out of memory.")},
        {nullptr, 0, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path == nullptr ? "null" : c.path);
        char *text = nullptr;
        size_t size = 77;
        EXPECT_EQ(logged_by([&] { EXPECT_EQ(get_file_content(c.path, &text, &size), c.result); }), c.logged);
        const ap::HeapPtr<char> owner(text);
        EXPECT_EQ(text != nullptr, c.result == 1);
        EXPECT_EQ(size, c.result == 1 ? c.content.size() : 77);
        if (text != nullptr) {
            EXPECT_EQ(text, c.content);
        }
    }
    EXPECT_EQ(get_file_content("/var/file", nullptr, nullptr), 0);
    set_dbg_level("prod", 2);
    EXPECT_EQ(logged_by([] {
                  char *text;
                  get_file_content("/var", &text, nullptr);
              }),
              "");
}

TEST_F(Files, HaveASizeWhenTheyAreFiles) {
    const struct {
        const char *path;
        int result;
        std::string logged;
    } cases[] = {
        {"/var/file", 1, ""},
        {"/var", 0, line_of("get_file_size", "'/var' is not a file.")},
        {"/var/none", 0, line_of("get_file_size", "Failed(2) to stat file '/var/none', No such file or directory.")},
        {nullptr, 0, ""},
    };
    for (const auto &c : cases) {
        size_t size = 77;
        EXPECT_EQ(logged_by([&] { EXPECT_EQ(get_file_size(c.path, &size), c.result); }), c.logged);
        EXPECT_EQ(size, c.result == 1 ? 10 : 77);
    }
}

TEST_F(Files, AreTouchedWithoutChange) {
    EXPECT_EQ(touch_file("/var/file"), 0);
    EXPECT_EQ(test::read_text("/var/file"), "0123456789");
    umask(0);
    EXPECT_EQ(touch_file("/var/touched"), 0);
    struct stat status = {};
    ASSERT_EQ(stat("/var/touched", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_EQ(logged_by([] { EXPECT_EQ(touch_file("/var/none/x"), 0); }),
              line_of("touch_file", "Failed(2) to open /var/none/x, No such file or directory."));
    EXPECT_EQ(logged_by([] { touch_file(nullptr); }), line_of("touch_file", "Failed(14) to open (null), Bad address."));
}

TEST_F(Files, KeepWhatStandsBehindTheirNewBytes) {
    const int before = test::open_descriptors();
    EXPECT_EQ(write_file("/var/file", "abc", 3), 1);
    EXPECT_EQ(test::read_text("/var/file"), "abc3456789");
    EXPECT_EQ(write_file("/var/fresh", "a\0b", 3), 1);
    EXPECT_EQ(test::read_text("/var/fresh"), std::string("a\0b", 3));
    EXPECT_EQ(write_file("/var/unwritten", "abc", 0) + write_file("/var/unwritten", nullptr, 3) +
                  write_file(nullptr, "a", 1),
              0);
    EXPECT_NE(access("/var/unwritten", F_OK), 0);
    EXPECT_EQ(logged_by([] { EXPECT_EQ(write_file("/var", "abc", 3), 0); }),
              line_of("write_file", "Failed(21) to open /var, Is a directory."));
    EXPECT_EQ(logged_by([] { EXPECT_EQ(write_file("/dev/full", "abc", 3), 0); }),
              line_of("write_file", "Failed(28) to write /dev/full, No space left on device."));
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(JsonMembers, AreReadByTypeOrGiveTheFallback) {
    const ap::UniqueJson json(cJSON_Parse(
        R"({"text":"t","empty":"","number":7.9,"flag":true,"ip":"10.0.0.1","bad":"300.1.1.1","null":null})"));
    const std::tuple<const char *, const char *, int, const char *> cases[] = {{"text", "t", -1, "fb"},
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
