// The power goes at every erase and at every write of an upgrade, each once, in both directions.
//
//   bank that runs   [head|good image........]   never touched
//   the other bank   [half erased][old.......]   cut at an erase
//                    [head|new image..][ones.]   cut at a write
//
// After each cut the old bank boots, and the next upgrade succeeds. The commands really run: both banks are read-only
// until the upgrade makes its own writable.

#include <csignal>
#include <sys/wait.h>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

constexpr uint32_t cut_block = 8192;
constexpr uint32_t payload_size = bank_size - cut_block;

class PowerCut : public UpgradeWorld {
protected:
    void SetUp() override {
        switch_on(small_flash(R"("kind": "NOR", "erase_size": 8192)"));
        boot();
    }
    static void boot() {
        restart();
        for (const char *bank : {"mtd3", "mtd5"}) write_text("/sys/class/mtd/" + std::string(bank) + "/flags", "ro1\n");
        flash::reset_counts();
    }

    // Flashes an image in a child process, so that the power can go there; its wait status.
    static int upgrade(unsigned seed) {
        put_image(image_of(payload_of(payload_size, seed)));
        const int size = static_cast<int>(payload_size) + 64;
        return run_in_child([&] {
            int type = 0;
            if (flash_check_fw_type_and_crc_ap(image, 0, size, &type) != 0) _exit(2);
            if (flash_upgradefw_ap(image, 0, size, type) != 1) _exit(1);
        });
    }
    static uint32_t erases_and_writes() { return flash::count(Operation::erase) + flash::count(Operation::write); }

    // Cuts an upgrade at one operation, boots, and upgrades again.
    static void cut_and_recover(int running, uint32_t operation) {
        ASSERT_EQ(banks().running, running);
        const std::string before = content(flash::name_of_bank(running));
        flash::arm({.action = flash::Action::cut_power, .nth = operation});
        const int status = upgrade(2 * operation);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        ASSERT_EQ(erases_and_writes(), operation);

        EXPECT_EQ(banks().boots, running);
        EXPECT_NE(banks().banks[static_cast<size_t>(2 - running)].state, flash::BankState::good);
        EXPECT_TRUE(content(flash::name_of_bank(running)) == before);
        boot();
        ASSERT_EQ(banks().running, running);
        ASSERT_EQ(upgrade(2 * operation + 1), 0);
        boot();
        ASSERT_EQ(banks().running, 3 - running);
    }
};

TEST_F(PowerCut, AlwaysBootsTheOldBankAndTheNextUpgradeSucceeds) {
    ASSERT_EQ(upgrade(1), 0);
    const uint32_t operations = erases_and_writes();
    ASSERT_EQ(operations, payload_size / cut_block + 1 + 3)
        << "the payload's blocks and the header's, and three pieces";
    boot();
    for (uint32_t operation = 1; operation <= operations; ++operation) {
        for (const int running : {2, 1}) {
            SCOPED_TRACE(std::string("running ") + flash::name_of_bank(running) + ", cut at operation " +
                         std::to_string(operation));
            ASSERT_NO_FATAL_FAILURE(cut_and_recover(running, operation));
        }
    }
}

}  // namespace
