// image_type.cpp: tells what kind of image a file holds, by the magic and the class in its 64-byte header.

#include <cstdint>

#include "apsupport/upgrade.h"
#include "foundation/byte_order.h"
#include "upgrade/image_file.h"
#include "upgrade/image_layout.h"
#include "upgrade/report.h"

namespace ap {

namespace {

struct ImageKind {
    uint32_t magic;
    int firmware_class;  // the class that its header must name; -1: any
    int type;
    const char *found;
};

constexpr int any_class = -1;
constexpr ImageKind image_kinds[] = {
    {kernel_magic, FW_TYPE_KERNEL_IMAGE, FW_TYPE_KERNEL_IMAGE, "File Type : kernel image"},
    {policy_magic, FW_TYPE_POLICY_IMAGE, FW_TYPE_POLICY_IMAGE, "File Type : policy image"},
    {flash_magic, any_class, FW_TYPE_FLASH_IMAGE, "File Type : flash image"},
};

const ImageKind *kind_of(uint32_t magic) {
    for (const auto &kind : image_kinds) {
        if (kind.magic == magic) return &kind;
    }
    return nullptr;
}

}  // namespace

}  // namespace ap

int check_fw_type_ap(const char *file, int offset) {
    AP_UPGRADE_TRACE();
    if (file == nullptr) {
        AP_UPGRADE_LOG(2, "arg is null.");
        close(0);  // without a file the descriptor that gets closed is 0, standard input
        return -1;
    }
    const auto image = ap::open_image(file, O_RDONLY);
    if (!image) return AP_UPGRADE_LOG(2, "failed to open %s\n", file), -1;
    if (!ap::seek_image(image, offset)) return AP_UPGRADE_LOG(2, "failed  to lseek %s\n", file), -1;

    ap::ImageHeader header = {};  // what the file is too short for reads as zeros
    ap::read_full(image.get(), &header, sizeof header);
    const uint32_t magic = ap::be32(header.magic);
    std::printf("[%s][%d] ntohl(pimg_header->ih_magic):%x,IH_MAGIC:%x.\n", __func__, __LINE__, magic, ap::kernel_magic);

    if (magic == ap::kernel_magic)
        AP_UPGRADE_LOG(5, "pimg_header->fw_cls:%x,FW_TYPE_KERNEL_IMAGE:%x.", header.firmware_class,
                       FW_TYPE_KERNEL_IMAGE);
    const ap::ImageKind *kind = ap::kind_of(magic);
    if (kind == nullptr) return AP_UPGRADE_LOG(2, "File Type : unknow fw type."), -1;
    if (kind->firmware_class != ap::any_class && kind->firmware_class != header.firmware_class)
        return AP_UPGRADE_LOG(2, "get fw type is fail."), -1;
    return AP_UPGRADE_LOG(5, "%s", kind->found), kind->type;
}
