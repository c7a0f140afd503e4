// image.cpp: `apctl image`: its parts and their help, reading an image, and wrapping a payload into one.

#include "tools/apctl/image.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

#include "applatform/flash.h"
#include "foundation/byte_order.h"
#include "foundation/owned.h"

namespace apctl::image {

namespace {

constexpr char help[] =
    R"(usage: apctl image make PAYLOAD IMAGE --product HEX [--class kernel|policy] [--name TEXT] [--headed]
       apctl image info IMAGE [--offset N] [--json]
       apctl image check IMAGE [--offset N] [--json]
       apctl image flash IMAGE [--offset N] [--power-cut N]
       apctl image banks [--init] [--json]

make   wraps a payload into an image of a class and product id. A kernel image's payload begins with a 16-byte head of
       four words, which is put in front; its third word is the length and its fourth the CRC-32 of the bytes behind it.
       --headed: the payload begins with a head already; only those two words are filled in.
info   prints every field of an image's header and of its payload's head.
check  runs each check of an upgrade and says why it passes or fails. Status 1 when the upgrade would refuse the image.
flash  checks an image and writes a copy of it to the bank that is not running. Only in a device box.
       --power-cut N: the power goes in the middle of the N-th erase or write.
banks  shows the banks as the boot loader sees them, and which one it would boot.
       --init: as when the device is switched on: makes the flash when it is new, lets the boot loader choose, and puts
       /proc/mtd, /dev/root and the partitions' flags files in place.

An image begins at byte N of its file (--offset, 0 when it is left out).
)";

constexpr size_t largest_image = size_t{512} << 20;
constexpr uint8_t linux_system = 5, mips_architecture = 5, kernel_image = 2, script_image = 6;

struct Class {
    const char *name;
    uint32_t magic;
    uint8_t firmware_class, image_type;
    bool has_head;
};
constexpr Class classes[] = {
    {"kernel", ap::kernel_magic, 2, kernel_image, true},
    {"policy", ap::policy_magic, 4, script_image, false},
};

bool read_file(const std::string &path, std::string &bytes) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return std::perror(path.c_str()), false;
    if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(largest_image))
        return std::fprintf(stderr, "%s: not a regular file of up to 512 MiB\n", path.c_str()), false;
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    return file.good() || (std::fprintf(stderr, "%s: cannot be read\n", path.c_str()), false);
}

bool parse_hex(const std::string &text, uint32_t &value) {
    const char *begin = text.c_str() + (text.starts_with("0x") ? 2 : 0), *end = text.c_str() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, value, 16);
    return error == std::errc() && stop == end;
}

// Fills the length and the checksum into the head that the payload begins with.
void complete_head(std::string &payload) {
    ap::DualHead head;
    std::memcpy(&head, payload.data(), sizeof head);
    head.length = static_cast<uint32_t>(payload.size() - sizeof head);
    head.checksum = checksum_of(payload.data() + sizeof head, payload.size() - sizeof head);
    std::memcpy(payload.data(), &head, sizeof head);
}

ap::ImageHeader header_of(const std::string &payload, const Class &wanted, uint32_t product, const std::string &name) {
    ap::ImageHeader header{};
    ap::store_be32(header.magic, wanted.magic);
    ap::store_be32(header.time, static_cast<uint32_t>(std::time(nullptr)));
    ap::store_be32(header.data_size, static_cast<uint32_t>(payload.size()));
    ap::store_be32(header.data_crc, checksum_of(payload.data(), payload.size()));
    header.system = linux_system;
    header.architecture = mips_architecture;
    header.image_type = wanted.image_type;
    header.firmware_class = wanted.firmware_class;
    ap::store_be32(header.product_id, product);
    std::memcpy(header.name_rest, name.data(), std::min(name.size(), sizeof header.name_rest));
    ap::store_be32(header.header_crc, checksum_of(&header, sizeof header));
    return header;
}

struct Part {
    const char *name;
    int (*run)(Words words);
};
constexpr Part parts[] = {{"make", make}, {"info", info}, {"check", check}, {"flash", flash}, {"banks", banks}};

int run(const Words &words) {
    if (words.empty()) return usage_error(verb, "what about images: make, info, check, flash or banks?");
    for (const auto &part : parts) {
        if (words.front() == part.name) return part.run(Words(words.begin() + 1, words.end()));
    }
    return usage_error(verb, "there is no \"" + words.front() + "\"");
}

const Verb image_verb{verb, "make, look at, check and flash firmware images; see the banks", help, run,
                      apctl::Where::anywhere};

}  // namespace

uint32_t checksum_of(const void *bytes, size_t size) {
    return static_cast<uint32_t>(crc32(0, static_cast<const unsigned char *>(bytes), static_cast<unsigned int>(size)));
}

void print_json(const cJSON *json) {
    const ap::HeapPtr<char> text(cJSON_Print(json));
    if (text) std::puts(text.get());
}

std::string hex(uint32_t value) {
    char text[2 + 8 + 1];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

bool take_number(Words &words, const std::string &option, uint32_t &number) {
    std::string text;
    if (!take_option(words, option, text)) return true;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && stop == text.data() + text.size() && number <= INT32_MAX) return true;
    return usage_error(verb, option + " takes a number"), false;
}

bool read_image(const std::string &file, size_t offset, Image &image) {
    if (!read_file(file, image.bytes)) return false;
    if (offset > image.bytes.size()) return std::fprintf(stderr, "%s: has no byte %zu\n", file.c_str(), offset), false;
    image.offset = offset;
    std::memcpy(&image.header, image.bytes.data() + offset, std::min(image.size(), sizeof image.header));
    if (image.payload_size() >= sizeof image.head) std::memcpy(&image.head, image.payload(), sizeof image.head);
    return true;
}

int make(Words words) {
    std::string product_text, class_name = "kernel", name;
    if (!take_option(words, "--product", product_text)) return usage_error(verb, "make needs --product");
    take_option(words, "--class", class_name);
    take_option(words, "--name", name);
    const bool headed = take_flag(words, "--headed");
    if (words.size() != 2) return usage_error(verb, "make takes a payload's file and an image's");
    uint32_t product = 0;
    if (!parse_hex(product_text, product)) return usage_error(verb, "--product takes up to eight hexadecimal digits");
    const auto *wanted = std::ranges::find(classes, class_name, [](const Class &c) { return std::string(c.name); });
    if (wanted == std::end(classes)) return usage_error(verb, "--class is kernel or policy");

    std::string payload;
    if (!read_file(words[0], payload)) return exit_failed;
    if (wanted->has_head) {
        const ap::DualHead head = {0, ap::valid_head_bit + 1, 0, 0};
        if (!headed) payload.insert(0, reinterpret_cast<const char *>(&head), sizeof head);
        if (payload.size() < sizeof head)
            return std::fprintf(stderr, "%s: shorter than a head\n", words[0].c_str()), exit_failed;
        complete_head(payload);
    }
    const ap::ImageHeader header = header_of(payload, *wanted, product, name);
    std::ofstream file(words[1], std::ios::binary);
    file.write(reinterpret_cast<const char *>(&header), sizeof header);
    file.write(payload.data(), static_cast<std::streamsize>(payload.size()));
    if (!file.flush()) return std::perror(words[1].c_str()), exit_failed;
    std::printf("%s: %s image for product %s, %zu bytes, checksum %s\n", words[1].c_str(), wanted->name,
                hex(product).c_str(), sizeof header + payload.size(), hex(ap::be32(header.data_crc)).c_str());
    return exit_ok;
}

}  // namespace apctl::image
