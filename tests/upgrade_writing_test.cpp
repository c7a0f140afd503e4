// Erasing and writing partitions, and whole upgrades: what ends up in the flash, what is said, and what fails.

#include <algorithm>
#include <functional>

#include "tests/support/scripted_commands.h"
#include "tests/upgrade_world.h"

using namespace test;

namespace {

class UpgradeWriting : public UpgradeWorld {
protected:
    void SetUp() override {
        UpgradeWorld::SetUp();
        commands.clear();
    }
    static std::string erased(size_t size) { return std::string(size, '\xff'); }
    static int upgrade(int type = FW_TYPE_KERNEL_IMAGE, int offset = 0) {
        return flash_upgradefw_ap(image, offset, get_image_file_size(image) - offset, type);
    }
    // The payload with another sequence word, filled up to the bank's size.
    static std::string bank_of(std::string payload, uint32_t sequence) {
        ap::store_le(payload.data() + 4, sequence);
        return payload + erased(bank_size - payload.size());
    }
};

TEST_F(UpgradeWriting, EraseWholeBlocks) {
    const std::pair<unsigned, unsigned> cases[] = {
        {0, 0}, {1, 1}, {block_size, 1}, {block_size + 1, 2}, {bank_size, 48}};
    for (const auto &[size, blocks] : cases) {
        SCOPED_TRACE(size);
        burn("KernelFS2", noise(bank_size));
        flash::reset_counts();
        EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", size), 1);
        for (const auto operation : {Operation::unlock, Operation::erase, Operation::lock})
            EXPECT_EQ(flash::count(operation), blocks);
        const std::string gone = erased(size_t{blocks} * block_size);
        EXPECT_TRUE(content("KernelFS2") == gone + noise(bank_size).substr(gone.size()));
    }
    EXPECT_EQ(printed_by([] { erase_mtd_by_size_ap("KernelFS2", 3 * block_size - 1); }),
              "\rErasing 4 Kbyte @ 0 --  33 % complete.\rErasing 4 Kbyte @ 1000 --  66 % complete."
              "\rErasing 4 Kbyte @ 2000 -- 100 % complete.\n");
}

TEST_F(UpgradeWriting, StopErasingWhereABlockFails) {
    const std::tuple<Operation, uint32_t, size_t, const char *> cases[] = {
        {Operation::open, 1, 0, "] open mtd dev KernelFS2 is fail.\n"},
        {Operation::info, 1, 0, "] get meminfo is fail.\n"},
        {Operation::lock, 1, 1, "] flash lock is fail.\n"},
        {Operation::unlock, 3, 2, "] flash unlock is fail.\n"},
        {Operation::erase, 3, 2, "] MTD Erase failure: Input/output error.\n"},
    };
    for (const auto &[broken, nth, erased_blocks, text] : cases) {
        SCOPED_TRACE(text);
        burn("KernelFS2", noise(bank_size));
        fail(broken, nth);
        EXPECT_THAT(printed_by([] { EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", bank_size), 0); }), HasSubstr(text));
        EXPECT_EQ(content("KernelFS2").find_first_not_of('\xff'), erased_blocks * block_size);
    }
    for (const unsigned beyond_the_end : {bank_size + 1, UINT32_MAX})
        EXPECT_EQ(erase_mtd_by_size_ap("KernelFS2", beyond_the_end), 0);
    EXPECT_EQ(erase_mtd_by_size_ap(nullptr, 1), 0);
}

TEST_F(UpgradeWriting, GiveTheNewBankTheNextSequenceNumber) {
    const std::pair<uint32_t, uint32_t> cases[] = {
        {0x80000007, 0x80000008}, {0x80000000, 0x80000001}, {0x00000000, 0x80000002},
        {0x7fffffff, 0x80000002}, {0xffffffff, 0x00000000},
    };
    const std::string payload = payload_of(70001, 3, 0x12345678);
    for (const auto &[current, next] : cases) {
        for (const int bank : {1, 2}) {
            SCOPED_TRACE(testing::Message() << current << " in bank " << bank);
            const std::string running = flash::name_of_bank(bank), other = flash::name_of_bank(3 - bank);
            burn(running, payload_of(5000, 7, current));
            link_root(bank == 1 ? "mtdblock4" : "mtdblock6");
            put_image(noise(77) + image_of(payload));
            const std::string before = content(running);
            commands.clear();
            EXPECT_EQ(upgrade(FW_TYPE_KERNEL_IMAGE, 77), 1);
            EXPECT_TRUE(content(other) == bank_of(payload, next));
            EXPECT_TRUE(content(running) == before);
            EXPECT_NE(access(image, F_OK), 0) << "the upload is deleted";
            const std::string flags = "/sys/class/mtd/mtd" + std::to_string(bank == 1 ? 5 : 3) + "/flags";
            EXPECT_THAT(commands,
                        testing::ElementsAre("echo ro0 > " + flags, "echo ro1 > " + flags, "differ_config enable_wdt"));
        }
    }
}

TEST_F(UpgradeWriting, WriteTheImageUnchangedWithoutAReadableHead) {
    const std::string payload = payload_of(70001, 3, 0x12345678);
    const std::pair<Operation, const char *> cases[] = {
        {Operation::open, "] open mtd dev 'KernelFS1' failed.\n"},
        {Operation::read, "] read dual_curr_head failed.\n"},
    };
    for (const auto &[broken, text] : cases) {
        put_image(image_of(payload));
        fail(broken);
        EXPECT_THAT(printed_by([] { EXPECT_EQ(upgrade(), 1); }), HasSubstr(text));
        EXPECT_TRUE(content("KernelFS2") == bank_of(payload, 0x12345678));
    }
    put_image(image_of("too short"));
    EXPECT_THAT(printed_by([] { EXPECT_EQ(upgrade(), 1); }), HasSubstr("] failed to read dual image from fwfd.\n"));
    EXPECT_TRUE(content("KernelFS2").substr(0, block_size) == erased(block_size)) << "nothing is left to be read";
}

TEST_F(UpgradeWriting, SayWhatAKernelWriteDoes) {
    put_image(image_of(payload_of(size_t{2} * block_size)));
    const auto write_it = [] { EXPECT_EQ(flash_write_mtd_ap(image, 0, 1 << 20, "KernelFS2"), 1); };
    const std::string printed = printed_by(write_it);
    EXPECT_THAT(printed, HasSubstr("booting image KernelFS2.......\r\n\n\rErasing 4 Kbyte @ 0 --  33 % complete."));
    EXPECT_THAT(printed, HasSubstr("100 % complete.\nerase mtd ok\rwrite :0x2000 Byte.["));
    EXPECT_THAT(printed, HasSubstr("] falsh lock is fail.\nlock flash ok! return"));
    EXPECT_THAT(printed, testing::Not(HasSubstr("unlock is fail")));

    fail(Operation::write);
    EXPECT_THAT(printed_by(write_it), HasSubstr("]write failed.\n\rwrite :0 Byte."));
    EXPECT_EQ(logged(), "4 write failed.|");
    fail(Operation::info, 2);
    EXPECT_THAT(printed_by(write_it), HasSubstr("] get meminfo is fail.\n"));
    fail(Operation::unlock, 4);
    EXPECT_THAT(printed_by(write_it), HasSubstr("] falsh unlock is fail.\n"));
}

TEST_F(UpgradeWriting, EndWithTheSizeOrTheFile) {
    const std::string payload = payload_of(150000);
    for (const int size : {0, INT32_MIN, 1, 65536, 65537, 150000, INT32_MAX}) {
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
    const auto write_it = [](const char *file, int offset, const char *partition) {
        return [=] { return flash_write_mtd_ap(file, offset, 20064, partition); };
    };
    put_image(image_of(payload_of(20000)));
    expect_calls(
        {{write_it(nullptr, 0, "KernelFS2"), -1, "2 Can't stat file:(null).|"},
         {write_it("/tmp/none", 0, "KernelFS2"), -1, "2 Can't stat file:/tmp/none.|"},
         {write_it("/tmp", 0, "KernelFS2"), -1, "2 open /tmp failed.|"},
         {write_it(image, -1, "KernelFS2"), -1, "2 lseek /tmp/upload.img failed.|"},
         {write_it(image, 0, "Nothing"), -1, "2 open mtd dev 'Nothing' failed.|"},
         {write_it(image, 0, nullptr), -1, "2 open mtd dev '(null)' failed.|"},
         {write_it(image, 0, "Policy"), -1, "2 erase mtd failed.|"},
         {[] { return write_flash_ap("/tmp/none", "ALL"); }, -1, "2 [write_flash_ap] Can't stat file:/tmp/none\n |"},
         {[] { return write_flash_ap("/tmp", "ALL"); }, -1, "2 open /tmp 1failed.\n|"},
         {[] { return write_flash_ap(image, "Policy"); }, -1, "2 erase mtd failed.|"}});
    EXPECT_EQ(flash::count(Operation::write), 0U);
}

TEST_F(UpgradeWriting, FailAtEachStepAndDeleteTheUpload) {
    const std::string before = content("KernelFS1");
    const std::tuple<int, void (*)(), const char *, const char *> cases[] = {
        {2, [] { write_text("/proc/mtd", "mtd3: 0 0 \"KernelFS1\"\n"); }, "] unlock mtd KernelFS2 is fail.\n", ""},
        {2, [] { unlink("/proc/mtd"); }, "]fopen is fail.\n", "2 can not find fw mtd name, return default|"},
        {2, [] { fail(Operation::erase); }, "flash_write_mtd_ap failed",
         "2 erase mtd failed.|2 write mtd dev is fail.|"},
        {3, [] {}, "", "2 fw type is not support.|"},
        {4, [] { unlink("/etc/policy.cfg"); }, "", "2 policy file to flash is fail.|"},
        {5, [] { fail(Operation::open); }, "", "2 open 'ALL' failed.\n|2 write mtd dev is fail.|"},
    };
    for (const auto &[type, break_it, printed, log] : cases) {
        SCOPED_TRACE(log);
        restart();
        put_image(image_of(payload_of(9000)));
        break_it();
        EXPECT_THAT(printed_by([of = type] { EXPECT_EQ(upgrade(of), -1); }), HasSubstr(printed));
        EXPECT_EQ(logged(), log);
        EXPECT_NE(access(image, F_OK), 0);
        EXPECT_TRUE(content("KernelFS1") == before);
    }
    EXPECT_THAT(commands, testing::Not(testing::Contains("differ_config enable_wdt")));
    EXPECT_EQ(flash_upgradefw_ap(nullptr, 0, 0, 2), -1);
}

TEST_F(UpgradeWriting, StoreAPolicyAndAWholeFlashAndFailNonetheless) {
    write_text("/etc/policy.cfg", "policy=1\n");
    put_image("not looked at");
    EXPECT_THAT(printed_by([] { EXPECT_EQ(upgrade(FW_TYPE_POLICY_IMAGE), -1); }), HasSubstr("] lock mtd  is fail.\n"));
    EXPECT_EQ(content("Policy"), "policy=1\n" + erased(other_size - 9));
    EXPECT_NE(access(image, F_OK), 0);

    write_text("/etc/policy.cfg", noise(other_size + 1));
    EXPECT_EQ(file_to_flash("/etc/policy.cfg", "Policy"), 1) << "a byte too long: nothing is erased";
    EXPECT_EQ(content("Policy").substr(0, 9), "policy=1\n");

    const std::string whole = noise(flash_size, 9);
    put_image(whole);
    EXPECT_EQ(upgrade(FW_TYPE_FLASH_IMAGE, 1000), -1) << "the offset is not looked at";
    EXPECT_TRUE(content("Policy") + content("WebFS") + content("KernelFS1") + content("RootFS1") +
                    content("KernelFS2") + content("RootFS2") ==
                whole);
    EXPECT_TRUE(commands.empty());

    put_image(noise(70000));
    fail(Operation::write, 2);
    EXPECT_THAT(printed_by([] { EXPECT_EQ(write_flash_ap(image, "KernelFS2"), 1); }), HasSubstr("\rwrite :65536"));
    EXPECT_EQ(logged(), "2 write failed.|");
}

TEST_F(UpgradeWriting, UnlockByNameAndSayWhatItWalksOver) {
    write_text("/proc/mtd", "mtdx: 0 0 \"KernelFS2\"\nmtd3: 0 0 \"KernelFS1\"\nmtd4:\nmtd5: 0 0 \"KernelFS2\"\n"
                            "mtd6: 0 0 \"KernelFS2\"\n");
    put_image(image_of(payload_of(9000)));
    const std::string line = "\\[kivraupgrade_flash_partitions_unlock [0-9]+\\]", own = ",mtdname:KernelFS2\n";
    EXPECT_THAT(printed_by([] { upgrade(); }),
                testing::ContainsRegex(line + "mtdname:KernelFS2\n" + line + "dev_name:KernelFS2" + own + line +
                                       "dev_name:KernelFS1" + own + line + "dev_name:" + own + line +
                                       "dev_name:KernelFS2" + own + "booting"));
    EXPECT_EQ(commands.front(), "echo ro0 > /sys/class/mtd/mtd5/flags");
}

TEST_F(UpgradeWriting, WriteTheOnlyPartitionOfASingleImageDevice) {
    const std::string payload = payload_of(70001, 3, 5), whole = image_of(payload);
    for (const std::string name : {"image", "firmware", "default"}) {
        SCOPED_TRACE(name);
        switch_on(small_flash(nor, name, "spare"));
        put_image(whole);
        EXPECT_EQ(upgrade(), 1);
        const std::string &written = name == "default" ? whole : payload;  // the header only where it is not skipped
        EXPECT_TRUE(content(name) == written + erased(bank_size - written.size()));
        EXPECT_EQ(commands.front(), "echo ro0 > /sys/class/mtd/mtd3/flags");
    }
}

TEST_F(UpgradeWriting, AskNandForItsSecondBank) {
    switch_on(small_flash(nand));
    const std::string payload = payload_of(size_t{34} * 2048);
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
}

}  // namespace
