// The power goes at every erase and at every write of an upgrade, each once, in both directions.
//
//   bank that runs   [head|good image........]   never touched
//   the other bank   [half erased][old.......]   cut at an erase
//                    [head|new image..][ones.]   cut at a write
//
// After each cut the old bank boots, and the next upgrade succeeds.

#include <csignal>
#include <sys/wait.h>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

class PowerCut : public UpgradeWorld {
protected:
    // Flashes an image in a child process, so that the power can go there; its wait status.
    static int upgrade(unsigned seed) {
        const std::string payload = payload_of(bank_size - block_size, seed);
        put_image(image_of(payload));
        const int size = static_cast<int>(payload.size()) + 64;
        return run_in_child([&] {
            int type = 0;
            if (flash_check_fw_type_and_crc_ap(image, 0, size, &type) != 0) _exit(2);
            if (flash_upgradefw_ap(image, 0, size, type) != 1) _exit(1);
        });
    }
    static uint32_t erases_and_writes() {
        return flash::count(flash::Operation::erase) + flash::count(flash::Operation::write);
    }
    static std::string name_of(int bank) { return "KernelFS" + std::to_string(bank); }
};

TEST_F(PowerCut, AlwaysBootsTheOldBankAndTheNextUpgradeSucceeds) {
    for (const int running : {1, 2}) {
        if (running == 2) {
            ASSERT_EQ(upgrade(1), 0);
            restart();
        }
        forget();
        ASSERT_EQ(upgrade(2), 0);
        const uint32_t operations = erases_and_writes();
        ASSERT_EQ(operations, (bank_size - block_size + 64 + block_size - 1) / block_size + 3);

        for (uint32_t cut = 1; cut <= operations; ++cut) {
            SCOPED_TRACE("running " + name_of(running) + ", cut at operation " + std::to_string(cut));
            switch_on(small_flash());
            if (running == 2) {
                ASSERT_EQ(upgrade(3), 0);
                restart();
            }
            ASSERT_EQ(banks().running, running);
            const std::string before = content(name_of(running));
            forget();
            flash::arm({.action = flash::Action::cut_power, .nth = cut});
            const int status = upgrade(4);
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
            ASSERT_EQ(erases_and_writes(), cut);

            EXPECT_EQ(banks().boots, running);
            EXPECT_NE(banks().banks[static_cast<size_t>(2 - running)].state, flash::BankState::good);
            EXPECT_EQ(content(name_of(running)), before);
            restart();
            ASSERT_EQ(banks().running, running);
            EXPECT_EQ(upgrade(5), 0);
            EXPECT_EQ(banks().boots, 3 - running);
        }
    }
}

TEST_F(PowerCut, UpgradesFromBankToBankWithGrowingSequenceNumbers) {
    uint32_t sequence = banks().banks[0].sequence;
    for (int round = 0; round < 6; ++round) {
        const int target = 3 - banks().running;
        ASSERT_EQ(upgrade(static_cast<unsigned>(round)), 0);
        restart();
        EXPECT_EQ(banks().running, target);
        EXPECT_EQ(banks().banks[static_cast<size_t>(target - 1)].sequence, ++sequence);
    }
}

}  // namespace
