// image_checks.cpp: whether an image was built for this product, fits its partition and is intact, and all of it at
// once.
//
// No check changes the image or the flash.

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include "applatform/commands.h"
#include "applatform/flash.h"
#include "apsupport/upgrade.h"
#include "foundation/byte_order.h"
#include "foundation/config_value.h"
#include "upgrade/image_file.h"
#include "upgrade/image_layout.h"
#include "upgrade/partition_table.h"
#include "upgrade/report.h"

namespace ap {

namespace {

constexpr size_t target_name_size = 32;
constexpr size_t read_size = 65536;
constexpr unsigned int checksum_piece_size = 1024;

// A product id in hexadecimal, with the limits of a 32-bit word whatever the width of long: what is larger reads as the
// largest, and a negative one as its complement.
uint32_t product_id_from(const char *text) {
    const uint64_t value = std::strtoull(text, nullptr, 16);
    const bool fits = value <= UINT32_MAX || 0 - value <= UINT32_MAX;
    return fits ? static_cast<uint32_t>(value) : UINT32_MAX;
}

// 0: the image was built for the product that this device is configured as; -1: not, or no product is configured.
int check_fw_valid_product_id(uint32_t img_product_id) {
    AP_UPGRADE_TRACE();
    ConfigValue configured;
    if (!configured.read("fw.profile.type") && !configured.read("fw.product.id"))
        return AP_UPGRADE_LOG(2, "get fw product id is fail."), -1;
    char cfg_product_id[256];
    copy_text(cfg_product_id, configured.view());

    if (product_id_from(cfg_product_id) != img_product_id) {
        AP_UPGRADE_LOG(2, "ERROR: product id not match.");
        std::printf("ERROR: product id not match, img_product_id=0x%x, cfg_product_id=%s\n", img_product_id,
                    cfg_product_id);
        return -1;
    }
    std::printf("[%s][%d] check product id(0x%x) success\n", __func__, __LINE__, img_product_id);
    return 0;
}

// Closes what check_fw_valid_ap has open, except a descriptor 0, which stays open.
class PositiveFd {
public:
    explicit PositiveFd(int fd) : fd_(fd) {}
    ~PositiveFd() {
        if (fd_.get() == 0) fd_.take();
    }
    explicit operator bool() const { return static_cast<bool>(fd_); }
    const UniqueFd &fd() const { return fd_; }

private:
    UniqueFd fd_;
};

// Reads a header of exactly its size.
template <typename Header> bool read_header(const UniqueFd &image, Header &header) {
    return read_full(image.get(), &header, sizeof header) == static_cast<ssize_t>(sizeof header);
}

// The partition that an image of that type is written to; null for a type that has none.
const char *partition_of(int fw_type, const char *kernel_target) {
    switch (fw_type) {
    case FW_TYPE_KERNEL_IMAGE: return kernel_target;
    case FW_TYPE_WEBFS_IMAGE: return "WebFS";
    case FW_TYPE_POLICY_IMAGE: return "Policy";
    case FW_TYPE_FLASH_IMAGE: return "ALL";
    default: return nullptr;
    }
}

// Continues `checksum` over the file's next `length` bytes; false when the file ends before them or cannot be read.
bool checksum_of_rest(const UniqueFd &image, int64_t length, unsigned long &checksum) {
    unsigned char bytes[read_size];
    while (length > 0) {
        const size_t wanted = static_cast<size_t>(std::min<int64_t>(length, sizeof bytes));
        const ssize_t got = retry_interrupted([&] { return read(image.get(), bytes, wanted); });
        if (got <= 0) return false;
        for (unsigned int at = 0, end = static_cast<unsigned int>(got); at < end; at += checksum_piece_size)
            checksum = crc32(checksum, bytes + at, std::min(checksum_piece_size, end - at));
        length -= got;
    }
    return true;
}

}  // namespace

}  // namespace ap

int check_fw_valid_ap(int fw_type, const char *file, int offset) {
    AP_UPGRADE_TRACE();
    char target[ap::target_name_size] = {};
    ap::kivraupgrade_get_target_mtd(target, sizeof target);

    if (file == nullptr) return AP_UPGRADE_LOG(2, "arg is error."), -1;
    const ap::PositiveFd image(ap::open_image(file, O_RDONLY).take());
    if (!image) return AP_UPGRADE_LOG(2, "Can't open file:%s\n", file), -1;
    if (!ap::seek_image(image.fd(), offset)) return AP_UPGRADE_LOG(2, "Can't lseek file:%s\n", file), -1;

    const bool is_web = fw_type == FW_TYPE_WEBFS_IMAGE;
    if (!is_web && fw_type != FW_TYPE_KERNEL_IMAGE && fw_type != FW_TYPE_POLICY_IMAGE)
        return AP_UPGRADE_LOG(2, "fw_type is not support:%d.", fw_type), 1;  // a type without a product id is accepted

    const char *name = is_web ? "WebFS" : target;
    const ap::PositiveFd partition(mtd_open(name, O_RDONLY));  // only to see that it is there
    if (!partition) return AP_UPGRADE_LOG(2, "Can't open file:%s\n", name), -1;

    uint32_t product_id = 0;
    if (is_web) {
        ap::WebHeader header = {};
        if (!ap::read_header(image.fd(), header)) return -1;
        std::fflush(stdout);
        doSystemCmd("free");
        product_id = ap::be32(header.product_id);
    } else {
        ap::ImageHeader header = {};
        if (!ap::read_header(image.fd(), header)) return AP_UPGRADE_LOG(2, "read image header is fail."), -1;
        product_id = ap::be32(header.product_id);
    }
    return ap::check_fw_valid_product_id(product_id) >= 0 ? 1 : -1;
}

int check_mtd_size_ap(int fw_type, const char *, unsigned int size) {
    AP_UPGRADE_TRACE();
    char target[ap::target_name_size] = {};
    ap::kivraupgrade_get_target_mtd(target, sizeof target);
    std::printf("[%s][%d] FW_MTD_NAME:%s\n", __func__, __LINE__, target);

    mtd_info_t info = {};  // a type without a partition has room for nothing
    ap::UniqueFd partition;
    const bool is_kernel = fw_type == FW_TYPE_KERNEL_IMAGE;
    const char *name = ap::partition_of(fw_type, target);
    if (name == nullptr) {
        AP_UPGRADE_LOG(5, "fw_type is not support:%d.", fw_type);
    } else {
        partition.reset(mtd_open(name, O_RDONLY));
        if (!partition && is_kernel) return AP_UPGRADE_LOG(2, "Can't open mtd:%s\n", name), -1;
        if (!partition) return AP_UPGRADE_LOG(2, "Can't open mtd dev:%s.", name), -1;
        if (ioctl(partition.get(), MEMGETINFO, &info) < 0) return AP_UPGRADE_LOG(2, "get mtd dev info is fail."), -1;
        if (is_kernel)
            std::printf("[%s][%d] mtd :%s, size:%08X\n", __func__, __LINE__, name, info.size);
        else
            AP_UPGRADE_LOG(5, "mtd :%s, size:%08X.", name, info.size);
    }

    // The header is not written to flash. A size below the header's wraps around and is too large.
    if (info.size < size - static_cast<unsigned int>(sizeof(ap::ImageHeader))) {
        AP_UPGRADE_LOG(2, "file is large than mtd size. file size=%08X,mtd size=%08X", size, info.size);
        return -2;
    }
    return 1;
}

int check_fw_crc_ap(int fw_type, const char *file, int offset, int size) {
    AP_UPGRADE_TRACE();
    if (file == nullptr) return AP_UPGRADE_LOG(2, "arg is null."), -1;
    const auto image = ap::open_image(file, O_RDWR);
    if (!image) return AP_UPGRADE_LOG(2, "Can't open file:%s\n", file), -1;
    if (!ap::seek_image(image, offset)) return AP_UPGRADE_LOG(2, "Can't lseek file:%s\n", file), -1;
    if (fw_type != FW_TYPE_KERNEL_IMAGE && fw_type != FW_TYPE_POLICY_IMAGE)
        return AP_UPGRADE_LOG(2, "fwtype is not support:%d.", fw_type), -1;

    ap::ImageHeader header = {};
    if (!ap::read_header(image, header)) std::printf("read error");
    const uint32_t expected = ap::be32(header.data_crc);

    unsigned long checksum = 0;
    const bool whole = ap::checksum_of_rest(image, int64_t{size} - int64_t{sizeof header}, checksum);
    std::printf("[%s][%d] checksum = %lx,ntohl(pimg_header->ih_dcrc) = %x\n", __func__, __LINE__, checksum, expected);
    if (!whole || checksum != expected) return AP_UPGRADE_LOG(2, "crc is error."), -1;
    return 1;
}

int flash_check_fw_type_and_crc_ap(const char *file, int offset, int size, int *fw_type) {
    AP_UPGRADE_TRACE();
    if (file == nullptr) return AP_UPGRADE_LOG(2, "arg is null."), -4;

    const int type = check_fw_type_ap(file, offset);
    if (fw_type != nullptr) *fw_type = type;
    std::printf("[%s][%d] offset %d, size %d, fwtype = %d\n", __func__, __LINE__, offset, size, type);

    // Only a kernel image can pass. All three checks run, and a later failure takes the place of an earlier one.
    int result = -1;
    if (type == FW_TYPE_KERNEL_IMAGE) {
        result = 0;
        if (check_fw_valid_ap(type, file, offset) < 0) result = -1;
        if (check_mtd_size_ap(type, file, static_cast<unsigned int>(size)) < 0) result = -3;
        if (check_fw_crc_ap(type, file, offset, size) < 0) result = -2;
    }
    std::printf("[%s][%d] ret = %d\n", __func__, __LINE__, result);
    return result;
}
