// Which partition an image is for, and what the partition table says, also when it makes no sense.

#include "tests/upgrade_world.h"

using namespace test;

namespace {

class UpgradePartitions : public UpgradeWorld {
protected:
    static constexpr char heading[] = "dev:    size   erasesize  name\n";

    void put_table(const std::string &lines) { write_text("/proc/mtd", lines); }
    static void link_root(const std::string &target) {
        unlink("/dev/root");
        EXPECT_EQ(target.empty() ? 0 : symlink(target.c_str(), "/dev/root"), 0);
    }
    // The target that the checks are given; `printed` holds what was said about it.
    static std::string target() {
        printed = printed_by([] { check_mtd_size_ap(9, nullptr, 64); });
        const size_t begin = printed.find("FW_MTD_NAME:") + 12;
        return printed.substr(begin, printed.find('\n', begin) - begin);
    }
    static inline std::string printed;
};

TEST_F(UpgradePartitions, TakeTheBankBesideTheOneInFrontOfTheRoot) {
    const std::string table = std::string(heading) + R"(mtd0: 01000000 00010000 "ALL"
mtd1: 00040000 00010000 "Boot"
mtd2: 00200000 00010000 "KernelFS1"
mtd3: 00200000 00010000 "Root1"
mtd4: 00200000 00010000 "KernelFS2"
mtd5: 00200000 00010000 "Root2"
mtd12: 00200000 00010000 "KernelFS1"
)";
    const struct {
        const char *root, *expected;
    } cases[] = {
        {"mtdblock3", "KernelFS2"},
        {"mtdblock5", "KernelFS1"},
        {"/dev/mtdblock3", "KernelFS2"},
        {"mtdblock1", "KernelFS1"},  // another partition runs
        {"mtdblock2", "KernelFS1"},
        {"mtdblock13", "KernelFS2"},
        {"mtdblock0", ""},
        {"mtdblock7", ""},
        {"mtdblock", ""},
        {"mtdblock-3", ""},
        {"mtdblock99999999999999999999", ""},
        {"sda3", ""},
        {"", ""},
    };
    put_table(table);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.root);
        link_root(c.root);
        EXPECT_EQ(target(), c.expected);
        EXPECT_EQ(holds(printed, "find root dev in dual iamge flash error."), *c.expected == '\0') << printed;
    }
}

TEST_F(UpgradePartitions, NameTheOnlyFirmwarePartition) {
    const struct {
        const char *what, *lines, *expected;
    } cases[] = {
        {"image", "mtd0: 0 0 \"boot\"\nmtd1: 0 0 \"image\"\nmtd2: 0 0 \"firmware\"\n", "image"},
        {"firmware first", "mtd1: 0 0 \"firmware\"\nmtd2: 0 0 \"image\"\n", "firmware"},
        {"the first line is a heading", "", "default"},
        {"names that only begin so", "mtd1: 0 0 \"image2\"\nmtd2: 0 0 \"Firmware\"\n", "default"},
        {"no quotes", "mtd1: 0 0 image\n", "default"},
        {"a quote too few", "mtd1: 0 0 \"image\n", "default"},
        {"a second quoted text", "mtd1: 0 0 \"x\" \"image\"\n", "default"},
        {"no line feed at the end", "mtd1: 0 0 \"image\"", "image"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        put_table(heading + std::string(c.lines));
        log_lines.clear();
        EXPECT_STREQ(get_fw_mtd_name(), c.expected);
        const bool is_default = std::string(c.expected) == "default";
        const std::vector<std::string> expected_log(is_default ? 1 : 0, "2 can not find fw mtd name, return default");
        EXPECT_EQ(log_lines, expected_log);
        EXPECT_EQ(target(), c.what == std::string("a quote too few") ? "default" : c.expected);
    }
    put_table("mtd0: 0 0 \"image\"\n" + std::string(heading));
    EXPECT_STREQ(get_fw_mtd_name(), "default") << "the first line is skipped whatever it says";
    settings["nand_flash_flag"] = "1";
    EXPECT_STREQ(get_fw_mtd_name(), "firmware");
    settings.clear();
    unlink("/proc/mtd");
    EXPECT_STREQ(get_fw_mtd_name(), "default");
    EXPECT_EQ(target(), "default");
    EXPECT_TRUE(holds(printed, "] fopen /proc/mtd error."));
}

TEST_F(UpgradePartitions, FindBothBanksAnywhereInALine) {
    link_root("mtdblock1");
    put_table("mtd0: 0 0 \"x\" KernelFS2\n");
    EXPECT_EQ(target(), "KernelFS1") << "the running partition is \"x\"";
    put_table("mtd0: 0 0 \"KernelFS3\"\nmtd1: 0 0 \"image\"\n");
    EXPECT_EQ(target(), "image");
    const std::string table = "mtd0: 0 0 \"KernelFS1\"" + std::string(300, ' ') + "\n";
    put_table(table);
    EXPECT_EQ(target(), "KernelFS2") << "a line longer than what is read at once";
}

TEST_F(UpgradePartitions, ReadTheSizeOfTheWholeFlash) {
    const struct {
        const char *what, *lines;
        int expected;
    } cases[] = {
        {"the usual", "mtd0: 01000000 00010000 \"ALL\"\n", 0x1000000},
        {"any case", "mtd0: 00000010 00010000 \"aLl\"\n", 0x10},
        {"the first", "mtd0: 00000001 1 \"x\"\nmtd1: 00000002 1 \"ALL\"\nmtd2: 00000003 1 \"ALL\"\n", 2},
        {"what only begins with it", "mtd0: 00000001 1 \"ALL2\"\n", 0},
        {"the beginning of it, since the last character is left out", "mtd0: 00000001 1 \"AL\"\n", 1},
        {"no name at all", "mtd0: 00000001 1 \"\"\n", 1},
        {"a blank in the name ends it", "mtd0: 00000001 1 \"ALL flash\"\n", 1},
        {"the largest", "mtd0: ffffffff 1 \"ALL\"\n", -1},
        {"more than eight digits", "mtd0: 100000000 1 \"ALL\"\n", 0},
        {"no number", "mtd0: size 1 \"ALL\"\n", 0},
        {"no quote", "mtd0: 00000001 1 ALL\n", 0},
        {"nothing", "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        put_table(heading + std::string(c.lines));
        log_lines.clear();
        EXPECT_EQ(get_flash_size_ap(), c.expected);
        char expected[40];
        std::snprintf(expected, sizeof expected, "5 Flash Size is %08x\n", static_cast<unsigned>(c.expected));
        EXPECT_EQ(log_lines, std::vector<std::string>{expected});
    }
    unlink("/proc/mtd");
    log_lines.clear();
    EXPECT_EQ(get_flash_size_ap(), -1);
    EXPECT_EQ(log_lines, std::vector<std::string>{"2 open file \"/proc/mtd\" error\n"});
}

TEST_F(UpgradePartitions, EndWithATableThatHasNoEnd) {
    unlink("/proc/mtd");
    ASSERT_EQ(symlink("/dev/zero", "/proc/mtd"), 0);
    EXPECT_EQ(get_flash_size_ap(), 0);
    EXPECT_STREQ(get_fw_mtd_name(), "default");
    EXPECT_EQ(target(), "default");
    put_image(image_of("payload"));
    EXPECT_EQ(flash_upgradefw_ap(image, 0, 71, 2), -1);
    unlink("/proc/mtd");
    put_table(noise(500000));
    get_flash_size_ap();
    EXPECT_STREQ(get_fw_mtd_name(), "default");
    put_table("");
}

}  // namespace
