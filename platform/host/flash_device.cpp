// flash_device.cpp: a partition as a program sees it: opened by name, read, written, sought, and asked the MTD
// requests, each with the results and errors of the kernel's character devices.
//
// The descriptor is one of the partition's file, opened for reading, and its position is the kernel's. Of a view of the
// whole flash there is no file; an empty one of the same size stands behind it.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "applatform/flash.h"
#include "foundation/file_io.h"
#include "platform/host/flash_chip.h"
#include "platform/host/interpose.h"

namespace ap::host::flash {

namespace {

constexpr unsigned long nand_bank_request = _IOR('M', 24, uint64_t);

// What a descriptor stands for, packed into the word that belongs to it.
struct Handle {
    Chip &chip;
    const Partition &partition;
    bool may_write;
};
uintptr_t pack(int index, bool may_write) { return static_cast<uintptr_t>(index) << 1 | (may_write ? 1 : 0); }
Handle unpack(uintptr_t note) {
    Chip *chip = Chip::get();
    return {*chip, chip->description().partitions[note >> 1], (note & 1) != 0};
}

// A result with a negative error number as the C library gives it.
template <typename Result> Result as_call_result(Result result) {
    if (result >= 0) return result;
    errno = static_cast<int>(-result);
    return -1;
}

ssize_t read_partition(int fd, uintptr_t note, void *buffer, size_t size) {
    const Handle handle = unpack(note);
    const int fault = handle.chip.step(Operation::read);
    if (fault != 0) return as_call_result<ssize_t>(fault);
    const off64_t position = libc::lseek(fd, 0, SEEK_CUR);
    if (position < 0) return -1;
    const size_t left = position < handle.partition.size ? handle.partition.size - static_cast<size_t>(position) : 0;
    const size_t length = std::min(size, left);
    std::memcpy(buffer, handle.chip.bytes() + handle.partition.offset + position, length);
    libc::lseek(fd, position + static_cast<off64_t>(length), SEEK_SET);
    return static_cast<ssize_t>(length);
}

ssize_t write_partition(int fd, uintptr_t note, const void *data, size_t size) {
    const Handle handle = unpack(note);
    if (!handle.may_write) return errno = EBADF, -1;
    const off64_t position = libc::lseek(fd, 0, SEEK_CUR);
    if (position < 0) return -1;
    if (position >= handle.partition.size) return errno = ENOSPC, -1;
    const size_t length = std::min(size, handle.partition.size - static_cast<size_t>(position));
    const auto start = handle.partition.offset + static_cast<uint32_t>(position);
    const ssize_t done = handle.chip.program(start, static_cast<const uint8_t *>(data), length);
    if (done > 0) libc::lseek(fd, position + done, SEEK_SET);
    return as_call_result(done);
}

off64_t seek_partition(int fd, uintptr_t note, off64_t offset, int whence) {
    const Partition &partition = unpack(note).partition;
    off64_t base = 0;
    if (whence == SEEK_CUR)
        base = libc::lseek(fd, 0, SEEK_CUR);
    else if (whence == SEEK_END)
        base = partition.size;
    else if (whence != SEEK_SET)
        return errno = EINVAL, -1;
    if (offset < -base || offset > off64_t{partition.size} - base) return errno = EINVAL, -1;
    return libc::lseek(fd, base + offset, SEEK_SET);
}

int give_info(const Handle &handle, mtd_info_t &info) {
    const int fault = handle.chip.step(Operation::info);
    if (fault != 0) return fault;
    const Description &description = handle.chip.description();
    info = {};
    info.type = static_cast<uint8_t>(description.type);
    info.flags = description.type == MTD_NANDFLASH ? MTD_CAP_NANDFLASH : MTD_CAP_NORFLASH;
    info.size = handle.partition.size;
    info.erasesize = description.erase_size;
    info.writesize = description.write_size;
    info.oobsize = description.spare_size;
    return 0;
}

// A request about a range of blocks: MEMERASE, MEMLOCK, MEMUNLOCK, MEMISLOCKED.
int change_blocks(const Handle &handle, unsigned long request, const erase_info_t &range) {
    if (request != MEMISLOCKED && !handle.may_write) return -EPERM;
    const uint32_t size = handle.partition.size;
    if (range.start >= size || range.length > size - range.start) return -EINVAL;
    if (range.length == 0) return 0;
    const uint32_t start = handle.partition.offset + range.start;
    switch (request) {
    case MEMERASE: return handle.chip.erase(start, range.length);
    case MEMLOCK: return handle.chip.set_locked(start, range.length, true);
    case MEMUNLOCK: return handle.chip.set_locked(start, range.length, false);
    default: return handle.chip.is_locked(start, range.length) ? 1 : 0;
    }
}

int answer_request(const Handle &handle, unsigned long request, void *argument) {
    if (argument == nullptr) return -EFAULT;
    const bool is_nand = handle.chip.description().type == MTD_NANDFLASH;
    switch (request) {
    case MEMGETINFO: return give_info(handle, *static_cast<mtd_info_t *>(argument));
    case MEMERASE:
    case MEMLOCK:
    case MEMUNLOCK:
    case MEMISLOCKED: return change_blocks(handle, request, *static_cast<const erase_info_t *>(argument));
    case MEMGETBADBLOCK: {
        const auto offset = *static_cast<const __kernel_loff_t *>(argument);
        if (offset < 0 || offset >= handle.partition.size) return -EINVAL;
        return handle.chip.is_bad(handle.partition.offset + static_cast<uint32_t>(offset), 1) ? 1 : 0;
    }
    case nand_bank_request: return is_nand ? handle.chip.step(Operation::nand_request) : -ENOTTY;
    default: return -ENOTTY;
    }
}

int control_partition(int, uintptr_t note, unsigned long request, void *argument) {
    return as_call_result(answer_request(unpack(note), request, argument));
}

constexpr StandIn partition_stand_in = {
    .read = read_partition,
    .write = write_partition,
    .seek = seek_partition,
    .control = control_partition,
};

// A partition's flags file holds a word of its own, "ro0" or "ro1", or the kernel's flags as a number.
bool is_read_only(int index) {
    const UniqueFd file = open_fd(("/sys/class/mtd/mtd" + std::to_string(index) + "/flags").c_str(), O_RDONLY);
    char text[32] = {};
    if (!file || read_full(file.get(), text, sizeof text - 1) <= 0) return false;
    if (std::string_view(text).starts_with("ro")) return text[2] == '1';
    return (std::strtoul(text, nullptr, 0) & MTD_WRITEABLE) == 0;
}

int open_backing(const Partition &partition) {
    if (partition.has_file()) return libc::open(partition.path().c_str(), O_RDONLY | O_CLOEXEC);
    UniqueFd view(memfd_create(partition.name.c_str(), MFD_CLOEXEC));
    if (!view || ftruncate(view.get(), partition.size) != 0) return -1;
    return view.take();
}

}  // namespace

int open_partition(const char *name, int flags) {
    Chip *chip = name != nullptr ? Chip::get() : (errno = EINVAL, nullptr);
    if (chip == nullptr) return -1;
    const int index = chip->description().find(name);
    if (index < 0) return errno = ENODEV, -1;
    const Partition &partition = chip->description().partitions[static_cast<size_t>(index)];
    if (!partition.device.empty()) return open_fd(partition.device.c_str(), flags).take();

    const int fault = chip->step(Operation::open);
    if (fault != 0) return as_call_result(fault);
    const bool may_write = (flags & O_ACCMODE) != O_RDONLY;
    if (may_write && is_read_only(index)) return errno = EACCES, -1;
    UniqueFd backing(open_backing(partition));
    if (!backing || !adopt(backing.get(), partition_stand_in, pack(index, may_write))) return -1;
    return backing.take();
}

}  // namespace ap::host::flash

int mtd_open(const char *name, int flags) { return ap::host::flash::open_partition(name, flags); }
