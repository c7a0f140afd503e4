// product_log_list_test.cpp: forms of log lines, the ring around its size, and the search from the end of a file, which
// has to give what reading the whole file gives.

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "applatform/config_store.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

static std::string log_path;
static int line_buffers, refused_buffer;  // counted from 1; 0: none is refused

int GetValue(const char *key, char *value) {
    if (log_path.empty() || std::strcmp(key, "syslogs.system.path") != 0) return 0;
    return std::strcpy(value, log_path.c_str()), 1;
}

// The ring's line buffers are the only blocks of 256 bytes; the counter is on while a test sets `refused_buffer`.
extern "C" void *malloc(size_t size) noexcept {
    static const auto next = reinterpret_cast<void *(*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (size == 256 && refused_buffer != 0 && ++line_buffers == refused_buffer) return nullptr;
    return next(size);
}

namespace {

// The entry of a line as "TIME|TYPE|MESSAGE", or what is printed where it is refused; nothing else may be written.
std::string parsed(const std::string &line, int logtype) {
    log_entry entries[3];
    std::memset(entries, '#', sizeof entries);
    int result = -1;
    std::string text =
        test::printed_by([&] { result = file_syslog_set_log_list_param(entries, line.c_str(), logtype, 1); });
    if (result == 0) {
        text += std::string(entries[1].time) + "|" + entries[1].type + "|" + entries[1].message;
        std::memset(entries[1].time, '#', sizeof entries[1] - sizeof entries[1].lead);
    }
    const std::string_view bytes(reinterpret_cast<const char *>(entries), sizeof entries);
    EXPECT_EQ(bytes.find_first_not_of('#'), std::string::npos) << line;
    return text;
}

TEST(LogList, ParsesBothForms) {
    const std::string x255(255, 'x'), t31(31, 't');
    int number = 0;
    for (const char *type : {"", "System", "Web Filter", "WAN", "WAN", "WAN", "WAN", "", "LAN DHCP", ""}) {
        EXPECT_EQ(parsed("t;" + std::to_string(number) + ";m", number), std::string("t|") + type + "|m");
        ++number;
    }
    const std::pair<std::string, std::string> taken[] = {
        {"2024-01-01 10:00:00;8;lease granted", "2024-01-01 10:00:00|LAN DHCP|lease granted"},
        {"t;-1;a;b [c]", "t||a;b [c]"},
        {t31 + ";1;" + x255 + "x", t31 + "|System|" + x255},
        {"Jan  1 10:00:00 [kernel] [eth]: link up", "Jan  1 10:00:00|Debug|link up"},
        {"10:00 [system] pid[42]:  started", "10:00|System|started"},
        {"10:00 [systemd][x]: m", "10:00|Debug|m"},
        {"10:00 [a type of more than 15] [x]: m", "10:00|Debug|m"}};
    for (const auto &[line, entry] : taken) EXPECT_EQ(parsed(line, 0), entry);
    EXPECT_THAT(parsed("t;1;m", 2), HasSubstr(": logtype[2]  msgtype[1]\n"));
    EXPECT_THAT(parsed("10:00 [system] [x]: m", 1), HasSubstr(": logtype[1]  msgtype[0]\n"));
    for (const std::string line :
         {"t;1;", "t;x;m", "10:00 [kernel] m", "hello", "", "a time of more than 31 letters..;1;m"})
        EXPECT_THAT(parsed(line, 0), HasSubstr(": buf[" + line + "]\n"));
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
        sys_log__msgtype_convert(std::strcpy(type, c.type), c.length);
        EXPECT_STREQ(type, c.expected);
    }
    char words[] = "xyz\0";
    capitalize(words);
    capitalize(words + 3);
    EXPECT_STREQ(words, "Xyz");
}

// The messages of the newest `max` lines of a log with this text; from a pipe it can only be read from front to back.
enum class Source { file, pipe };
Lines newest(const std::string &text, int max, Source source = Source::file, long skipped = 0) {
    const std::string path = "/tmp/log_list_test.txt";
    test::write_text(path, text);
    FILE *stream = source == Source::file ? std::fopen(path.c_str(), "r") : popen(("cat " + path).c_str(), "r");
    if (skipped != 0) std::fseek(stream, skipped, SEEK_SET);
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
    const auto end = static_cast<long>(five.size());
    for (const Source source : {Source::file, Source::pipe}) {
        EXPECT_THAT(newest(five, 1, source), ElementsAre("e"));
        EXPECT_THAT(newest(five, 3, source), ElementsAre("c", "d", "e"));
        EXPECT_THAT(newest(five, 4, source), ElementsAre("b", "c", "d", "e"));
        for (const int max : {5, 6}) EXPECT_THAT(newest(five, max, source), ElementsAre("a", "b", "c", "d", "e"));
        EXPECT_THAT(newest("", 2, source), ElementsAre());
    }
    EXPECT_THAT(newest(five, 5, Source::file, 6), ElementsAre("b", "c", "d", "e")) << "from the stream's position";
    for (const int max : {0, 2}) EXPECT_THAT(newest(five, max, Source::file, end), ElementsAre());
    const auto pieces = [](size_t length) {
        const std::string line = "t;1;" + std::string(length - 4, 'x');
        return newest(line + "\n" + line, 99).size();
    };
    EXPECT_EQ(pieces(255), 2U);
    EXPECT_EQ(pieces(256), 4U);
    EXPECT_EQ(pieces(1000), 8U);
}

TEST(LogList, FindsFromTheEndWhatReadingEverythingFinds) {
    std::srand(7);
    const auto below = [](int limit) { return static_cast<size_t>(std::rand() % limit); };
    for (size_t round = 0; round < 100; ++round) {
        std::string text;
        while (text.size() < round * 600) {
            const size_t kind = below(16);
            if (kind == 0) text += std::string(1 + below(3), '\0');
            if (kind < 4) text += "\n";
            const size_t length = below(kind == 5 ? 1200 : 60);
            text += "t;1;" + std::to_string(text.size()) + std::string(length, 'x') + (kind == 6 ? "\r\n" : "\n");
        }
        if (round % 2 == 0 && !text.empty()) text.pop_back();
        const int max = 1 + std::rand() % 500;
        ASSERT_EQ(newest(text, max), newest(text, max, Source::pipe)) << "round " << round << ", max " << max;
    }
}

TEST(LogList, CountsRejectedLinesAndLeavesTheirEntries) {
    log_entry entries[3] = {};
    std::strcpy(entries[0].message, "before");
    int count = 0;
    const auto list = [&](const std::string &path, int logtype, int expected) {
        log_path = path;
        return test::printed_by([&] { EXPECT_EQ(file_syslog_get_lists(entries, logtype, &count, 3), expected); });
    };
    test::write_text("/tmp/log_list_path.txt", "t;1;a\nt;2;b\nt;1;c\n");
    list("/tmp/log_list_path.txt", 2, 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(std::string(entries[0].message) + entries[1].message + entries[2].message, "beforeb");
    test::write_text("/var/logs.txt", "t;1;default path\n");
    list("", 0, 0);
    EXPECT_EQ(count, 1);
    EXPECT_STREQ(entries[0].message, "default path");
    EXPECT_THAT(list("/tmp/nowhere/log", 0, 1), HasSubstr("fopen is fail. No such file or directory\n"));
}

TEST(LogList, FreesWhatItHasWhenALineBufferCannotBeHad) {
    FILE *stream = std::fopen("/dev/null", "r");
    for (const int refused : {1, 3}) {
        log_entry entries[3] = {};
        int count = -5;
        const std::string printed = test::printed_by([&] {
            line_buffers = 0;
            refused_buffer = refused;
            const int result = reverse_read_file(stream, entries, 0, &count, 3);
            refused_buffer = 0;
            EXPECT_EQ(result, 1);
        });
        EXPECT_EQ(count, -5);
        EXPECT_THAT(printed, HasSubstr("malloc is fail.\n"));
    }
    std::fclose(stream);
}

}  // namespace
