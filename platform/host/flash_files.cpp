// flash_files.cpp: whole files into partitions, and the kind of flash that the device has.

#include <algorithm>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <string>
#include <sys/ioctl.h>

#include "applatform/flash.h"
#include "foundation/owned.h"
#include "platform/host/flash_description.h"
#include "platform/host/safe_file.h"

namespace ap::host::flash {

namespace {

bool erase_blocks(int partition, const mtd_info_t &info, size_t length) {
    for (uint32_t start = 0; start < length; start += info.erasesize) {
        erase_info_t block = {start, info.erasesize};
        if (ioctl(partition, MEMUNLOCK, &block) < 0 || ioctl(partition, MEMERASE, &block) < 0) return false;
    }
    return true;
}

// Writes in pieces of one block; the last is filled up with ones to what a write must be a multiple of.
bool write_blocks(int partition, const mtd_info_t &info, std::string content) {
    content.resize((content.size() + info.writesize - 1) / info.writesize * info.writesize, '\xff');
    for (size_t done = 0; done < content.size(); done += info.erasesize) {
        const size_t length = std::min<size_t>(info.erasesize, content.size() - done);
        if (write(partition, content.data() + done, length) != static_cast<ssize_t>(length)) return false;
    }
    return true;
}

bool store_file(const char *file, const char *name) {
    std::string content, error;
    if (!read_whole_file(file, content, error)) return false;
    const UniqueFd partition(mtd_open(name, O_RDWR));
    mtd_info_t info = {};
    if (!partition || ioctl(partition.get(), MEMGETINFO, &info) < 0 || content.size() > info.size) return false;
    return erase_blocks(partition.get(), info, content.size()) &&
           write_blocks(partition.get(), info, std::move(content));
}

}  // namespace

}  // namespace ap::host::flash

int file_to_flash(const char *file, const char *partition) {
    return file != nullptr && partition != nullptr && ap::host::flash::store_file(file, partition) ? 0 : 1;
}

int nandfile_and_file_to_switch(const char *file, const char *copy) {
    std::string content, error;
    if (file == nullptr || copy == nullptr || !ap::host::read_whole_file(file, content, error)) return 1;
    return ap::host::replace_file(copy, std::string(copy) + ".new", content) ? 0 : 1;
}

int get_flash_type(void) {
    const auto *description = ap::host::flash::description();
    return description != nullptr ? description->type : MTD_NORFLASH;
}
