// flash_description.cpp: reads and checks the description of the device's flash.

#include "platform/host/flash_description.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <cstdio>
#include <memory>
#include <mtd/mtd-abi.h>
#include <mutex>

#include "foundation/owned.h"
#include "platform/host/json_read.h"
#include "platform/host/safe_file.h"

namespace ap::host::flash {

namespace {

constexpr uint32_t page_size = 4096;  // files are mapped one behind the other, so each must end with a page
constexpr uint32_t largest_flash = 512U << 20;
constexpr size_t most_partitions = 64;
constexpr size_t longest_name = 63;

// 16 MiB with two banks, each in front of its root file system.
constexpr char usual_partitions[] = R"({"partitions": [
    {"name": "ALL", "whole": true},
    {"name": "Bootloader", "size": 262144},
    {"name": "CFG", "size": 262144},
    {"name": "Policy", "size": 262144},
    {"name": "KernelFS1", "size": 4194304},
    {"name": "RootFS1", "size": 2621440},
    {"name": "KernelFS2", "size": 4194304},
    {"name": "RootFS2", "size": 2621440},
    {"name": "WebFS", "size": 2359296}
]})";

uint32_t size_member(const cJSON *object, const char *name, uint32_t otherwise) {
    const double value = number_member(object, name, otherwise);
    return value >= 0 && value <= UINT32_MAX ? static_cast<uint32_t>(value) : otherwise;
}

bool is_possible_name(const std::string &name) {
    const bool is_plain =
        std::ranges::all_of(name, [](char c) { return c > ' ' && c != '"' && c != '/' && c != '\x7f'; });
    return !name.empty() && name.size() <= longest_name && name.front() != '.' && is_plain;
}

Partition parse_partition(const cJSON *entry) {
    Partition partition;
    partition.name = text_member(entry, "name");
    partition.size = size_member(entry, "size", 0);
    partition.whole = flag_member(entry, "whole", false);
    partition.device = text_member(entry, "device");
    return partition;
}

void parse_partitions(const cJSON *flash, Description &description) {
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(flash, "partitions")) {
        description.partitions.push_back(parse_partition(entry));
    }
}

void parse_flash(const cJSON *flash, Description &description) {
    const bool is_nand = text_member(flash, "kind") == "NAND";
    description.type = is_nand ? MTD_NANDFLASH : MTD_NORFLASH;
    description.erase_size = size_member(flash, "erase_size", is_nand ? 131072 : 65536);
    description.write_size = size_member(flash, "write_size", is_nand ? 2048 : 1);
    description.spare_size = is_nand ? description.write_size / 32 : 0;
    description.booted_bank = size_member(flash, "booted", 1) == 2 ? 2 : 1;
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(flash, "bad_blocks")) {
        if (cJSON_IsNumber(entry)) description.bad_blocks.push_back(static_cast<uint32_t>(entry->valueint));
    }
    parse_partitions(flash, description);
}

// Gives every partition its place. What is wrong with the description, or the empty text.
std::string lay_out(Description &description) {
    if (description.erase_size == 0 || description.erase_size % page_size != 0)
        return "\"erase_size\" is no multiple of 4096";
    if (description.write_size == 0 || description.erase_size % description.write_size != 0)
        return "\"erase_size\" is no multiple of \"write_size\"";
    if (description.partitions.empty() || description.partitions.size() > most_partitions)
        return "it has no \"partitions\", or more than 64";

    uint64_t size = 0;
    for (auto &partition : description.partitions) {
        if (!is_possible_name(partition.name)) return "no partition can be named \"" + partition.name + "\"";
        if (&description.partitions[static_cast<size_t>(description.find(partition.name))] != &partition)
            return "two partitions are named \"" + partition.name + "\"";
        if (!partition.has_file()) continue;
        if (partition.size == 0 || partition.size % description.erase_size != 0)
            return "the size of \"" + partition.name + "\" is no multiple of \"erase_size\"";
        partition.offset = static_cast<uint32_t>(size);
        size += partition.size;
        if (size > largest_flash) return "the partitions are larger than 512 MiB";
    }
    description.size = static_cast<uint32_t>(size);
    for (auto &partition : description.partitions) {
        if (partition.whole) partition.size = description.size;
    }
    return {};
}

std::mutex description_mutex;
std::unique_ptr<const Description> known;

}  // namespace

int Description::find(const std::string &name) const {
    const auto found = std::ranges::find(partitions, name, &Partition::name);
    return found == partitions.end() ? -1 : static_cast<int>(found - partitions.begin());
}

bool parse_description(const std::string &scenario, Description &description, std::string &error) {
    const UniqueJson json(cJSON_Parse(scenario.c_str()));
    if (!json) return error = "it is not JSON", false;
    const UniqueJson usual(cJSON_Parse(usual_partitions));
    Description parsed;
    parse_flash(cJSON_GetObjectItem(json.get(), "flash"), parsed);
    if (parsed.partitions.empty()) parse_partitions(usual.get(), parsed);
    error = lay_out(parsed);
    if (!error.empty()) return false;
    description = parsed;
    return true;
}

const Description *description() {
    const std::lock_guard lock(description_mutex);
    if (known) return known.get();
    std::string scenario, error;
    if (!read_whole_file(scenario_path, scenario, error)) scenario = "{}";
    auto read = std::make_unique<Description>();
    if (!parse_description(scenario, *read, error)) {
        std::fprintf(stderr, "flash: %s: %s\n", scenario_path, error.c_str());
        return nullptr;
    }
    known = std::move(read);
    return known.get();
}

void forget_description() {
    const std::lock_guard lock(description_mutex);
    known.reset();
}

std::string table_text(const Description &description) {
    std::string text = "dev:    size   erasesize  name\n";
    char line[128];
    for (size_t i = 0; i < description.partitions.size(); ++i) {
        const Partition &partition = description.partitions[i];
        std::snprintf(line, sizeof line, "mtd%zu: %08x %08x \"%s\"\n", i, partition.size, description.erase_size,
                      partition.name.c_str());
        text += line;
    }
    return text;
}

}  // namespace ap::host::flash
