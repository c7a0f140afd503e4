// Devices and system files that answer what no sane one does: erase sizes of nothing or of everything, memory tables
// that say nothing. The device is scripted here, in place of the virtual flash.

#include <dlfcn.h>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

mtd_info_t answer;         // to MEMGETINFO
size_t erased_blocks;      // MEMERASE requests
std::string memory_table;  // stands in for "/proc/meminfo"

}  // namespace

extern "C" int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    if (request == MEMGETINFO) *va_arg(arguments, mtd_info_t *) = answer;
    va_end(arguments);
    if (request == MEMERASE) ++erased_blocks;
    return 0;
}

int mtd_open(const char *, int flags) { return open("/tmp/device", flags | O_CREAT | O_CLOEXEC, 0644); }

extern "C" FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen64"));
    return real(memory_table.empty() || std::strcmp(path, "/proc/meminfo") != 0 ? path : memory_table.c_str(), mode);
}

namespace {

TEST(OddAnswers, EraseSizesOfNothingAndOfEverything) {
    const std::tuple<uint32_t, uint32_t, int, size_t, const char *> cases[] = {
        {0, 100, 0, 0, "] get meminfo is fail.\n"},
        {1, 3, 1, 3, "\rErasing 0 Kbyte @ 2 -- 100 % complete.\n"},
        {UINT32_MAX, 1, 1, 1, "\rErasing 4194303 Kbyte @ 0 -- 100 % complete.\n"},
        {0x80000000, UINT32_MAX, 1, 2, "\rErasing 2097152 Kbyte @ 80000000 -- 100 % complete.\n"},
    };
    for (const auto &[erase_size, size, expected, blocks, text] : cases) {
        SCOPED_TRACE(erase_size);
        erased_blocks = 0;
        answer.erasesize = erase_size;
        int result = -1;
        EXPECT_THAT(printed_by([&, s = size] { result = erase_mtd_by_size_ap("KernelFS2", s); }),
                    testing::EndsWith(text));
        EXPECT_EQ(result, expected);
        EXPECT_EQ(erased_blocks, blocks);
    }
    EXPECT_EQ(check_mtd_size_ap(2, nullptr, 65), -2) << "a partition of nothing holds nothing";
}

TEST(OddAnswers, MemoryTables) {
    const auto with = [](const char *text) {
        return [=] { return write_text(memory_table = "/tmp/meminfo", text), get_free_memory_size_ap(); };
    };
    constexpr char no_first[] = "2 read \"/proc/meminfo\" first line error\n|",
                   no_second[] = "2 read \"/proc/meminfo\" second line error\n|";
    expect_calls({{with("MemTotal:  64000 kB\nMemFree:   1000 kB\nBuffers: 5 kB\n"), 1000,
                   "5 get free memory size = 1024000 \n|"},
                  {with("a\nMemFree: 2097152 kB\n"), 2097152, "5 get free memory size = -2147483648 \n|"},
                  {with("a\nMemFree: 99999999999999999999999 kB\n"), INT32_MAX, "5 get free memory size = -1024 \n|"},
                  {with(""), -1, no_first},
                  {with("MemTotal: 64000 kB\n"), -1, no_second},
                  {with("MemTotal: 64000 kB\nMemFree: lots\n"), -1, no_second}});
    memory_table = "/tmp/none";
    expect_calls({{get_free_memory_size_ap, -1, "2 getMemInfo: open file error\n|"}});
    memory_table.clear();
    EXPECT_GT(get_free_memory_size_ap(), 0);
}

}  // namespace
