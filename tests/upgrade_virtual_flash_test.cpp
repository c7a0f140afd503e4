// The virtual flash keeps the rules of a real one, and the boot loader's eye sees what is in it.

#include <sys/stat.h>

#include "platform/host/flash_description.h"
#include "tests/upgrade_world.h"

using namespace test;

namespace {

class VirtualFlash : public UpgradeWorld {
protected:
    static ap::UniqueFd open_bank(int flags = O_RDWR, const char *name = "KernelFS2") {
        return ap::UniqueFd(mtd_open(name, flags));
    }
    template <typename Argument> static int ask(const ap::UniqueFd &fd, unsigned long request, Argument argument) {
        errno = 0;
        const int result = ioctl(fd.get(), request, &argument);
        return result < 0 ? -errno : result;
    }
};

TEST_F(VirtualFlash, OnlyClearsBitsBetweenErases) {
    const ap::UniqueFd fd = open_bank();
    for (const char byte : {'\xf0', '\x3c', '\xff'}) {
        lseek(fd.get(), block_size - 1, SEEK_SET);
        ASSERT_EQ(write(fd.get(), &byte, 1), 1);
    }
    EXPECT_EQ(content("KernelFS2")[block_size - 1], '\x30');
    EXPECT_EQ(ask(fd, MEMERASE, erase_info_t{0, block_size}), 0);
    EXPECT_EQ(content("KernelFS2")[block_size - 1], '\xff');
    const std::string odd = noise(1027);
    lseek(fd.get(), 5, SEEK_SET);
    ASSERT_EQ(write(fd.get(), odd.data(), odd.size()), 1027);
    EXPECT_EQ(content("KernelFS2").substr(4, 1029), "\xff" + odd + "\xff");
    EXPECT_EQ(lseek(fd.get(), 0, SEEK_CUR), 5 + 1027);
}

TEST_F(VirtualFlash, AnswersRequestsAsTheKernelDoes) {
    const ap::UniqueFd writer = open_bank(), reader = open_bank(O_RDONLY);
    const struct {
        const char *what;
        unsigned long request;
        erase_info_t range;
        int expected;
    } cases[] = {
        {"the last block", MEMERASE, {bank_size - block_size, block_size}, 0},
        {"all", MEMERASE, {0, bank_size}, 0},
        {"no length", MEMERASE, {0, 0}, 0},
        {"half a block", MEMERASE, {0, block_size / 2}, -EINVAL},
        {"between blocks", MEMERASE, {1, block_size}, -EINVAL},
        {"beyond the end", MEMERASE, {bank_size, block_size}, -EINVAL},
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
        {"another request", MEMGETREGIONCOUNT, {}, -ENOTTY},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(ask(writer, c.request, c.range), c.expected);
        const bool changes = c.request == MEMERASE || c.request == MEMLOCK || c.request == MEMUNLOCK;
        EXPECT_EQ(changes ? ask(reader, c.request, c.range) : -EPERM, -EPERM);
    }
    EXPECT_EQ(ioctl(writer.get(), MEMGETINFO, nullptr), -1);
    mtd_info_t info = {};
    ASSERT_EQ(ioctl(reader.get(), MEMGETINFO, &info), 0);
    EXPECT_EQ(info.type, MTD_NORFLASH);
    EXPECT_EQ(info.flags, unsigned{MTD_CAP_NORFLASH});
    EXPECT_EQ(info.size, bank_size);
    EXPECT_EQ(info.erasesize, block_size);
    EXPECT_EQ(info.writesize, 1U);
    char byte = 0;
    EXPECT_EQ(write(reader.get(), &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_TRUE(open_bank(O_RDONLY, "Nothing").get() == -1 && errno == ENODEV);
}

TEST_F(VirtualFlash, EndsAtItsSize) {
    const ap::UniqueFd fd = open_bank();
    const struct {
        off_t offset;
        int whence;
        off_t expected;
    } seeks[] = {{bank_size, SEEK_SET, bank_size},
                 {bank_size + 1, SEEK_SET, -1},
                 {-1, SEEK_SET, -1},
                 {0, SEEK_END, bank_size},
                 {-4, SEEK_END, bank_size - 4},
                 {-off_t{bank_size}, SEEK_CUR, -1},
                 {2, SEEK_CUR, bank_size - 2},
                 {0, 77, -1}};
    for (const auto &c : seeks) EXPECT_EQ(lseek(fd.get(), c.offset, c.whence), c.expected) << c.offset;
    char bytes[4] = {};
    EXPECT_EQ(write(fd.get(), bytes, 4), 2);
    EXPECT_EQ(write(fd.get(), bytes, 4), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(read(fd.get(), bytes, 4), 0);
    lseek(fd.get(), -3, SEEK_END);
    EXPECT_EQ(read(fd.get(), bytes, 4), 3);
    EXPECT_EQ(std::string(bytes, 3), std::string("\xff\0\0", 3));
    EXPECT_EQ(content("RootFS2")[0], '\xff') << "nothing ran over";
}

TEST_F(VirtualFlash, KeepsNandToPagesAndBadBlocks) {
    switch_on(small_flash(R"("kind": "NAND", "erase_size": 4096, "write_size": 2048, "bad_blocks": [54])"));
    EXPECT_EQ(get_flash_type(), 4);
    const ap::UniqueFd fd = open_bank();  // blocks 54 to 101
    const std::string page = noise(4096);
    EXPECT_EQ(write(fd.get(), page.data(), 2048), -1) << "the first block is bad";
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ask(fd, MEMERASE, erase_info_t{0, block_size}), -EIO);
    EXPECT_EQ(ask(fd, MEMGETBADBLOCK, loff_t{0}), 1);
    EXPECT_EQ(ask(fd, MEMGETBADBLOCK, loff_t{block_size}), 0);
    EXPECT_EQ(ask(fd, MEMGETBADBLOCK, loff_t{bank_size}), -EINVAL);
    lseek(fd.get(), block_size, SEEK_SET);
    for (const size_t length : {1UL, 2047UL, 2049UL}) EXPECT_EQ(write(fd.get(), page.data(), length), -1) << length;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(write(fd.get(), page.data(), 4096), 4096);
    EXPECT_EQ(ask(fd, _IOR('M', 24, uint64_t), uint64_t{0}), 0);
}

TEST_F(VirtualFlash, RefusesToWriteWhatIsReadOnly) {
    const char *flags = "/sys/class/mtd/mtd5/flags";
    const struct {
        const char *text;
        bool writable;
    } cases[] = {{"ro1\n", false},  {"ro0\n", true},    {"0xc00\n", true},
                 {"0x400\n", true}, {"0x800\n", false}, {"", true}};
    for (const auto &c : cases) {
        write_text(flags, c.text);
        EXPECT_EQ(static_cast<bool>(open_bank(O_RDWR)), c.writable) << c.text;
        EXPECT_TRUE(open_bank(O_RDONLY)) << c.text;
    }
}

TEST_F(VirtualFlash, ForgetsADescriptorThatBecameAnotherFile) {
    const ap::UniqueFd file = ap::open_fd("/tmp/plain", O_RDWR | O_CREAT);
    ap::UniqueFd fd = open_bank();
    ASSERT_EQ(dup2(file.get(), fd.get()), fd.get());
    EXPECT_EQ(write(fd.get(), "plain", 5), 5);
    EXPECT_EQ(read_text("/tmp/plain"), "plain");
    mtd_info_t info = {};
    EXPECT_EQ(ioctl(fd.get(), MEMGETINFO, &info), -1);
}

TEST_F(VirtualFlash, LeavesHalfAnOperationWhenThePowerGoes) {
    const std::string old = noise(bank_size);
    burn("KernelFS2", old);
    const auto cut = [&](const std::function<void(int)> &action) {
        flash::arm({.action = flash::Action::cut_power});
        EXPECT_NE(run_in_child([&] { action(open_bank().get()); }), 0);
    };
    cut([](int fd) {
        erase_info_t block = {0, block_size};
        ioctl(fd, MEMERASE, &block);
    });
    const std::string half = content("KernelFS2");
    const size_t three_quarters = size_t{3} * block_size / 4;
    EXPECT_EQ(half.substr(0, block_size / 2), std::string(block_size / 2, '\xff'));
    EXPECT_NE(half.substr(block_size / 2, 1024), old.substr(block_size / 2, 1024));
    EXPECT_EQ(half.substr(three_quarters), old.substr(three_quarters));
    cut([](int fd) { ap::write_full(fd, noise(100, 2).data(), 100); });
    EXPECT_EQ(content("KernelFS2").substr(0, 50), noise(100, 2).substr(0, 50));
    EXPECT_EQ(content("KernelFS2").substr(51, 49), std::string(49, '\xff'));
}

TEST_F(VirtualFlash, RefusesImpossibleDescriptions) {
    const struct {
        const char *what, *flash;
        bool possible;
    } cases[] = {
        {"nothing said", R"({})", true},
        {"no member", R"({"radios": []})", true},
        {"kind alone", R"({"flash": {"kind": "NAND"}})", true},
        {"no JSON", R"({"flash")", false},
        {"block of nothing", R"({"flash": {"erase_size": 0}})", false},
        {"block of half a page", R"({"flash": {"erase_size": 2048}})", false},
        {"write size of nothing", R"({"flash": {"write_size": 0}})", false},
        {"write size that does not divide", R"({"flash": {"write_size": 3}})", false},
        {"partition of nothing", R"({"flash": {"partitions": [{"name": "A", "size": 0}]}})", false},
        {"partition of half a block", R"({"flash": {"partitions": [{"name": "A", "size": 32768}]}})", false},
        {"a block", R"({"flash": {"partitions": [{"name": "A", "size": 65536}]}})", true},
        {"twice the same", R"({"flash": {"partitions": [{"name": "A", "size": 65536}, {"name": "A", "whole": true}]}})",
         false},
        {"a path for a name", R"({"flash": {"partitions": [{"name": "../A", "size": 65536}]}})", false},
        {"no name", R"({"flash": {"partitions": [{"size": 65536}]}})", false},
        {"too large", R"({"flash": {"partitions": [{"name": "A", "size": 536870912}, {"name": "B", "size": 65536}]}})",
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        flash::Description description;
        std::string error;
        EXPECT_EQ(flash::parse_description(c.flash, description, error), c.possible) << error;
        EXPECT_EQ(error.empty(), c.possible);
    }
}

TEST_F(VirtualFlash, BootsTheGoodBankWithTheHighestNumber) {
    const std::string good = payload_of(1000);
    const auto changed = [&](size_t at, uint32_t word) {
        std::string bank = good + std::string(1000, '\xff');
        ap::store_le(bank.data() + at, word);
        return bank;
    };
    const struct {
        const char *what;
        std::string bank;
        flash::BankState expected;
    } cases[] = {
        {"good", good, flash::BankState::good},
        {"erased", std::string(2000, '\xff'), flash::BankState::erased},
        {"number without the top bit", changed(4, 0x7fffffff), flash::BankState::no_valid_head},
        {"the highest number", changed(4, 0xffffffff), flash::BankState::good},
        {"nothing behind the head", changed(8, 0), flash::BankState::wrong_length},
        {"all that the bank has", changed(8, 1984), flash::BankState::wrong_checksum},
        {"one more", changed(8, 1985), flash::BankState::wrong_length},
        {"another checksum", changed(12, 0), flash::BankState::wrong_checksum},
        {"a changed byte", changed(600, 0), flash::BankState::wrong_checksum},
        {"shorter than a head", "short", flash::BankState::wrong_length},
    };
    for (const auto &c : cases) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(c.bank.data());
        EXPECT_EQ(flash::judge_bank(bytes, c.bank.size()), c.expected) << c.what;
    }
    const struct {
        uint32_t first, second;  // 0: not a good bank
        int expected;
    } pairs[] = {{0x80000001, 0x80000002, 2}, {0x80000002, 0x80000001, 1}, {0x80000001, 0x80000001, 1},
                 {0, 0x80000001, 2},          {0x80000001, 0, 1},          {0, 0, 0},
                 {0xffffffff, 0x80000000, 1}};
    for (const auto &pair : pairs) {
        burn("KernelFS1", payload_of(1000, 1, pair.first));
        burn("KernelFS2", payload_of(1000, 1, pair.second));
        EXPECT_EQ(banks().boots, pair.expected) << std::hex << pair.first << " " << pair.second;
    }
}

}  // namespace
