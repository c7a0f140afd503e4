// The virtual flash keeps the rules of a real one, and the boot loader's eye sees what is in it.

#include "platform/host/flash_description.h"
#include "tests/upgrade_world.h"

using namespace test;

namespace {

class VirtualFlash : public UpgradeWorld {
protected:
    static ap::UniqueFd open_bank(int flags = O_RDWR) { return ap::UniqueFd(mtd_open("KernelFS2", flags)); }
    // 0 or more, or the negative error.
    template <typename Argument> static int ask(const ap::UniqueFd &fd, unsigned long request, Argument argument) {
        const int result = ioctl(fd.get(), request, &argument);
        return result < 0 ? -errno : result;
    }
    static ssize_t put(const ap::UniqueFd &fd, off_t offset, const std::string &bytes) {
        lseek(fd.get(), offset, SEEK_SET);
        const ssize_t result = write(fd.get(), bytes.data(), bytes.size());
        return result < 0 ? -errno : result;
    }
};

TEST_F(VirtualFlash, OnlyClearsBitsBetweenErasesAndEndsAtItsSize) {
    const ap::UniqueFd fd = open_bank();
    for (const char *byte : {"\xf0", "\x3c", "\xff"}) EXPECT_EQ(put(fd, block_size - 1, byte), 1);
    EXPECT_EQ(content("KernelFS2")[block_size - 1], '\x30');
    EXPECT_EQ(ask(fd, MEMERASE, erase_info_t{0, block_size}), 0);
    EXPECT_EQ(content("KernelFS2")[block_size - 1], '\xff');
    const std::string odd = noise(1027);
    EXPECT_EQ(put(fd, 5, odd), 1027);
    EXPECT_EQ(content("KernelFS2").substr(4, 1029), "\xff" + odd + "\xff");

    EXPECT_EQ(put(fd, bank_size - 2, "1234"), 2);
    EXPECT_EQ(put(fd, bank_size, "1234"), -ENOSPC);
    EXPECT_EQ(lseek(fd.get(), bank_size + 1, SEEK_SET), -1);
    EXPECT_EQ(lseek(fd.get(), -3, SEEK_END), bank_size - 3);
    char bytes[4] = {};
    EXPECT_EQ(read(fd.get(), bytes, 4), 3);
    EXPECT_EQ(read(fd.get(), bytes, 4), 0);
    EXPECT_STREQ(bytes, "\xff\x31\x32");
    EXPECT_EQ(content("RootFS2")[0], '\xff') << "nothing ran over";
}

TEST_F(VirtualFlash, AnswersRequestsAsTheKernelDoes) {
    const ap::UniqueFd writer = open_bank(), reader = open_bank(O_RDONLY);
    const std::tuple<const char *, unsigned long, erase_info_t, int> cases[] = {
        {"the last block", MEMERASE, {bank_size - block_size, block_size}, 0},
        {"half a block", MEMERASE, {0, block_size / 2}, -EINVAL},
        {"between blocks", MEMERASE, {1, block_size}, -EINVAL},
        {"across the end", MEMERASE, {bank_size - block_size, 2 * block_size}, -EINVAL},
        {"a length that wraps", MEMERASE, {block_size, 0xfffff000}, -EINVAL},
        {"lock", MEMLOCK, {0, block_size}, 0},
        {"is locked", MEMISLOCKED, {0, block_size}, 1},
        {"the next is not", MEMISLOCKED, {block_size, block_size}, 0},
        {"locked", MEMERASE, {0, 2 * block_size}, -EROFS},
        {"its neighbour", MEMERASE, {block_size, block_size}, 0},
        {"unlock across the end", MEMUNLOCK, {0, bank_size + block_size}, -EINVAL},
        {"unlock", MEMUNLOCK, {0, block_size}, 0},
        {"unlocked", MEMERASE, {0, block_size}, 0},
        {"the NAND request on NOR", _IOR('M', 24, uint64_t), {}, -ENOTTY},
    };
    for (const auto &[what, request, range, expected] : cases) EXPECT_EQ(ask(writer, request, range), expected) << what;
    for (const auto request : {MEMERASE, MEMLOCK, MEMUNLOCK})
        EXPECT_EQ(ask(reader, request, erase_info_t{0, block_size}), -EPERM);
    mtd_info_t info = {};
    ASSERT_EQ(ioctl(reader.get(), MEMGETINFO, &info), 0);
    const uint32_t numbers[] = {info.type, info.flags, info.size, info.erasesize, info.writesize};
    EXPECT_THAT(numbers, testing::ElementsAre(MTD_NORFLASH, MTD_CAP_NORFLASH, bank_size, block_size, 1));
    EXPECT_EQ(put(reader, 0, "x"), -EBADF);
    EXPECT_TRUE(mtd_open("Nothing", O_RDONLY) == -1 && errno == ENODEV);
}

TEST_F(VirtualFlash, KeepsNandToPagesAndBadBlocks) {
    switch_on(small_flash(nand + std::string(R"(, "bad_blocks": [54])")));
    EXPECT_EQ(get_flash_type(), 4);
    const ap::UniqueFd fd = open_bank();  // blocks 54 to 101
    EXPECT_EQ(put(fd, 0, noise(2048)), -EIO) << "the first block is bad";
    EXPECT_EQ(ask(fd, MEMERASE, erase_info_t{0, block_size}), -EIO);
    const std::pair<loff_t, int> blocks[] = {{0, 1}, {block_size, 0}, {bank_size, -EINVAL}};
    for (const auto &[offset, is_bad] : blocks) EXPECT_EQ(ask(fd, MEMGETBADBLOCK, offset), is_bad);
    for (const size_t length : {1U, 2047U, 2049U}) EXPECT_EQ(put(fd, block_size, noise(length)), -EINVAL);
    EXPECT_EQ(put(fd, block_size, noise(4096)), 4096);
    EXPECT_EQ(ask(fd, _IOR('M', 24, uint64_t), uint64_t{0}), 0);
}

TEST_F(VirtualFlash, RefusesToWriteWhatIsReadOnly) {
    const std::pair<const char *, bool> cases[] = {
        {"ro1\n", false}, {"ro0\n", true}, {"0x400\n", true}, {"0x800\n", false}};
    for (const auto &[flags, is_writable] : cases) {
        write_text("/sys/class/mtd/mtd5/flags", flags);
        EXPECT_EQ(static_cast<bool>(open_bank()), is_writable) << flags;
        EXPECT_TRUE(open_bank(O_RDONLY)) << flags;
    }
}

TEST_F(VirtualFlash, ForgetsADescriptorThatBecameAnotherFile) {
    const ap::UniqueFd file = ap::open_fd("/tmp/plain", O_RDWR | O_CREAT), fd = open_bank();
    ASSERT_EQ(dup2(file.get(), fd.get()), fd.get());
    EXPECT_EQ(put(fd, 0, "plain"), 5);
    EXPECT_EQ(read_text("/tmp/plain"), "plain");
    EXPECT_LT(ask(fd, MEMGETINFO, mtd_info_t{}), 0);  // the kernel says ENOTTY, the user emulation ENOSYS
}

TEST_F(VirtualFlash, LeavesHalfAnOperationWhenThePowerGoes) {
    const std::string old = noise(bank_size);
    burn("KernelFS2", old);
    const auto content_after_cut = [](void (*action)(const ap::UniqueFd &)) {
        flash::arm({.action = flash::Action::cut_power});
        EXPECT_NE(run_in_child([&] { action(open_bank()); }), 0);
        return content("KernelFS2");
    };
    std::string half = content_after_cut([](const auto &fd) { ask(fd, MEMERASE, erase_info_t{0, block_size}); });
    EXPECT_EQ(half.substr(0, block_size / 2), std::string(block_size / 2, '\xff'));
    EXPECT_NE(half.substr(block_size / 2, 1024), old.substr(block_size / 2, 1024)) << "neither old nor erased";
    EXPECT_EQ(half.substr(block_size - block_size / 4), old.substr(block_size - block_size / 4));
    half = content_after_cut([](const auto &fd) { put(fd, 0, noise(100, 2)); });
    EXPECT_EQ(half.substr(0, 50), noise(100, 2).substr(0, 50));
    EXPECT_EQ(half.substr(51, 49), std::string(49, '\xff'));
}

TEST_F(VirtualFlash, RefusesImpossibleDescriptions) {
    for (const std::string impossible :
         {R"({"flash")", R"({"flash": {"erase_size": 2048}})", R"({"flash": {"write_size": 0}})",
          R"({"flash": {"partitions": [{"name": "A", "size": 32768}]}})",
          R"({"flash": {"partitions": [{"name": "../A", "size": 65536}]}})"}) {
        flash::Description description;
        std::string error;
        EXPECT_TRUE(!flash::parse_description(impossible, description, error) && !error.empty()) << impossible;
    }
}

TEST_F(VirtualFlash, BootsTheGoodBankWithTheHighestNumber) {
    using flash::BankState;
    const std::tuple<size_t, uint32_t, BankState> changes[] = {
        // a word in a good bank of 2000 bytes
        {4, 0x7fffffff, BankState::no_valid_head}, {4, 0xffffffff, BankState::good},
        {8, 0, BankState::wrong_length},           {8, 2000 - 16, BankState::wrong_checksum},
        {8, 2000 - 15, BankState::wrong_length},   {12, 0, BankState::wrong_checksum},
        {600, 0, BankState::wrong_checksum}};
    for (const auto &[at, word, expected] : changes) {
        std::string bank = payload_of(1000) + std::string(1000, '\xff');
        ap::store_le(bank.data() + at, word);
        EXPECT_EQ(flash::judge_bank(reinterpret_cast<const uint8_t *>(bank.data()), bank.size()), expected) << at;
    }
    const struct {
        uint32_t first, second;  // 0: not a good bank
        int expected;
    } pairs[] = {
        {0x80000001, 0x80000002, 2}, {0x80000001, 0x80000001, 1}, {0, 0x80000001, 2}, {0x80000001, 0, 1}, {0, 0, 0},
        {0xffffffff, 0x80000000, 1}};
    for (const auto &pair : pairs) {
        burn("KernelFS1", payload_of(1000, 1, pair.first));
        burn("KernelFS2", payload_of(1000, 1, pair.second));
        EXPECT_EQ(banks().boots, pair.expected) << std::hex << pair.first << " " << pair.second;
    }
}

}  // namespace
