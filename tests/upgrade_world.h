// upgrade_world.h: the world of the upgrade's tests: a small virtual flash, images, the configuration and what was
// logged. It defines platform functions, so each test program includes it once.
#pragma once

#include <cstdarg>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <mtd/mtd-user.h>
#include <random>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "applatform/commands.h"
#include "applatform/flash.h"
#include "apsupport/foundation.h"
#include "apsupport/upgrade.h"
#include "foundation/byte_order.h"
#include "foundation/file_io.h"
#include "platform/host/flash_boot.h"
#include "platform/host/flash_model.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"
#include "upgrade/image_layout.h"

namespace test {

namespace flash = ap::host::flash;
using flash::Operation;
using testing::HasSubstr;

inline std::string log_lines;  // "LEVEL TEXT|" of the module "ap_common_so", without the entries and exits

}  // namespace test

// NOLINTNEXTLINE(misc-definitions-in-headers): one source of a test program includes this
__attribute__((format(printf, 5, 6))) void log_debug_print(const char *, int, int level, const char *module,
                                                           const char *format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (std::strcmp(module, "ap_common_so") == 0 && level != 6)
        test::log_lines += std::to_string(level) + " " + text + "|";
}

namespace test {

// Blocks of 4 KiB, banks of 192 KiB: three pieces of a copy, 48 blocks.
inline constexpr uint32_t block_size = 4096, bank_size = 48 * block_size, other_size = 2 * block_size;
inline constexpr uint32_t flash_size = 4 * other_size + 2 * bank_size;
inline constexpr char nor[] = R"("kind": "NOR", "erase_size": 4096)",
                      nand[] = R"("kind": "NAND", "erase_size": 4096, "write_size": 2048)";

inline std::string small_flash(const std::string &kind = nor, const std::string &first = "KernelFS1",
                               const std::string &second = "KernelFS2") {
    const auto part = [](const std::string &name, uint32_t size) {
        return R"(, {"name": ")" + name + R"(", "size": )" + std::to_string(size) + "}";
    };
    return R"({"flash": {)" + kind + R"(, "partitions": [{"name": "ALL", "whole": true})" + part("Policy", other_size) +
           part("WebFS", other_size) + part(first, bank_size) + part("RootFS1", other_size) + part(second, bank_size) +
           part("RootFS2", other_size) + "]}}";
}

inline std::string noise(size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto &byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

template <typename Record> std::string bytes_of(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

inline uint32_t checksum(const std::string &bytes) {
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    return static_cast<uint32_t>(crc32(0, data, static_cast<unsigned int>(bytes.size())));
}

// A payload with a head in front, as the boot loader wants it.
inline std::string payload_of(size_t size, unsigned seed = 1, uint32_t sequence = ap::valid_head_bit + 1) {
    const std::string body = noise(size - sizeof(ap::DualHead), seed);
    const ap::DualHead head = {0x11223344, sequence, static_cast<uint32_t>(body.size()), checksum(body)};
    return bytes_of(head) + body;
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
    return bytes_of(header) + payload;
}

// Lets the `nth` operation of that kind fail, once.
inline void fail(Operation operation, uint32_t nth = 1) {
    flash::arm({.action = flash::Action::fail, .operations = flash::bit(operation), .nth = nth});
}

// What was logged since the last call.
inline std::string logged() { return std::exchange(log_lines, {}); }

// A call, its result, and what it logs.
struct Call {
    std::function<int()> call;
    int expected;
    std::string log;
};
inline void expect_calls(const std::vector<Call> &calls) {
    for (const auto &c : calls) {
        SCOPED_TRACE(c.log);
        log_lines.clear();
        EXPECT_EQ(c.call(), c.expected);
        EXPECT_EQ(logged(), c.log);
    }
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
        ASSERT_TRUE(flash::start_over());
        restart();
        store.values = {{"fw.product.id", "1a2b"}};
        flash::reset_counts();
        flash::arm({});
        log_lines.clear();
        descriptors_ = open_descriptors();
    }
    static void restart() {
        std::string error;
        ASSERT_TRUE(flash::power_on(error)) << error;
    }
    // Makes "/dev/root" a link to the target; without one it is gone.
    static void link_root(const std::string &target) {
        unlink("/dev/root");
        EXPECT_TRUE(target.empty() || symlink(target.c_str(), "/dev/root") == 0);
    }
    static flash::BootView banks() {
        flash::BootView view;
        EXPECT_TRUE(flash::look_at_banks(view));
        return view;
    }
    static std::string content(const std::string &partition) { return read_text("/apbox/flash/" + partition); }
    static void burn(const std::string &partition, std::string bytes) {
        bytes.resize(bank_size, '\xff');
        std::fstream("/apbox/flash/" + partition) << bytes;
    }
    static void put_image(const std::string &bytes) { write_text(image, bytes); }

private:
    int descriptors_ = 0;
};

}  // namespace test
