// upgrade_world.h: the world of the upgrade's tests: a small virtual flash, images, and the platform's answers
// recorded. It defines platform functions, so each test program includes it once.
#pragma once

#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <mtd/mtd-user.h>
#include <random>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "applatform/flash.h"
#include "apsupport/foundation.h"
#include "apsupport/upgrade.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "platform/host/flash_boot.h"
#include "platform/host/flash_model.h"
#include "tests/support/capture.h"
#include "upgrade/image_layout.h"

namespace test {

namespace flash = ap::host::flash;

inline std::map<std::string, std::string> settings;  // what the configuration store holds
inline std::vector<std::string> commands;            // what was run
inline std::vector<std::string> log_lines;           // "LEVEL TEXT" of the module "ap_common_so"

}  // namespace test

// NOLINTBEGIN(misc-definitions-in-headers): one source of a test program includes this
int GetValue(const char *key, char *value) {
    const auto found = test::settings.find(key);
    if (found == test::settings.end()) return 0;
    return std::strcpy(value, found->second.c_str()), 1;
}

__attribute__((format(printf, 1, 2))) int doSystemCmd(const char *format, ...) {
    char command[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof command, format, arguments);
    va_end(arguments);
    test::commands.emplace_back(command);
    const bool is_for_the_flash = std::strncmp(command, "echo ", 5) == 0;
    return is_for_the_flash ? system(command) : 0;
}

__attribute__((format(printf, 5, 6))) void log_debug_print(const char *, int, int level, const char *module,
                                                           const char *format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (std::strcmp(module, "ap_common_so") == 0 && level != 6)
        test::log_lines.push_back(std::to_string(level) + " " + text);
}
// NOLINTEND(misc-definitions-in-headers)

namespace test {

// Blocks of 4 KiB, banks of 192 KiB: three pieces of a copy, 48 blocks.
inline constexpr uint32_t block_size = 4096, bank_size = 48 * block_size;
inline constexpr size_t page_size = 2048;  // of the NAND flash
inline std::string small_flash(const std::string &more = R"("kind": "NOR", "erase_size": 4096)",
                               const std::string &names = "KernelFS1 KernelFS2") {
    const std::string first = names.substr(0, names.find(' ')), second = names.substr(names.find(' ') + 1);
    const auto part = [](const std::string &name, uint32_t size) {
        return R"(, {"name": ")" + name + R"(", "size": )" + std::to_string(size) + "}";
    };
    return R"({"flash": {)" + more + R"(, "partitions": [{"name": "ALL", "whole": true})" + part("Policy", 8192) +
           part("WebFS", 8192) + part(first, bank_size) + part("RootFS1", 8192) + part(second, bank_size) +
           part("RootFS2", 8192) + "]}}";
}

inline std::string noise(size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto &byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

inline uint32_t checksum(const std::string &bytes) {
    return static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<unsigned int>(bytes.size())));
}

// A payload with a head in front, as the boot loader wants it.
inline std::string payload_of(size_t size, unsigned seed = 1, uint32_t sequence = ap::valid_head_bit + 1) {
    const std::string body = noise(size - sizeof(ap::DualHead), seed);
    const ap::DualHead head = {0x11223344, sequence, static_cast<uint32_t>(body.size()), checksum(body)};
    return std::string(reinterpret_cast<const char *>(&head), sizeof head) + body;
}

struct Recipe {
    uint32_t magic = ap::kernel_magic;
    uint8_t firmware_class = 2;
    uint32_t product = 0x1a2b;
    uint32_t checksum_flip = 0;
};
inline std::string image_of(const std::string &payload, const Recipe &recipe = {}) {
    ap::ImageHeader header{};
    ap::store_be32(header.magic, recipe.magic);
    ap::store_be32(header.data_crc, checksum(payload) ^ recipe.checksum_flip);
    header.firmware_class = recipe.firmware_class;
    ap::store_be32(header.product_id, recipe.product);
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + payload;
}

class UpgradeWorld : public testing::Test {
protected:
    static constexpr const char *image = "/tmp/upload.img";

    void SetUp() override { switch_on(small_flash()); }
    void TearDown() override {
        std::puts("");  // the library leaves its last line open
        EXPECT_EQ(open_descriptors(), descriptors_) << "a descriptor was left open";
    }

    // A new device with that flash, that product, and nothing recorded.
    void switch_on(const std::string &scenario) {
        write_text("/apbox/scenario.json", scenario);
        unlink("/dev/root");
        std::string error;
        ASSERT_TRUE(flash::start_over());
        ASSERT_TRUE(flash::power_on(error)) << error;
        settings = {{"fw.product.id", "1a2b"}};
        forget();
        descriptors_ = open_descriptors();
    }
    static void restart() {
        std::string error;
        ASSERT_TRUE(flash::power_on(error)) << error;
    }
    static void forget() {
        commands.clear();
        log_lines.clear();
        flash::reset_counts();
        flash::arm({});
    }
    static flash::BootView banks() {
        flash::BootView view;
        EXPECT_TRUE(flash::look_at_banks(view));
        return view;
    }
    static std::string content(const std::string &partition) { return read_text("/apbox/flash/" + partition); }

    // The image file with something in front; the whole of it.
    static void put_image(const std::string &bytes) { write_text(image, bytes); }

private:
    int descriptors_ = 0;
};

// Puts bytes into a partition by its own rules.
inline void burn(const char *partition, const std::string &bytes) {
    const ap::UniqueFd fd(mtd_open(partition, O_RDWR));
    erase_info_t whole = {0, (static_cast<uint32_t>(bytes.size()) + block_size - 1) / block_size * block_size};
    ASSERT_EQ(ioctl(fd.get(), MEMUNLOCK, &whole), 0);
    ASSERT_EQ(ioctl(fd.get(), MEMERASE, &whole), 0);
    ASSERT_TRUE(ap::write_full(fd.get(), bytes.data(), bytes.size()));
}

inline bool holds(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

}  // namespace test
