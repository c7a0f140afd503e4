// Which partition an image is for, and what the partition table says, also when it makes no sense.

#include "tests/upgrade_world.h"

using namespace test;
using namespace std::literals;

namespace {

class UpgradePartitions : public UpgradeWorld {
protected:
    static constexpr char heading[] = "dev:    size   erasesize  name\n";

    static void put_table(const std::string &lines) { write_text("/proc/mtd", lines); }
    // The target that the checks are given; `printed` holds what was said about it.
    static std::string target() {
        printed = printed_by([] { check_mtd_size_ap(9, nullptr, 64); });
        const size_t begin = printed.find("FW_MTD_NAME:") + 12;
        return printed.substr(begin, printed.find('\n', begin) - begin);
    }
    static inline std::string printed;
};

TEST_F(UpgradePartitions, TakeTheBankBesideTheOneInFrontOfTheRoot) {
    const std::pair<const char *, const char *> cases[] = {
        {"mtdblock4", "KernelFS2"},  // behind mtd3, "KernelFS1"
        {"mtdblock6", "KernelFS1"},
        {"/dev/mtdblock4", "KernelFS2"},
        {"mtdblock2", "KernelFS1"},  // another partition runs
        {"mtdblock0", ""},
        {"mtdblock8", ""},
        {"mtdblock-3", ""},
        {"mtdblock99999999999999999999", ""},
        {"sda3", ""},
        {"", ""},
    };
    for (const auto &[root, expected] : cases) {
        SCOPED_TRACE(root);
        link_root(root);
        EXPECT_EQ(target(), expected);
        EXPECT_EQ(printed.find("] find root dev in dual iamge flash error.") != std::string::npos, *expected == '\0');
    }
}

TEST_F(UpgradePartitions, FindTheTargetInOddTables) {
    const std::string blanks(300, ' ');
    const std::tuple<const char *, std::string, const char *> cases[] = {
        {"image", "mtd0: 0 0 \"boot\"\nmtd1: 0 0 \"image\"\nmtd2: 0 0 \"firmware\"\n", "image"},
        {"firmware first", "mtd1: 0 0 \"firmware\"\nmtd2: 0 0 \"image\"\n", "firmware"},
        {"nothing but the heading", "", "default"},
        {"names that only begin so", "mtd1: 0 0 \"image2\"\nmtd2: 0 0 \"Firmware\"\n", "default"},
        {"a second quoted text", "mtd1: 0 0 \"x\" \"image\"\n", "default"},
        {"no line feed at the end", "mtd1: 0 0 \"image\"", "image"},
        {"a bank named behind another name", "mtd0: 0 0 \"x\" KernelFS2\n", "KernelFS1"},
        {"no such bank", "mtd0: 0 0 \"KernelFS3\"\nmtd1: 0 0 \"image\"\n", "image"},
        {"a line longer than what is read at once", "mtd0: 0 0 \"KernelFS1\"" + blanks + "\n", "KernelFS2"},
    };
    link_root("mtdblock1");
    for (const auto &[what, table, expected] : cases) {
        SCOPED_TRACE(what);
        put_table(heading + table);
        EXPECT_EQ(target(), expected);
        EXPECT_EQ(logged().starts_with("2 can not find fw mtd name, return default|"), expected == "default"s);
    }
    put_table("mtd0: 0 0 \"image\"\n" + std::string(heading));
    EXPECT_STREQ(get_fw_mtd_name(), "default") << "the first line is skipped whatever it says";
    store.values["nand_flash_flag"] = "1";
    EXPECT_STREQ(get_fw_mtd_name(), "firmware");
    store.values.clear();
    unlink("/proc/mtd");
    EXPECT_EQ(target(), "default");
    EXPECT_THAT(printed, HasSubstr("] fopen /proc/mtd error."));
}

TEST_F(UpgradePartitions, ReadTheSizeOfTheWholeFlash) {
    const std::tuple<const char *, std::string, int, std::string> cases[] = {
        {"any case", "mtd0: 00A00010 00010000 \"aLl\"\n", 0xa00010, "00a00010"},
        {"the first", "mtd0: 00000001 1 \"x\"\nmtd1: 00000002 1 \"ALL\"\nmtd2: 00000003 1 \"ALL\"\n", 2, "00000002"},
        {"what only begins with it", "mtd0: 00000001 1 \"ALL2\"\n", 0, "00000000"},
        {"the beginning of it, since the last character is left out", "mtd0: 00000001 1 \"AL\"\n", 1, "00000001"},
        {"no name at all", "mtd0: 00000001 1 \"\"\n", 1, "00000001"},
        {"a blank in the name ends it", "mtd0: 00000001 1 \"ALL flash\"\n", 1, "00000001"},
        {"the largest", "mtd0: ffffffff 1 \"ALL\"\n", -1, "ffffffff"},
        {"more than eight digits", "mtd0: 100000000 1 \"ALL\"\n", 0, "00000000"},
        {"no number", "mtd0: size 1 \"ALL\"\n", 0, "00000000"},
        {"no quote", "mtd0: 00000001 1 ALL\n", 0, "00000000"},
    };
    for (const auto &[what, lines, size, digits] : cases) {
        SCOPED_TRACE(what);
        put_table(heading + lines);
        expect_calls({{get_flash_size_ap, size, "5 Flash Size is " + digits + "\n|"}});
    }
    unlink("/proc/mtd");
    expect_calls({{get_flash_size_ap, -1, "2 open file \"/proc/mtd\" error\n|"}});
}

TEST_F(UpgradePartitions, EndWithATableThatHasNoEnd) {
    unlink("/proc/mtd");
    ASSERT_EQ(symlink("/dev/zero", "/proc/mtd"), 0);
    EXPECT_EQ(get_flash_size_ap(), 0);
    EXPECT_EQ(target(), "default");
    EXPECT_EQ(flash_upgradefw_ap(image, 0, 71, 2), -1);
}

}  // namespace
