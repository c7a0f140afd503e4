// dual_head.cpp: skips an image's header and gives its payload a sequence number one higher than the running bank's.
//
// The number is written into the uploaded file, never into a bank. Without a readable head on either side the image
// stays as it is.

#include "upgrade/dual_head.h"

#include <algorithm>
#include <cstring>

#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "foundation/file_io.h"
#include "upgrade/image_layout.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr const char *headerless_partitions[] = {"image", "firmware", first_bank, second_bank};

// The bank beside the one of that name, compared over the length of a bank's name; null when it is no bank.
const char *other_bank(const char *mtd_name) {
    if (std::strncmp(mtd_name, first_bank, bank_name_length) == 0) return second_bank;
    if (std::strncmp(mtd_name, second_bank, bank_name_length) == 0) return first_bank;
    return nullptr;
}

bool read_head(int fd, DualHead &head) {
    return read_full(fd, &head, sizeof head) == static_cast<ssize_t>(sizeof head);
}

}  // namespace

void kivraupgrade_more_handle(int fd, const char *mtd_name) {
    more_handle_ap(fd, mtd_name);
    const char *running = mtd_name != nullptr ? other_bank(mtd_name) : nullptr;
    if (running == nullptr) return;

    UniqueFd bank(mtd_open(running, O_RDONLY));
    if (!bank) return AP_UPGRADE_PRINT("[%s %d] open mtd dev '%s' failed.\n", running);
    DualHead current = {}, head = {};
    if (!read_head(bank.get(), current)) return AP_UPGRADE_PRINT("[%s %d] read dual_curr_head failed.\n");
    bank.reset();

    const off_t payload = lseek(fd, 0, SEEK_CUR);
    if (!read_head(fd, head)) return AP_UPGRADE_PRINT("[%s %d] failed to read dual image from fwfd.\n");
    head.sequence = (current.sequence & valid_head_bit) != 0 ? current.sequence + 1 : valid_head_bit + 2;
    lseek(fd, payload, SEEK_SET);
    if (!write_full(fd, &head, sizeof head)) AP_UPGRADE_PRINT("[%s %d] failed to write dual image to fwfd.\n");
    lseek(fd, payload, SEEK_SET);
}

}  // namespace ap

void more_handle_ap(int fd, const char *mtd_name) {
    if (mtd_name == nullptr) return;
    const auto is_target = [&](const char *name) { return std::strcmp(name, mtd_name) == 0; };
    if (std::ranges::any_of(ap::headerless_partitions, is_target)) lseek(fd, sizeof(ap::ImageHeader), SEEK_CUR);
}
