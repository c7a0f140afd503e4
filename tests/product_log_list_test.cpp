// product_log_list_test.cpp: forms of log lines, the ring around its size, and the search from the end of a file, which
// has to give what reading the whole file gives.

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

static std::string log_path;
static int line_buffers, refused_buffer;  // counted from 1; 0: none is refused

int GetValue(const char *key, char *value) {
    return log_path.empty() || std::strcmp(key, "syslogs.system.path") != 0 ? 0
                                                                            : (std::strcpy(value, log_path.c_str()), 1);
}

// The ring's line buffers are the only blocks of 256 bytes; the counter is on while a test sets `refused_buffer`.
extern "C" void *malloc(size_t size) noexcept {
    static const auto next = reinterpret_cast<void *(*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (size == 256 && refused_buffer != 0 && ++line_buffers == refused_buffer) return nullptr;
    return next(size);
}

namespace {

TEST(LogList, ParsesBothForms) {
    const std::string x255(255, 'x'), t31(31, 't');
    const struct {
        std::string line;
        int logtype;
        std::string expected;  // empty: refused
    } cases[] = {{"2024-01-01 10:00:00;8;lease granted", 0, "2024-01-01 10:00:00|LAN DHCP|lease granted"},
                 {"t;0;m", 0, "t||m"},
                 {"t;1;m", 1, "t|System|m"},
                 {"t;2;m", 2, "t|Web Filter|m"},
                 {"t;3;m", 0, "t|WAN|m"},
                 {"t;6;m", 6, "t|WAN|m"},
                 {"t;7;m", 7, "t||m"},
                 {"t;9;m", 9, "t||m"},
                 {"t;-1;m", 0, "t||m"},
                 {"t;1;a;b [c]", 0, "t|System|a;b [c]"},
                 {t31 + ";1;m", 0, t31 + "|System|m"},
                 {"t" + t31 + ";1;m", 0, ""},
                 {"t;1;" + x255 + "x", 0, "t|System|" + x255},
                 {"Jan  1 10:00:00 [kernel] [eth]: link up", 0, "Jan  1 10:00:00|Debug|link up"},
                 {"10:00 [system] pid[42]:  started", 0, "10:00|System|started"},
                 {"10:00 [systemd][x]: m", 0, "10:00|Debug|m"},
                 {"10:00 [a type of more than 15] [x]: m", 0, "10:00|Debug|m"},
                 {"10:00 [system] [x]: m", 1, ""},
                 {"t;1;m", 2, ""},
                 {"t;1;", 0, ""},
                 {"t;x;m", 0, ""},
                 {"10:00 [kernel] m", 0, ""},
                 {"hello", 0, ""},
                 {"", 0, ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        log_entry entries[3];
        std::memset(entries, '#', sizeof entries);
        EXPECT_EQ(file_syslog_set_log_list_param(entries, c.line.c_str(), c.logtype, 1), c.expected.empty() ? 1 : 0);
        if (!c.expected.empty()) {
            EXPECT_EQ(std::string(entries[1].time) + "|" + entries[1].type + "|" + entries[1].message, c.expected);
            std::memset(entries[1].time, '#', sizeof(log_entry) - sizeof entries[1].lead);
        }
        const char *bytes = reinterpret_cast<const char *>(entries);
        EXPECT_EQ(std::string(bytes, sizeof entries), std::string(sizeof entries, '#')) << "nothing else is written";
    }
    const auto says = [](const char *line) {
        return test::printed_by(
            [&] { file_syslog_set_log_list_param(std::make_unique<log_entry>().get(), line, 2, 0); });
    };
    EXPECT_THAT(says("hello"), HasSubstr("buf[hello]"));
    EXPECT_THAT(says("t;1;m"), HasSubstr("logtype[2]  msgtype[1]"));
}

TEST(LogList, ConvertsTypes) {
    const struct {
        const char *type;
        int length;
        const char *expected;
    } cases[] = {{"System", 16, "System"}, {"Kernel", 16, "Debug"}, {"Systems", 6, "Systems"}, {"Systems", 7, "Debug"},
                 {"Kernel", 4, "Deb"},     {"", 16, "Debug"},       {"Kernel", 0, "Kernel"}};
    for (const auto &c : cases) {
        char type[16];
        std::strcpy(type, c.type);
        sys_log__msgtype_convert(type, c.length);
        EXPECT_STREQ(type, c.expected);
    }
    char empty[] = "", word[] = "xyz";
    capitalize(empty);
    capitalize(word);
    EXPECT_STREQ(empty, "");
    EXPECT_STREQ(word, "Xyz");
}

// The messages of the newest `max` lines of a log with this text; from a pipe it can only be read from front to back.
enum class Source { file, pipe };
Lines newest(const std::string &text, int max, Source source, size_t skipped = 0) {
    const std::string path = "/tmp/log_list_test.txt";
    test::write_text(path, text);
    FILE *stream = source == Source::file ? std::fopen(path.c_str(), "r") : popen(("cat " + path).c_str(), "r");
    for (size_t i = 0; i < skipped; ++i) std::fgetc(stream);
    std::vector<log_entry> entries(static_cast<size_t>(max) + 1, log_entry{});
    int count = -1;
    test::printed_by([&] { EXPECT_EQ(reverse_read_file(stream, entries.data(), 0, &count, max), 0); });
    EXPECT_EQ(std::fgetc(stream), EOF) << "read to its end, and open";
    source == Source::file ? std::fclose(stream) : pclose(stream);
    EXPECT_LE(count, max);
    Lines messages;
    for (int i = 0; i < count; ++i) messages.emplace_back(entries[static_cast<size_t>(i)].message);
    return messages;
}

TEST(LogList, KeepsTheNewestLinesInTheOrderOfTheFile) {
    const std::string five = "t;1;a\nt;1;b\n\n\nt;1;c\nt;1;d\nt;1;e\n";
    EXPECT_THAT(newest(five, 3, Source::file), ElementsAre("c", "d", "e"));
    EXPECT_THAT(newest(five, 4, Source::file), ElementsAre("b", "c", "d", "e"));
    EXPECT_THAT(newest(five, 5, Source::file), ElementsAre("a", "b", "c", "d", "e"));
    EXPECT_THAT(newest(five, 6, Source::file), ElementsAre("a", "b", "c", "d", "e"));
    EXPECT_THAT(newest(five, 1, Source::pipe), ElementsAre("e"));
    EXPECT_THAT(newest(five, 5, Source::file, 6), ElementsAre("b", "c", "d", "e")) << "from the stream's position";
    EXPECT_THAT(newest(five, 2, Source::file, five.size()), ElementsAre());
    EXPECT_THAT(newest("", 2, Source::file), ElementsAre());
    EXPECT_THAT(newest(five, 0, Source::file, five.size()), ElementsAre());
}

// Lines of 255, 256 and 1,000 characters come in pieces, and the pieces count.
TEST(LogList, CutsLongLinesFromTheirStart) {
    const auto line = [](size_t length) { return "t;1;" + std::string(length - 4, 'x'); };
    EXPECT_EQ(newest(line(255) + "\n" + line(255), 9, Source::file).size(), 2U);
    EXPECT_EQ(newest(line(256) + "\n" + line(256), 9, Source::file).size(), 4U);
    EXPECT_EQ(newest(line(1000) + "\n", 9, Source::file).size(), 4U);
}

TEST(LogList, FindsFromTheEndWhatReadingEverythingFinds) {
    std::srand(7);
    for (int round = 0; round < 100; ++round) {
        std::string text;
        while (text.size() < static_cast<size_t>(round) * 450) {
            const int kind = std::rand() % 16;
            if (kind == 0) text += std::string(1 + static_cast<size_t>(std::rand() % 3), '\0');
            if (kind < 4) text += "\n";
            const size_t length = static_cast<size_t>(kind == 5 ? std::rand() % 40000 : std::rand() % 90);
            text += "t;1;" + std::to_string(text.size()) + std::string(length, 'x') + (kind == 6 ? "\r\n" : "\n");
        }
        if (round % 2 == 0 && !text.empty()) text.pop_back();
        const int max = 1 + std::rand() % 60;
        ASSERT_EQ(newest(text, max, Source::file), newest(text, max, Source::pipe))
            << "round " << round << ", max " << max;
    }
}

TEST(LogList, CountsRejectedLinesAndLeavesTheirEntries) {
    log_path = "/tmp/log_list_path.txt";
    test::write_text(log_path, "t;1;a\nt;2;b\nt;1;c\n");
    log_entry entries[3] = {};
    std::strcpy(entries[0].message, "before");
    int count = 0;
    test::printed_by([&] { EXPECT_EQ(file_syslog_get_lists(entries, 2, &count, 3), 0); });
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(entries[0].message, "before");
    EXPECT_STREQ(entries[1].message, "b");
    EXPECT_STREQ(entries[2].message, "");

    log_path = "/tmp/nowhere/log";
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(file_syslog_get_lists(entries, 0, &count, 3), 1); }),
                HasSubstr("fopen is fail. No such file or directory"));
    log_path.clear();
    test::write_text("/var/logs.txt", "t;1;default path\n");
    EXPECT_EQ(file_syslog_get_lists(entries, 0, &count, 3), 0);
    EXPECT_STREQ(entries[0].message, "default path");
}

TEST(LogList, FreesWhatItHasWhenALineBufferCannotBeHad) {
    test::write_text("/tmp/log_list_test.txt", "t;1;a\n");
    FILE *stream = std::fopen("/tmp/log_list_test.txt", "r");
    for (const int refused : {1, 3}) {
        log_entry entries[3] = {};
        int count = -5, result = 0;
        const std::string printed = test::printed_by([&] {
            line_buffers = 0;
            refused_buffer = refused;
            result = reverse_read_file(stream, entries, 0, &count, 3);
            refused_buffer = 0;
        });
        EXPECT_EQ(result, 1);
        EXPECT_EQ(count, -5);
        EXPECT_THAT(printed, HasSubstr("malloc is fail."));
    }
    std::fclose(stream);
}

}  // namespace
