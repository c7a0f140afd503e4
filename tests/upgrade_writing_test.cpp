// Erasing and writing partitions, and whole upgrades: what ends up in the flash, what is said, and what fails.

#include <algorithm>
#include <functional>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

using flash::Operation;

class UpgradeWriting : public UpgradeWorld {
protected:
    static std::string erased(size_t size) { return std::string(size, '\xff'); }
    static int upgrade(int type = FW_TYPE_KERNEL_IMAGE, int offset = 0) {
        return flash_upgradefw_ap(image, offset, get_image_file_size(image) - offset, type);
    }
    // The payload with another sequence word, filled up to the bank's size.
    static std::string bank_of(std::string payload, uint32_t sequence) {
        ap::store_le(payload.data() + 4, sequence);
        return payload + erased(bank_size - payload.size());
    }
    static uint32_t sequence_of(const std::string &bank) { return ap::le32(content(bank).data() + 4); }
};

TEST_F(UpgradeWriting, EraseWholeBlocks) {
    const struct {
        unsigned size, blocks;
    } cases[] = {{0, 0}, {1, 1}, {block_size - 1, 1}, {block_size, 1}, {block_size + 1, 2}, {bank_size, 48}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.size);
        burn("KernelFS2", noise(bank_size));
        forget();
        EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", c.size), 1);
        for (const auto operation : {Operation::unlock, Operation::erase, Operation::lock})
            EXPECT_EQ(flash::count(operation), c.blocks);
        const std::string gone = erased(size_t{c.blocks} * block_size);
        EXPECT_TRUE(content("KernelFS2") == gone + noise(bank_size).substr(gone.size()));
    }
    const std::string printed = printed_by([] { EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", 3 * block_size - 1), 1); });
    EXPECT_EQ(printed, "\rErasing 4 Kbyte @ 0 --  33 % complete.\rErasing 4 Kbyte @ 1000 --  66 % complete."
                       "\rErasing 4 Kbyte @ 2000 -- 100 % complete.\n");
}

TEST_F(UpgradeWriting, StopErasingWhereABlockFails) {
    const struct {
        const char *what;
        Operation operation;
        uint32_t nth, blocks_erased;
        const char *text;
    } cases[] = {
        {"open", Operation::open, 1, 0, "] open mtd dev KernelFS2 is fail.\n"},
        {"info", Operation::info, 1, 0, "] get meminfo is fail.\n"},
        {"first unlock", Operation::unlock, 1, 0, "] flash unlock is fail.\n"},
        {"first erase", Operation::erase, 1, 0, "] MTD Erase failure: Input/output error.\n"},
        {"first lock", Operation::lock, 1, 1, "] flash lock is fail.\n"},
        {"third unlock", Operation::unlock, 3, 2, "] flash unlock is fail.\n"},
        {"third erase", Operation::erase, 3, 2, "] MTD Erase failure: Input/output error.\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        burn("KernelFS2", noise(bank_size));
        forget();
        flash::arm({.action = flash::Action::fail, .operations = flash::bit(c.operation), .nth = c.nth});
        const std::string printed = printed_by([] { EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", bank_size), 0); });
        EXPECT_TRUE(holds(printed, c.text)) << printed;
        EXPECT_EQ(content("KernelFS2").find_first_not_of('\xff'), size_t{c.blocks_erased} * block_size);
    }
    EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", bank_size + 1), 0) << "a block beyond the end";
    EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", UINT32_MAX), 0);
    EXPECT_EQ(erase_mtd_by_size_ap("nothing", 1), 0);
    EXPECT_EQ(erase_mtd_by_size_ap(nullptr, 1), 0);
}

TEST_F(UpgradeWriting, GiveTheNewBankTheNextSequenceNumber) {
    const struct {
        const char *what;
        uint32_t running, expected;
    } cases[] = {
        {"the next", 0x80000007, 0x80000008},       {"the top bit alone", 0x80000000, 0x80000001},
        {"clear", 0x00000000, 0x80000002},          {"clear, all other bits", 0x7fffffff, 0x80000002},
        {"the last wraps", 0xffffffff, 0x00000000},
    };
    for (const auto &c : cases) {
        for (const int bank : {1, 2}) {
            SCOPED_TRACE(std::string(c.what) + " in bank " + std::to_string(bank));
            const std::string running = "KernelFS" + std::to_string(bank),
                              other = "KernelFS" + std::to_string(3 - bank);
            restart();
            const std::string old = payload_of(5000, 7, c.running);
            burn(running.c_str(), old);
            unlink("/dev/root");
            ASSERT_EQ(symlink(bank == 1 ? "mtdblock4" : "mtdblock6", "/dev/root"), 0);
            const std::string payload = payload_of(70001, 3, 0x12345678);
            put_image(noise(77) + image_of(payload));
            const std::string before = content(running);
            forget();
            EXPECT_EQ(upgrade(FW_TYPE_KERNEL_IMAGE, 77), 1);
            EXPECT_TRUE(content(other) == bank_of(payload, c.expected));
            EXPECT_TRUE(content(running) == before);
            EXPECT_NE(access(image, F_OK), 0) << "the upload is deleted";
            const std::string flags = "/sys/class/mtd/mtd" + std::to_string(bank == 1 ? 5 : 3) + "/flags";
            EXPECT_EQ(commands, (std::vector<std::string>{"echo ro0 > " + flags, "echo ro1 > " + flags,
                                                          "differ_config enable_wdt"}));
            EXPECT_EQ(read_text(flags), "ro1\n");
        }
    }
}

TEST_F(UpgradeWriting, WriteTheImageUnchangedWithoutAReadableHead) {
    const std::string payload = payload_of(70001, 3, 0x12345678);
    const struct {
        const char *what, *text;
        Operation operation;
    } cases[] = {
        {"the running bank cannot be opened", "] open mtd dev 'KernelFS1' failed.\n", Operation::open},
        {"its head cannot be read", "] read dual_curr_head failed.\n", Operation::read},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        put_image(image_of(payload));
        flash::arm({.action = flash::Action::fail, .operations = flash::bit(c.operation)});
        const std::string printed = printed_by([] { EXPECT_EQ(upgrade(), 1); });
        EXPECT_TRUE(holds(printed, c.text)) << printed;
        EXPECT_TRUE(content("KernelFS2") == bank_of(payload, 0x12345678));
    }
    put_image(image_of("too short"));
    EXPECT_TRUE(holds(printed_by([] { EXPECT_EQ(upgrade(), 1); }), "] failed to read dual image from fwfd.\n"));
    EXPECT_TRUE(content("KernelFS2").substr(0, block_size) == erased(block_size)) << "nothing is left to be read";
}

TEST_F(UpgradeWriting, SkipTheHeaderOnlyForFirmwarePartitions) {
    put_image(image_of("payload"));
    const struct {
        const char *name;
        off_t expected;
    } cases[] = {{"image", 64},     {"firmware", 64}, {"KernelFS1", 64}, {"KernelFS2", 64}, {"default", 0},
                 {"KernelFS11", 0}, {"Image", 0},     {"", 0},           {nullptr, 0}};
    for (const auto &c : cases) {
        const ap::UniqueFd file = ap::open_fd(image, O_RDWR);
        more_handle_ap(file.get(), c.name);
        EXPECT_EQ(lseek(file.get(), 0, SEEK_CUR), c.expected) << (c.name != nullptr ? c.name : "null");
    }
    EXPECT_EQ(read_text(image), image_of("payload"));
    more_handle_ap(-1, "image");
}

TEST_F(UpgradeWriting, SayWhatAKernelWriteDoes) {
    put_image(image_of(payload_of(size_t{2} * block_size)));
    const std::string printed =
        printed_by([] { EXPECT_EQ(flash_write_mtd_ap(image, 0, 3 * block_size, "KernelFS2"), 1); });
    EXPECT_TRUE(holds(printed, "booting image KernelFS2.......\r\n\n\rErasing 4 Kbyte @ 0 --  33 % complete."));
    EXPECT_TRUE(holds(printed, "100 % complete.\nerase mtd ok\rwrite :0x2000 Byte.["));
    EXPECT_TRUE(holds(printed, "falsh lock is fail.\nlock flash ok! return"));
    EXPECT_FALSE(holds(printed, "unlock is fail"));

    forget();
    flash::arm({.action = flash::Action::fail, .operations = flash::bit(Operation::write)});
    const std::string failed = printed_by([] { EXPECT_EQ(flash_write_mtd_ap(image, 0, 1 << 20, "KernelFS2"), 1); });
    EXPECT_TRUE(holds(failed, "]write failed.\n\rwrite :0 Byte."));
    EXPECT_EQ(log_lines, std::vector<std::string>{"4 write failed."});
    flash::arm({.action = flash::Action::fail, .operations = flash::bit(Operation::info), .nth = 2});
    EXPECT_TRUE(
        holds(printed_by([] { flash_write_mtd_ap(image, 0, 1 << 20, "KernelFS2"); }), "] get meminfo is fail.\n"));
    flash::arm({.action = flash::Action::fail, .operations = flash::bit(Operation::unlock), .nth = 4});
    EXPECT_TRUE(
        holds(printed_by([] { flash_write_mtd_ap(image, 0, 1 << 20, "KernelFS2"); }), "] falsh unlock is fail.\n"));
}

TEST_F(UpgradeWriting, EndWithTheSizeOrTheFile) {
    const std::string payload = payload_of(150000);
    for (const int size : {0, -1, INT32_MIN, 1, 65536, 65537, 150000, 150064, INT32_MAX}) {
        SCOPED_TRACE(size);
        put_image(image_of(payload));
        burn("KernelFS2", noise(bank_size));
        EXPECT_EQ(flash_write_mtd_ap(image, 0, size, "KernelFS2"), 1);
        const size_t written = static_cast<size_t>(std::clamp(size, 0, 150000));
        const std::string expected = payload.substr(0, written) + erased(150000 - written);
        EXPECT_TRUE(content("KernelFS2").substr(8, 150000 - 8) == expected.substr(8));
    }
}

TEST_F(UpgradeWriting, RefuseWhatCannotBeWritten) {
    const struct {
        const char *what, *file;
        int offset;
        const char *partition, *log;
    } cases[] = {
        {"no file", nullptr, 0, "KernelFS2", "2 Can't stat file:(null)."},
        {"a missing file", "/tmp/none", 0, "KernelFS2", "2 Can't stat file:/tmp/none."},
        {"a folder", "/tmp", 0, "KernelFS2", "2 open /tmp failed."},
        {"a negative offset", image, -1, "KernelFS2", "2 lseek /tmp/upload.img failed."},
        {"a missing partition", image, 0, "Nothing", "2 open mtd dev 'Nothing' failed."},
        {"no partition", image, 0, nullptr, "2 open mtd dev '(null)' failed."},
        {"a file larger than the partition", image, 0, "Policy", "2 erase mtd failed."},
    };
    put_image(image_of(payload_of(20000)));
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        log_lines.clear();
        EXPECT_EQ(flash_write_mtd_ap(c.file, c.offset, 20064, c.partition), -1);
        EXPECT_EQ(log_lines, std::vector<std::string>{c.log});
    }
    EXPECT_EQ(flash::count(Operation::write), 0U);
}

TEST_F(UpgradeWriting, FailAtEachStepAndDeleteTheUpload) {
    const std::string before = content("KernelFS1");
    const struct {
        const char *what;
        int type;
        std::function<void()> break_it;
        const char *printed, *log;
    } cases[] = {
        {"no partition to unlock", 2, [] { write_text("/proc/mtd", "mtd3: 0 0 \"KernelFS1\"\n"); },
         "] unlock mtd KernelFS2 is fail.\n", ""},
        {"no table", 2, [] { unlink("/proc/mtd"); }, "]fopen is fail.\n", "2 can not find fw mtd name, return default"},
        {"a write that fails", 2,
         [] { flash::arm({.action = flash::Action::fail, .operations = flash::bit(Operation::erase)}); },
         "flash_write_mtd_ap failed", "2 erase mtd failed.|2 write mtd dev is fail."},
        {"an unknown type", 3, [] {}, "", "2 fw type is not support."},
        {"a flash that cannot be opened", 5,
         [] { flash::arm({.action = flash::Action::fail, .operations = flash::bit(Operation::open)}); }, "",
         "2 open 'ALL' failed.\n|2 write mtd dev is fail."},
        {"a policy that is not there", 4, [] { unlink("/etc/policy.cfg"); }, "", "2 policy file to flash is fail."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        restart();
        forget();
        put_image(image_of(payload_of(9000)));
        c.break_it();
        const std::string printed = printed_by([&] { EXPECT_EQ(upgrade(c.type), -1); });
        EXPECT_TRUE(holds(printed, c.printed)) << printed;
        std::string logged;
        for (const auto &line : log_lines) logged += (logged.empty() ? "" : "|") + line;
        EXPECT_EQ(logged, c.log);
        EXPECT_NE(access(image, F_OK), 0);
        EXPECT_TRUE(content("KernelFS1") == before);
        EXPECT_EQ(std::ranges::count(commands, "differ_config enable_wdt"), 0);
    }
    restart();
    EXPECT_EQ(flash_upgradefw_ap(nullptr, 0, 0, 2), -1);
}

TEST_F(UpgradeWriting, StoreAPolicyAndAWholeFlashAndFailNonetheless) {
    write_text("/etc/policy.cfg", "policy=1\n");
    put_image("not looked at");
    const std::string printed = printed_by([] { EXPECT_EQ(upgrade(FW_TYPE_POLICY_IMAGE), -1); });
    EXPECT_TRUE(holds(printed, "] lock mtd  is fail.\n")) << printed;
    EXPECT_EQ(content("Policy"), "policy=1\n" + erased(8192 - 9));
    EXPECT_NE(access(image, F_OK), 0);

    write_text("/etc/policy.cfg", noise(8193));
    EXPECT_EQ(file_to_flash("/etc/policy.cfg", "Policy"), 1) << "a byte too long: nothing is erased";
    EXPECT_EQ(content("Policy").substr(0, 9), "policy=1\n");

    const std::string whole = noise(4 * 8192 + 2 * bank_size, 9);
    put_image(whole);
    EXPECT_EQ(upgrade(FW_TYPE_FLASH_IMAGE, 1000), -1) << "the offset is not looked at";
    EXPECT_TRUE(content("Policy") + content("WebFS") + content("KernelFS1") + content("RootFS1") +
                    content("KernelFS2") + content("RootFS2") ==
                whole);
    EXPECT_TRUE(commands.empty());
    write_text("/tmp/part", noise(70000));
    EXPECT_EQ(write_flash_ap("/tmp/part", "KernelFS2"), 1);
    EXPECT_TRUE(content("KernelFS2").substr(0, 70000) == noise(70000));
}

TEST_F(UpgradeWriting, UnlockByNameAndSayWhatItWalksOver) {
    write_text("/proc/mtd", "dev:    size   erasesize  name\nmtdx: 0 0 \"KernelFS2\"\nmtd3: 0 0 \"KernelFS1\"\n"
                            "mtd5: 0 0 \"KernelFS2\"\nmtd6: 0 0 \"KernelFS2\"\n");
    put_image(image_of(payload_of(9000)));
    const std::string printed = printed_by([] { upgrade(); });
    EXPECT_TRUE(holds(printed, "]mtdname:KernelFS2\n[kivraupgrade_flash_partitions_unlock "));
    for (const char *line : {"]dev_name:,mtdname:KernelFS2\n", "]dev_name:KernelFS2,mtdname:KernelFS2\n",
                             "]dev_name:KernelFS1,mtdname:KernelFS2\n"})
        EXPECT_TRUE(holds(printed, line)) << line;
    EXPECT_EQ(commands.front(), "echo ro0 > /sys/class/mtd/mtd5/flags");
}

TEST_F(UpgradeWriting, WriteTheOnlyPartitionOfASingleImageDevice) {
    for (const std::string name : {"image", "firmware", "default"}) {
        SCOPED_TRACE(name);
        switch_on(small_flash(R"("kind": "NOR", "erase_size": 4096)", name + " spare"));
        const std::string payload = payload_of(70001, 3, 5), written = name == "default" ? image_of(payload) : payload;
        put_image(image_of(payload));
        EXPECT_EQ(upgrade(), 1);
        EXPECT_TRUE(content(name) == written + erased(bank_size - written.size()))
            << "a header only where it is not skipped";
        EXPECT_EQ(commands.front(), "echo ro0 > /sys/class/mtd/mtd3/flags");
    }
}

TEST_F(UpgradeWriting, AskNandForItsSecondBankAndWriteWholePages) {
    switch_on(small_flash(R"("kind": "NAND", "erase_size": 4096, "write_size": 2048)"));
    const std::string payload = payload_of(34 * page_size);
    for (const char *bank : {"KernelFS2", "KernelFS1"}) {
        SCOPED_TRACE(bank);
        put_image(image_of(payload));
        EXPECT_EQ(upgrade(), 1);
        EXPECT_TRUE(content(bank).substr(16, payload.size() - 16) == payload.substr(16));
        EXPECT_EQ(flash::count(Operation::nand_request), 1U) << "only for the second";
        restart();
    }
    write_text("/etc/policy.cfg", "policy=2\n");
    EXPECT_EQ(flash_upgradefw_ap(image, 0, 0, FW_TYPE_POLICY_IMAGE), -1);
    EXPECT_EQ(read_text("/cfg/policy.cfg"), "policy=2\n");

    put_image(image_of(payload_of(65536 + 1000)));
    EXPECT_TRUE(holds(printed_by([] { EXPECT_EQ(upgrade(), 1); }), "]write failed.\n"))
        << "the last piece is no whole page";
}

TEST_F(UpgradeWriting, EraseTooMuchForAnImageThatOnlyFitsWithoutItsHeader) {
    put_image(image_of(payload_of(bank_size)));
    int type = 0;
    ASSERT_EQ(flash_check_fw_type_and_crc_ap(image, 0, bank_size + 64, &type), 0);
    EXPECT_EQ(upgrade(), -1) << "the file's whole size is erased, its header included";
    EXPECT_EQ(banks().boots, 1);
    put_image(image_of(payload_of(bank_size - 64)));
    EXPECT_EQ(upgrade(), 1);
}

}  // namespace
