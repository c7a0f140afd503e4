// image_info.cpp: `apctl image info`: every field of an image's header, and of the head of a kernel image's payload.

#include <algorithm>
#include <cjson/cJSON.h>
#include <cstdio>
#include <ctime>

#include "foundation/byte_order.h"
#include "foundation/owned.h"
#include "tools/apctl/image.h"

namespace apctl::image {

namespace {

struct Named {
    uint8_t number;
    const char *name;
};
// The numbers of the legacy image format that are met on routers; others are shown as numbers.
constexpr Named systems[] = {{2, "NetBSD"}, {5, "Linux"}, {14, "VxWorks"}, {17, "U-Boot"}};
constexpr Named architectures[] = {{2, "ARM"}, {3, "x86"}, {5, "MIPS"}, {6, "MIPS64"}, {7, "PowerPC"}, {22, "ARM64"}};
constexpr Named image_types[] = {{1, "standalone"}, {2, "kernel"}, {3, "ramdisk"},    {4, "multi-file"},
                                 {5, "firmware"},   {6, "script"}, {7, "filesystem"}, {8, "device tree"}};
constexpr Named compressions[] = {{0, "none"}, {1, "gzip"}, {2, "bzip2"}, {3, "lzma"},
                                  {4, "lzo"},  {5, "lz4"},  {6, "zstd"}};
constexpr Named firmware_classes[] = {{2, "kernel"}, {4, "policy"}};

struct Field {
    std::string name, value, note;
};
using Fields = std::vector<Field>;

std::string kind_of(uint32_t magic) {
    switch (magic) {
    case ap::kernel_magic: return "kernel";
    case ap::policy_magic: return "policy";
    case ap::flash_magic: return "whole flash";
    default: return "no image's";
    }
}

template <size_t N> Field named_field(const char *name, const Named (&names)[N], uint8_t number) {
    const auto *found = std::ranges::find(names, number, &Named::number);
    return {name, std::to_string(number), found == std::end(names) ? "" : found->name};
}

Field checksum_field(const char *name, uint32_t in_image, uint32_t counted) {
    return {name, hex(in_image), in_image == counted ? "right" : "wrong, it is " + hex(counted)};
}

Field length_field(const char *name, uint32_t in_image, size_t counted) {
    return {name, std::to_string(in_image), in_image == counted ? "right" : "the file has " + std::to_string(counted)};
}

std::string utc_text(uint32_t seconds) {
    const time_t time = seconds;
    char text[32] = {};
    struct tm utc;
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", gmtime_r(&time, &utc));
    return text;
}

std::string printable(const uint8_t *bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) text += bytes[i] > ' ' && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
    return text;
}

Fields header_fields(const Image &image) {
    const ap::ImageHeader &header = image.header;
    ap::ImageHeader without_crc = header;
    ap::store_be32(without_crc.header_crc, 0);
    const uint32_t magic = ap::be32(header.magic), time = ap::be32(header.time);
    return {
        {"magic", hex(magic), kind_of(magic)},
        checksum_field("header checksum", ap::be32(header.header_crc), checksum_of(&without_crc, sizeof without_crc)),
        {"time", std::to_string(time), utc_text(time)},
        length_field("data size", ap::be32(header.data_size), image.payload_size()),
        {"load address", hex(ap::be32(header.load_address)), ""},
        {"entry point", hex(ap::be32(header.entry_point)), ""},
        checksum_field("data checksum", ap::be32(header.data_crc), checksum_of(image.payload(), image.payload_size())),
        named_field("system", systems, header.system),
        named_field("architecture", architectures, header.architecture),
        named_field("image type", image_types, header.image_type),
        named_field("compression", compressions, header.compression),
        named_field("firmware class", firmware_classes, header.firmware_class),
        {"name, bytes 1 to 3", printable(header.name_start, sizeof header.name_start), ""},
        {"product id", hex(ap::be32(header.product_id)), ""},
        {"name, bytes 8 to 31", printable(header.name_rest, sizeof header.name_rest), ""},
    };
}

Fields head_fields(const Image &image) {
    const size_t behind = image.payload_size() - sizeof image.head;
    const uint8_t *bytes = image.payload() + sizeof image.head;
    return {
        {"head word 0", hex(image.head.word_0), ""},
        {"head sequence", hex(image.head.sequence), image.head.sequence & ap::valid_head_bit ? "" : "not valid"},
        length_field("head length", image.head.length, behind),
        checksum_field("head checksum", image.head.checksum, checksum_of(bytes, behind)),
    };
}

void print_fields(const Fields &fields) {
    const ap::UniqueJson json(cJSON_CreateObject());
    for (const auto &field : fields) {
        cJSON *item = cJSON_AddObjectToObject(json.get(), field.name.c_str());
        cJSON_AddStringToObject(item, "value", field.value.c_str());
        if (!field.note.empty()) cJSON_AddStringToObject(item, "note", field.note.c_str());
    }
    print_json(json.get());
}

}  // namespace

int info(Words words) {
    const bool as_json = take_flag(words, "--json");
    uint32_t offset = 0;
    if (!take_number(words, "--offset", offset)) return exit_usage;
    if (words.size() != 1) return usage_error(verb, "info takes an image's file");
    Image image;
    if (!read_image(words[0], offset, image)) return exit_failed;
    if (image.size() < sizeof image.header)
        return std::fprintf(stderr, "%s: shorter than an image's header\n", words[0].c_str()), exit_failed;

    Fields fields = header_fields(image);
    if (ap::be32(image.header.magic) == ap::kernel_magic && image.payload_size() >= sizeof image.head)
        std::ranges::copy(head_fields(image), std::back_inserter(fields));
    if (as_json) return print_fields(fields), exit_ok;
    std::vector<std::vector<std::string>> rows;
    for (const auto &field : fields) rows.push_back({field.name, field.value, field.note});
    return print_table(rows), exit_ok;
}

}  // namespace apctl::image
