// firmware_upgrade.cpp: the whole upgrade: writes what was uploaded to the flash and deletes the upload.
//
// On a dual-bank device the running bank is never touched, so that it boots again after a failure at any step.

#include "applatform/commands.h"
#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "upgrade/image_file.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr int nand_flash = 4;
constexpr size_t target_name_size = 256;

// The policy that is stored is the device's own file; the upload only asks for it.
bool store_policy() {
    const int failed = get_flash_type() == nand_flash
                           ? nandfile_and_file_to_switch("/etc/policy.cfg", "/cfg/policy.cfg")
                           : file_to_flash("/etc/policy.cfg", "Policy");
    return failed != 1;
}

}  // namespace

}  // namespace ap

int flash_upgradefw_ap(const char *file, int offset, int size, int fw_type) {
    char target[ap::target_name_size] = {};
    bool done = false;
    switch (fw_type) {
    case FW_TYPE_POLICY_IMAGE:
        done = ap::store_policy();
        if (!done) AP_UPGRADE_LOG(2, "policy file to flash is fail.");
        break;
    case FW_TYPE_FLASH_IMAGE:
        done = write_flash_ap(file, "ALL") >= 0;
        if (!done) AP_UPGRADE_LOG(2, "write mtd dev is fail.");
        break;
    case FW_TYPE_KERNEL_IMAGE:
        ap::kivraupgrade_get_target_mtd(target, sizeof target);
        if (ap::kivraupgrade_flash_partitions_unlock(target) != 0) {
            AP_UPGRADE_PRINT("[%s %d] unlock mtd %s is fail.\n", target);
            break;
        }
        done = flash_write_mtd_ap(file, offset, size, target) >= 0;
        if (done) break;
        std::printf("flash_write_mtd_ap failed");
        AP_UPGRADE_LOG(2, "write mtd dev is fail.");
        break;
    default: AP_UPGRADE_LOG(2, "fw type is not support."); break;
    }

    // Policies and whole flashes name no target, and no partition has an empty name: they end as failures, though
    // written.
    if (done && ap::kivraupgrade_flash_partitions_lock(target) != 0) {
        AP_UPGRADE_PRINT("[%s %d] lock mtd %s is fail.\n", target);
        done = false;
    }
    if (file != nullptr) unlink(file);
    if (!done) return -1;
    doSystemCmd("differ_config enable_wdt");
    return 1;
}
