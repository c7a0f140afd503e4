// flash_writer.cpp: erases a partition and writes an image, or a whole file, to it.
//
// Progress goes to standard output behind carriage returns, so that a console shows one line that changes.

#include <algorithm>
#include <climits>
#include <cstring>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "upgrade/dual_head.h"
#include "upgrade/image_file.h"
#include "upgrade/image_layout.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr size_t piece_size = 65536;

// The platform's own request in front of the erasing of a NAND flash's second bank.
constexpr unsigned long nand_bank_request = _IOR('M', 24, uint64_t);

// A file's size, held to what an erase can be asked for; false when there is no such file.
bool size_of_file(const char *file, unsigned int &size) {
    struct stat status = {};
    if (file == nullptr || stat(file, &status) != 0) return false;
    size = static_cast<unsigned int>(std::clamp<off_t>(status.st_size, 0, UINT_MAX));
    return true;
}

// Copies up to `limit` bytes in pieces until a read gives nothing more. `on_short_write` is called for every piece that
// the partition did not take whole, which ends nothing; `on_progress` gets the bytes written so far after each.
template <typename ShortWrite, typename Progress>
void copy_to_partition(int from, int to, int64_t limit, ShortWrite on_short_write, Progress on_progress) {
    unsigned char piece[piece_size];
    unsigned int written = 0;
    while (limit > 0) {
        const size_t wanted = static_cast<size_t>(std::min<int64_t>(limit, sizeof piece));
        const ssize_t got = retry_interrupted([&] { return read(from, piece, wanted); });
        if (got <= 0) return;
        limit -= got;
        const ssize_t put = retry_interrupted([&] { return write(to, piece, static_cast<size_t>(got)); });
        if (put < got) on_short_write();
        if (put > 0) written += static_cast<unsigned int>(put);
        on_progress(written);
        std::fflush(stdout);
    }
}

}  // namespace

}  // namespace ap

int erase_mtd_by_size_ap(const char *mtd_name, unsigned int size) {
    const ap::UniqueFd partition(mtd_name != nullptr ? mtd_open(mtd_name, O_RDWR) : -1);
    if (!partition) return AP_UPGRADE_PRINT("[%s %d] open mtd dev %s is fail.\n", ap::shown(mtd_name)), 0;
    mtd_info_t info = {};
    if (ioctl(partition.get(), MEMGETINFO, &info) < 0 || info.erasesize == 0)
        return AP_UPGRADE_PRINT("[%s %d] get meminfo is fail.\n"), 0;

    const uint64_t total = (uint64_t{size} + info.erasesize - 1) / info.erasesize * info.erasesize;
    if (info.type == MTD_NANDFLASH && std::strcmp(mtd_name, ap::second_bank) == 0) {
        uint64_t argument = 0;
        ioctl(partition.get(), ap::nand_bank_request, &argument);
    }
    for (uint64_t start = 0; start < total; start += info.erasesize) {
        erase_info_t block = {static_cast<uint32_t>(start), info.erasesize};
        if (ioctl(partition.get(), MEMUNLOCK, &block) < 0)
            return AP_UPGRADE_PRINT("[%s %d] flash unlock is fail.\n"), 0;
        if (ioctl(partition.get(), MEMERASE, &block) < 0) {
            const char *reason = std::strerror(errno);
            std::fprintf(stderr, "MTD Erase failure: %s\n", reason);
            return AP_UPGRADE_PRINT("[%s %d] MTD Erase failure: %s.\n", reason), 0;
        }
        if (ioctl(partition.get(), MEMLOCK, &block) < 0) return AP_UPGRADE_PRINT("[%s %d] flash lock is fail.\n"), 0;
        std::printf("\rErasing %d Kbyte @ %x -- %3llu %% complete.", static_cast<int>(info.erasesize / 1024),
                    block.start, static_cast<unsigned long long>((start + info.erasesize) * 100 / total));
        std::fflush(stdout);
    }
    std::printf("\n");
    return 1;
}

int flash_write_mtd_ap(const char *file, int offset, int size, const char *mtd_name) {
    unsigned int file_size = 0;
    if (!ap::size_of_file(file, file_size)) return AP_UPGRADE_LOG(2, "Can't stat file:%s.", ap::shown(file)), -1;
    auto image = ap::open_image(file, O_RDWR);
    if (!image) return AP_UPGRADE_LOG(2, "open %s failed.", file), -1;
    if (!ap::seek_image(image, offset)) return AP_UPGRADE_LOG(2, "lseek %s failed.", file), -1;

    ap::kivraupgrade_more_handle(image.get(), mtd_name);
    std::printf("booting image %s.......\r\n\n", ap::shown(mtd_name));
    ap::UniqueFd partition(mtd_name != nullptr ? mtd_open(mtd_name, O_RDWR) : -1);
    if (!partition) {
        AP_UPGRADE_LOG(2, "open mtd dev '%s' failed.", ap::shown(mtd_name));
        return std::printf("open mtd dev filed"), -1;
    }
    // What is erased is the size of the whole uploaded file, with what stands in front of the payload.
    if (erase_mtd_by_size_ap(mtd_name, file_size) <= 0) {
        std::printf("erase mtd filed");
        return AP_UPGRADE_LOG(2, "erase mtd failed."), -1;
    }
    std::printf("erase mtd ok");

    mtd_info_t info = {};
    if (ioctl(partition.get(), MEMGETINFO, &info) < 0) AP_UPGRADE_PRINT("[%s %d] get meminfo is fail.\n");
    erase_info_t first_block = {0, info.erasesize};
    if (ioctl(partition.get(), MEMUNLOCK, &first_block) < 0) AP_UPGRADE_PRINT("[%s %d] falsh unlock is fail.\n");

    const char *function = __func__;
    const auto on_short_write = [&] {
        ap::log_as(function, __LINE__, 4, "write failed.");
        std::printf("[%s %d]write failed.\n", function, __LINE__);
    };
    ap::copy_to_partition(image.get(), partition.get(), size, on_short_write,
                          [](unsigned int written) { std::printf("\rwrite :%#x Byte.", written); });

    image.reset();
    const int closed_partition = partition.get();
    partition.reset();
    // The lock is asked for when the partition is closed already, so it always reports a failure.
    if (ioctl(closed_partition, MEMLOCK, &first_block) < 0) AP_UPGRADE_PRINT("[%s %d] falsh lock is fail.\n");
    std::printf("lock flash ok! return");
    return 1;
}

int write_flash_ap(const char *file, const char *mtd_name) {
    unsigned int file_size = 0;
    if (!ap::size_of_file(file, file_size))
        return AP_UPGRADE_LOG(2, "[%s] Can't stat file:%s\n ", __func__, ap::shown(file)), -1;
    const auto image = ap::open_image(file, O_RDWR);
    if (!image) return AP_UPGRADE_LOG(2, "open %s 1failed.\n", file), -1;
    const ap::UniqueFd partition(mtd_name != nullptr ? mtd_open(mtd_name, O_RDWR) : -1);
    if (!partition) return AP_UPGRADE_LOG(2, "open '%s' failed.\n", ap::shown(mtd_name)), -1;
    if (erase_mtd_by_size_ap(mtd_name, file_size) <= 0) return AP_UPGRADE_LOG(2, "erase mtd failed."), -1;

    const char *function = __func__;
    ap::copy_to_partition(
        image.get(), partition.get(), INT64_MAX, [&] { ap::log_as(function, __LINE__, 2, "write failed."); },
        [](unsigned int written) { std::printf("\rwrite :%d", static_cast<int>(written)); });
    return 1;
}
