// Devices and system files that answer what no sane one does: erase sizes of nothing or of everything, memory tables
// that say nothing. The device is scripted here, in place of the virtual flash.

#include <cstdarg>
#include <dlfcn.h>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

mtd_info_t answer;             // to MEMGETINFO
std::vector<uint64_t> erased;  // start << 32 | length of each MEMERASE
std::string memory_table;      // stands in for "/proc/meminfo"

}  // namespace

extern "C" int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (request == MEMGETINFO) *static_cast<mtd_info_t *>(argument) = answer;
    const auto *range = static_cast<const erase_info_t *>(argument);
    if (request == MEMERASE) erased.push_back(uint64_t{range->start} << 32 | range->length);
    return 0;
}

int mtd_open(const char *, int flags) { return open("/tmp/device", flags | O_CREAT | O_CLOEXEC, 0644); }

extern "C" FILE *fopen64(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen64"));
    return real(memory_table.empty() || std::strcmp(path, "/proc/meminfo") != 0 ? path : memory_table.c_str(), mode);
}

namespace {

TEST(OddAnswers, EraseSizesOfNothingAndOfEverything) {
    const struct {
        const char *what;
        uint32_t erase_size, size;
        int expected;
        size_t blocks;
        const char *text;
    } cases[] = {
        {"nothing", 0, 100, 0, 0, "] get meminfo is fail.\n"},
        {"a byte", 1, 3, 1, 3, "\rErasing 0 Kbyte @ 2 -- 100 % complete.\n"},
        {"everything", UINT32_MAX, 1, 1, 1, "\rErasing 4194303 Kbyte @ 0 -- 100 % complete.\n"},
        {"half, for all of it", 0x80000000, UINT32_MAX, 1, 2,
         "\rErasing 2097152 Kbyte @ 80000000 -- 100 % complete.\n"},
        {"nothing asked for", 4096, 0, 1, 0, "\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        erased.clear();
        answer = {.type = MTD_NANDFLASH,
                  .flags = 0,
                  .size = 0,
                  .erasesize = c.erase_size,
                  .writesize = 0,
                  .oobsize = 0,
                  .padding = 0};
        const std::string printed =
            printed_by([&] { EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", c.size), c.expected); });
        EXPECT_TRUE(printed.ends_with(c.text)) << printed;
        EXPECT_EQ(erased.size(), c.blocks);
    }
    answer = {};
    EXPECT_EQ(check_mtd_size_ap(2, nullptr, 64), 1) << "a partition of nothing holds nothing";
    EXPECT_EQ(check_mtd_size_ap(2, nullptr, 65), -2);
}

TEST(OddAnswers, MemoryTables) {
    const struct {
        const char *what, *text;
        int expected;
        const char *log;
    } cases[] = {
        {"the usual", "MemTotal:  64000 kB\nMemFree:   1000 kB\nBuffers: 5 kB\n", 1000,
         "5 get free memory size = 1024000 \n"},
        {"nothing free", "MemTotal: 64000 kB\nMemFree: 0 kB\n", 0, "5 get free memory size = 0 \n"},
        {"bytes beyond an int", "a\nMemFree: 2097152 kB\n", 2097152, "5 get free memory size = -2147483648 \n"},
        {"more than an int", "a\nMemFree: 99999999999999999999999 kB\n", INT32_MAX,
         "5 get free memory size = -1024 \n"},
        {"empty", "", -1, "2 read \"/proc/meminfo\" first line error\n"},
        {"one line", "MemTotal: 64000 kB\n", -1, "2 read \"/proc/meminfo\" second line error\n"},
        {"no number", "MemTotal: 64000 kB\nMemFree: lots\n", -1, "2 read \"/proc/meminfo\" second line error\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        write_text(memory_table = "/tmp/meminfo", c.text);
        log_lines.clear();
        EXPECT_EQ(get_free_memory_size_ap(), c.expected);
        EXPECT_EQ(log_lines, std::vector<std::string>{c.log});
    }
    memory_table = "/tmp/none";
    EXPECT_EQ(get_free_memory_size_ap(), -1);
    EXPECT_EQ(log_lines.back(), "2 getMemInfo: open file error\n");
    memory_table.clear();
    EXPECT_GT(get_free_memory_size_ap(), 0);
}

}  // namespace
