// flash_boot.cpp: judges the banks as the boot loader does, and puts the files in place by which the firmware sees
// them.

#include "platform/host/flash_boot.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <unistd.h>

#include "applatform/flash.h"
#include "foundation/file_io.h"
#include "platform/host/flash_chip.h"
#include "upgrade/image_layout.h"

namespace ap::host::flash {

namespace {

constexpr char table_path[] = "/proc/mtd";
constexpr char root_path[] = "/dev/root";
constexpr uint32_t factory_length = 8192;

// The number of the partition that holds the root file system of a bank: the one behind the bank.
int root_of(const Description &description, int bank) { return description.find(name_of_bank(bank)) + 1; }

int running_bank(const Description &description) {
    char link[PATH_MAX] = {};
    if (readlink(root_path, link, sizeof link - 1) < 0) return 0;
    const std::string_view target = link;
    for (const int bank : {1, 2}) {
        const std::string device = "mtdblock" + std::to_string(root_of(description, bank));
        if (target == device || target.ends_with("/" + device)) return bank;
    }
    return 0;
}

Bank look_at(const Chip &chip, const char *name) {
    const int index = chip.description().find(name);
    if (index < 0) return {};
    const Partition &partition = chip.description().partitions[static_cast<size_t>(index)];
    if (!partition.has_file()) return {};
    const uint8_t *bytes = chip.bytes() + partition.offset;
    DualHead head;
    std::memcpy(&head, bytes, sizeof head);
    return {judge_bank(bytes, partition.size), head.sequence, head.length, head.checksum};
}

int choose(const std::array<Bank, 2> &banks) {
    const bool first = banks[0].state == BankState::good, second = banks[1].state == BankState::good;
    if (first && second) return banks[1].sequence > banks[0].sequence ? 2 : 1;
    return first ? 1 : second ? 2 : 0;
}

bool put_file(const std::string &path, const std::string &content, std::string &error) {
    const UniqueFd file = open_fd(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    if (file && write_full(file.get(), content.data(), content.size())) return true;
    return error = path + ": " + std::strerror(errno), false;
}

bool put_root_link(int partition, std::string &error) {
    const std::string target = "mtdblock" + std::to_string(partition);
    const std::string temporary = std::string(root_path) + ".new";
    unlink(temporary.c_str());
    if (symlink(target.c_str(), temporary.c_str()) == 0 && std::rename(temporary.c_str(), root_path) == 0) return true;
    return error = std::string(root_path) + ": " + std::strerror(errno), false;
}

// The files by which a partition is made writable or read-only; at first what the kernel shows for the kind of flash.
bool put_flags_files(const Description &description, std::string &error) {
    std::error_code ignored;
    for (size_t i = 0; i < description.partitions.size(); ++i) {
        const std::string device = "/sys/class/mtd/mtd" + std::to_string(i);
        std::filesystem::create_directories(device, ignored);
        if (!put_file(device + "/flags", description.spare_size == 0 ? "0xc00\n" : "0x400\n", error)) return false;
    }
    return true;
}

}  // namespace

const char *text_of(BankState state) {
    switch (state) {
    case BankState::missing: return "no such bank";
    case BankState::erased: return "erased";
    case BankState::no_valid_head: return "no valid head";
    case BankState::wrong_length: return "length does not fit";
    case BankState::wrong_checksum: return "checksum is wrong";
    case BankState::good: return "good";
    }
    return "";
}

BankState judge_bank(const uint8_t *bank, size_t size) {
    DualHead head;
    if (size < sizeof head) return BankState::wrong_length;
    std::memcpy(&head, bank, sizeof head);
    const std::string_view head_bytes(reinterpret_cast<const char *>(bank), sizeof head);
    if (head_bytes.find_first_not_of('\xff') == std::string_view::npos) return BankState::erased;
    if ((head.sequence & valid_head_bit) == 0) return BankState::no_valid_head;
    if (head.length == 0 || head.length > size - sizeof head) return BankState::wrong_length;
    const bool intact = crc32(0, bank + sizeof head, head.length) == head.checksum;
    return intact ? BankState::good : BankState::wrong_checksum;
}

bool look_at_banks(BootView &view) {
    const Chip *chip = Chip::get();
    if (chip == nullptr) return false;
    for (size_t i = 0; i < bank_names.size(); ++i) view.banks[i] = look_at(*chip, bank_names[i]);
    view.boots = choose(view.banks);
    view.running = running_bank(chip->description());
    return true;
}

bool power_on(std::string &error) {
    const Chip *chip = Chip::get();
    BootView view;
    if (chip == nullptr || !look_at_banks(view))
        return error = std::string(folder) + ": " + std::strerror(errno), false;
    const Description &description = chip->description();
    if (!put_file(table_path, table_text(description), error)) return false;
    const bool has_banks = view.banks[0].state != BankState::missing && view.banks[1].state != BankState::missing;
    const int bank = view.boots != 0 ? view.boots : description.booted_bank;
    if (has_banks && !put_root_link(root_of(description, bank), error)) return false;
    return put_flags_files(description, error);
}

std::string factory_payload() {
    std::string body;
    while (body.size() < factory_length) body += "factory firmware " + std::to_string(body.size()) + "\n";
    body.resize(factory_length);
    const auto checksum = crc32(0, reinterpret_cast<const unsigned char *>(body.data()), factory_length);
    const DualHead head = {0, valid_head_bit + 1, factory_length, static_cast<uint32_t>(checksum)};
    return std::string(reinterpret_cast<const char *>(&head), sizeof head) + body;
}

}  // namespace ap::host::flash
