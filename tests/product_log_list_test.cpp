// product_log_list_test.cpp: forms of log lines, the ring around its size, and the search from the end of a file, which
// has to give what reading the whole file gives.

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
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

std::string shown(const log_entry &entry) { return std::string(entry.time) + "|" + entry.type + "|" + entry.message; }

TEST(LogList, ParsesBothForms) {
    const std::string longest(255, 'm'), long_time(31, 't');
    const struct {
        const char *what;
        std::string line;
        int logtype, result;
        std::string expected;
    } cases[] = {
        {"numbered", "2024-01-01 10:00:00;8;lease granted", 0, 0, "2024-01-01 10:00:00|LAN DHCP|lease granted"},
        {"type 0", "t;0;m", 0, 0, "t||m"},
        {"type 1", "t;1;m", 1, 0, "t|System|m"},
        {"type 2", "t;2;m", 2, 0, "t|Web Filter|m"},
        {"type 3", "t;3;m", 0, 0, "t|WAN|m"},
        {"type 6", "t;6;m", 6, 0, "t|WAN|m"},
        {"type 7", "t;7;m", 7, 0, "t||m"},
        {"type 9", "t;9;m", 9, 0, "t||m"},
        {"negative type", "t;-1;m", 0, 0, "t||m"},
        {"separators in the message", "t;1;a;b [c]", 0, 0, "t|System|a;b [c]"},
        {"time of 31", long_time + ";1;m", 0, 0, long_time + "|System|m"},
        {"time of 32", "t" + long_time + ";1;m", 0, 1, ""},
        {"message of 256", "t;1;" + longest + "m", 0, 0, "t|System|" + longest},
        {"daemon", "Jan  1 10:00:00 [kernel] [eth]: link up", 0, 0, "Jan  1 10:00:00|Debug|link up"},
        {"system", "10:00 [system] pid[42]:  started", 0, 0, "10:00|System|started"},
        {"a name that begins with it", "10:00 [systemd][x]: m", 0, 0, "10:00|Debug|m"},
        {"a long type", "10:00 [a type of more than 15] [x]: m", 0, 0, "10:00|Debug|m"},
        {"daemon line with a filter", "10:00 [system] [x]: m", 1, 1, ""},
        {"other type", "t;1;m", 2, 1, ""},
        {"no message", "t;1;", 0, 1, ""},
        {"no type", "t;x;m", 0, 1, ""},
        {"no module", "10:00 [kernel] m", 0, 1, ""},
        {"plain", "hello", 0, 1, ""},
        {"empty", "", 0, 1, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        log_entry entries[3];
        std::memset(entries, '#', sizeof entries);
        EXPECT_EQ(file_syslog_set_log_list_param(entries, c.line.c_str(), c.logtype, 1), c.result);
        if (c.result == 0) {
            EXPECT_EQ(shown(entries[1]), c.expected);
            std::memset(entries[1].time, '#', sizeof(log_entry) - sizeof entries[1].lead);
        }
        const char *bytes = reinterpret_cast<const char *>(entries);
        EXPECT_EQ(std::string(bytes, sizeof entries), std::string(sizeof entries, '#')) << "nothing else is written";
    }
    log_entry entry;
    EXPECT_THAT(test::printed_by([&] { file_syslog_set_log_list_param(&entry, "hello", 0, 0); }),
                HasSubstr("buf[hello]"));
    EXPECT_THAT(test::printed_by([&] { file_syslog_set_log_list_param(&entry, "t;1;m", 2, 0); }),
                HasSubstr("logtype[2]  msgtype[1]"));
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
    for (int round = 0; round < 300; ++round) {
        std::string text;
        while (text.size() < static_cast<size_t>(round) * 150) {
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
