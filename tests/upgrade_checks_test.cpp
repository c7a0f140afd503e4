// The checks of an uploaded image: type, product, size, checksum, and all of them together.

#include <sys/stat.h>

#include "tests/upgrade_world.h"

using namespace test;

namespace {

class UpgradeChecks : public UpgradeWorld {
protected:
    static int combined(int offset = 0, int less = 0) {
        int type = 0;
        const int size = get_image_file_size(image) - offset - less;
        return flash_check_fw_type_and_crc_ap(image, offset, size, &type);
    }
    // What the last call logged, without the entries and exits.
    static std::string logged() {
        std::string all;
        for (const auto &line : log_lines) all += line + "|";
        log_lines.clear();
        return all;
    }
};

TEST_F(UpgradeChecks, TellTheTypeByMagicAndClass) {
    const std::string kernel = "5 pimg_header->fw_cls:2,FW_TYPE_KERNEL_IMAGE:2.|";
    const struct {
        const char *what;
        Recipe recipe;
        int expected;
        std::string log;
    } cases[] = {
        {"kernel", {ap::kernel_magic, 2}, 2, kernel + "5 File Type : kernel image|"},
        {"kernel magic, policy class",
         {ap::kernel_magic, 4},
         -1,
         "5 pimg_header->fw_cls:4,FW_TYPE_KERNEL_IMAGE:2.|2 get fw type is fail.|"},
        {"policy", {ap::policy_magic, 4}, 4, "5 File Type : policy image|"},
        {"policy magic, kernel class", {ap::policy_magic, 2}, -1, "2 get fw type is fail.|"},
        {"whole flash", {ap::flash_magic, 0}, 5, "5 File Type : flash image|"},
        {"whole flash, any class", {ap::flash_magic, 200}, 5, "5 File Type : flash image|"},
        {"one above the kernel's magic", {ap::kernel_magic + 1, 2}, -1, "2 File Type : unknow fw type.|"},
        {"magic the other way round", {0x56190527, 2}, -1, "2 File Type : unknow fw type.|"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        for (const int preamble : {0, 1, 1000}) {
            put_image(noise(static_cast<size_t>(preamble)) + image_of("payload", c.recipe));
            char expected_print[96];
            std::snprintf(expected_print, sizeof expected_print, "ntohl(pimg_header->ih_magic):%x,IH_MAGIC:27051956.\n",
                          c.recipe.magic);
            const std::string printed = printed_by([&] { EXPECT_EQ(check_fw_type_ap(image, preamble), c.expected); });
            EXPECT_TRUE(holds(printed, expected_print)) << printed;
            EXPECT_EQ(logged(), c.log);
        }
    }
}

TEST_F(UpgradeChecks, AnswerForFilesThatAreNoImages) {
    mkdir("/tmp/folder", 0755);
    mkfifo("/tmp/fifo", 0600);
    put_image(image_of(""));
    const struct {
        const char *what, *file;
        int offset;
        const char *type_log, *product_log, *checksum_log;
    } cases[] = {
        {"no such file", "/tmp/none", 0, "2 failed to open /tmp/none\n|", "2 Can't open file:/tmp/none\n|",
         "2 Can't open file:/tmp/none\n|"},
        {"a folder", "/tmp/folder", 0, "2 File Type : unknow fw type.|", "2 read image header is fail.|",
         "2 Can't open file:/tmp/folder\n|"},
        {"a FIFO", "/tmp/fifo", 0, "2 failed  to lseek /tmp/fifo\n|", "2 Can't lseek file:/tmp/fifo\n|",
         "2 Can't lseek file:/tmp/fifo\n|"},
        {"a negative offset", image, -1, "2 failed  to lseek /tmp/upload.img\n|",
         "2 Can't lseek file:/tmp/upload.img\n|", "2 Can't lseek file:/tmp/upload.img\n|"},
        {"an offset beyond the end", image, 5000, "2 File Type : unknow fw type.|", "2 read image header is fail.|",
         "2 crc is error.|"},
        {"the largest offset", image, INT32_MAX, "2 File Type : unknow fw type.|", "2 read image header is fail.|",
         "2 crc is error.|"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(check_fw_type_ap(c.file, c.offset), -1);
        EXPECT_EQ(logged(), c.type_log);
        EXPECT_EQ(check_fw_valid_ap(2, c.file, c.offset), -1);
        EXPECT_EQ(logged(), c.product_log);
        EXPECT_EQ(check_fw_crc_ap(2, c.file, c.offset, 100), -1);
        EXPECT_EQ(logged(), c.checksum_log);
        int type = 0;
        EXPECT_EQ(flash_check_fw_type_and_crc_ap(c.file, c.offset, 100, &type), -1);
        EXPECT_EQ(type, -1);
        log_lines.clear();
    }
    EXPECT_EQ(flash_check_fw_type_and_crc_ap(nullptr, 0, 0, nullptr), -4);
    EXPECT_EQ(check_fw_valid_ap(2, nullptr, 0), -1);
    EXPECT_EQ(check_fw_crc_ap(2, nullptr, 0, 0), -1);
    EXPECT_EQ(logged(), "2 arg is null.|2 arg is error.|2 arg is null.|");
}

TEST_F(UpgradeChecks, CloseStandardInputWhenThereIsNoFileAndLeaveADescriptorZeroOpen) {
    EXPECT_EQ(run_in_child([] {
                  check_fw_type_ap(nullptr, 0);
                  if (fcntl(0, F_GETFD) != -1) _exit(1);
                  put_image(image_of("payload"));  // the next file that is opened gets the number 0
                  if (check_fw_type_ap(image, 0) != 2 || fcntl(0, F_GETFD) != -1) _exit(2);
                  if (check_fw_valid_ap(2, image, 0) != 1 || fcntl(0, F_GETFD) == -1) _exit(3);
              }),
              0);
}

TEST_F(UpgradeChecks, CompareTheProductWithTheConfiguredOne) {
    const struct {
        const char *what;
        std::map<std::string, std::string> configured;
        uint32_t product;
        int expected;
    } cases[] = {
        {"the profile's type", {{"fw.profile.type", "1a2b"}}, 0x1a2b, 1},
        {"the product id", {{"fw.product.id", "0x1A2B"}}, 0x1a2b, 1},
        {"the type goes before the id", {{"fw.profile.type", "1a2b"}, {"fw.product.id", "ffff"}}, 0x1a2b, 1},
        {"and the id does not count", {{"fw.profile.type", "1a2b"}, {"fw.product.id", "ffff"}}, 0xffff, -1},
        {"an empty type counts as zero", {{"fw.profile.type", ""}, {"fw.product.id", "ffff"}}, 0, 1},
        {"one off", {{"fw.product.id", "1a2b"}}, 0x1a2c, -1},
        {"all 32 bits", {{"fw.product.id", "ffffffff"}}, 0xffffffff, 1},
        {"more than 32 bits read as the largest", {{"fw.product.id", "100001a2b"}}, 0xffffffff, 1},
        {"and not as what is left of them", {{"fw.product.id", "100001a2b"}}, 0x1a2b, -1},
        {"a negative one wraps", {{"fw.product.id", "-2"}}, 0xfffffffe, 1},
        {"none", {}, 0, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        settings = c.configured;
        put_image("1" + image_of("", {.product = c.product}));
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_KERNEL_IMAGE, image, 1), c.expected);
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_POLICY_IMAGE, image, 1), c.expected);
        put_image("1" + std::string(24, 'x') + image_of("", {.product = c.product}).substr(36, 4) + "last");
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_WEBFS_IMAGE, image, 1), c.expected);
    }
    EXPECT_TRUE(holds(logged(), "2 get fw product id is fail."));
    settings = {{"fw.product.id", std::string(2307, 'f')}};  // longer than any number
    put_image(image_of("", {.product = 0xffffffff}));
    EXPECT_EQ(check_fw_valid_ap(2, image, 0), 1);
}

TEST_F(UpgradeChecks, AcceptATypeWithoutAProductAndRefuseShortHeaders) {
    put_image(image_of(""));
    for (const int type : {7, 5, 0, -1}) {
        EXPECT_EQ(check_fw_valid_ap(type, image, 0), 1);
        EXPECT_EQ(logged(), "2 fw_type is not support:" + std::to_string(type) + ".|");
    }
    put_image(image_of("").substr(0, 63));
    EXPECT_EQ(check_fw_valid_ap(2, image, 0), -1);
    EXPECT_EQ(logged(), "2 read image header is fail.|");
    put_image(std::string(31, '\0'));
    EXPECT_EQ(check_fw_valid_ap(3, image, 0), -1);
    EXPECT_EQ(logged(), "");
    EXPECT_TRUE(commands.empty());
    put_image(std::string(32, '\0'));
    EXPECT_EQ(check_fw_valid_ap(3, image, 0), -1);
    EXPECT_EQ(commands, std::vector<std::string>{"free"});
}

TEST_F(UpgradeChecks, MeasureThePayloadAgainstThePartition) {
    const struct {
        const char *what;
        int type;
        unsigned size;
        int expected;
    } cases[] = {
        {"an empty payload", 2, 64, 1},
        {"no header wraps around", 2, 63, -2},
        {"fills the bank", 2, bank_size + 64, 1},
        {"one byte more", 2, bank_size + 65, -2},
        {"the largest", 2, UINT32_MAX, -2},
        {"web, fills", 3, 8192 + 64, 1},
        {"web, one more", 3, 8192 + 65, -2},
        {"policy, fills", 4, 8192 + 64, 1},
        {"policy, one more", 4, 8192 + 65, -2},
        {"whole flash, fills", 5, 4 * 8192 + 2 * bank_size + 64, 1},
        {"whole flash, one more", 5, 4 * 8192 + 2 * bank_size + 65, -2},
        {"an unknown type has room for nothing", 9, 65, -2},
        {"and nothing fits it", 9, 64, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string printed =
            printed_by([&] { EXPECT_EQ(check_mtd_size_ap(c.type, nullptr, c.size), c.expected); });
        EXPECT_TRUE(holds(printed, "FW_MTD_NAME:KernelFS2\n"));
        EXPECT_EQ(holds(printed, "mtd :KernelFS2, size:00030000\n"), c.type == 2);
        EXPECT_EQ(holds(logged(), "2 file is large than mtd size. file size="), c.expected == -2);
    }
    flash::arm({.action = flash::Action::fail, .operations = flash::bit(flash::Operation::info)});
    EXPECT_EQ(check_mtd_size_ap(4, nullptr, 64), -1);
    EXPECT_EQ(logged(), "2 get mtd dev info is fail.|");
    for (const int type : {2, 4}) {
        flash::arm({.action = flash::Action::fail, .operations = flash::bit(flash::Operation::open)});
        EXPECT_EQ(check_mtd_size_ap(type, nullptr, 64), -1);
        EXPECT_EQ(logged(), type == 2 ? "2 Can't open mtd:KernelFS2\n|" : "2 Can't open mtd dev:Policy.|");
        flash::arm({.action = flash::Action::fail, .operations = flash::bit(flash::Operation::open)});
        put_image(image_of(""));
        EXPECT_EQ(check_fw_valid_ap(type, image, 0), -1);
        EXPECT_EQ(logged(), "2 Can't open file:KernelFS2\n|");
    }
}

TEST_F(UpgradeChecks, CountExactlyTheBytesBehindTheHeader) {
    const std::string whole = noise(200000);
    for (const size_t size : {0UL, 1UL, 1023UL, 1024UL, 1025UL, 65535UL, 65536UL, 65537UL, 131072UL, 200000UL}) {
        SCOPED_TRACE(size);
        const std::string payload = whole.substr(0, size);
        const int image_size = static_cast<int>(size) + 64;
        for (const int type : {2, 4}) {
            put_image("preamble" + image_of(payload) + "what follows");
            EXPECT_EQ(check_fw_crc_ap(type, image, 8, image_size), 1);
            EXPECT_EQ(check_fw_crc_ap(type, image, 8, image_size + 1), -1);
            put_image(image_of(payload));
            EXPECT_EQ(check_fw_crc_ap(type, image, 0, image_size + 1), -1) << "the file ends before the size";
            EXPECT_EQ(check_fw_crc_ap(type, image, 0, INT32_MAX), -1);
            put_image(image_of(payload, {.checksum_flip = 1}));
            EXPECT_EQ(check_fw_crc_ap(type, image, 0, image_size), -1);
        }
    }
    // Without bytes behind the header the checksum is 0, whatever the size says.
    put_image(image_of(""));
    for (const int size : {64, 63, 0, -1, INT32_MIN}) EXPECT_EQ(check_fw_crc_ap(2, image, 0, size), 1) << size;
    put_image("");
    EXPECT_TRUE(holds(printed_by([] { EXPECT_EQ(check_fw_crc_ap(2, image, 0, 64), 1); }), "read error"));
    log_lines.clear();
    for (const int type : {3, 5, 0}) EXPECT_EQ(check_fw_crc_ap(type, image, 0, 64), -1);
    EXPECT_EQ(logged(), "2 fwtype is not support:3.|2 fwtype is not support:5.|2 fwtype is not support:0.|");
}

TEST_F(UpgradeChecks, CombineWithTheLaterFailureOverTheEarlier) {
    constexpr bool wrong = true, right = false;
    const struct {
        const char *what;
        Recipe recipe;
        bool product, size, checksum;
        int expected;
    } cases[] = {
        {"all right", {}, right, right, right, 0},
        {"product", {}, wrong, right, right, -1},
        {"size", {}, right, wrong, right, -3},
        {"checksum", {}, right, right, wrong, -2},
        {"size over product", {}, wrong, wrong, right, -3},
        {"checksum over product", {}, wrong, right, wrong, -2},
        {"checksum over size", {}, right, wrong, wrong, -2},
        {"checksum over both", {}, wrong, wrong, wrong, -2},
        {"a policy", {ap::policy_magic, 4}, right, right, right, -1},
        {"a whole flash", {ap::flash_magic, 0}, right, right, right, -1},
        {"no image", {0, 0}, wrong, wrong, wrong, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Recipe recipe = c.recipe;
        if (c.product) recipe.product = 0x1a2c;
        if (c.checksum) recipe.checksum_flip = 0x80000000;
        const std::string payload = payload_of(c.size ? bank_size + 1 : bank_size);
        put_image("in front" + image_of(payload, recipe));
        const std::string before = read_text(image);
        const std::string printed = printed_by([&] { EXPECT_EQ(combined(8), c.expected); });
        EXPECT_TRUE(holds(printed, "ret = " + std::to_string(c.expected) + "\n"));
        EXPECT_TRUE(holds(printed, "offset 8, size " + std::to_string(payload.size() + 64) + ", fwtype = "));
        EXPECT_EQ(read_text(image), before);
    }
    EXPECT_EQ(flash::count(flash::Operation::erase) + flash::count(flash::Operation::write), 0U);
    put_image(image_of(payload_of(5000)));
    EXPECT_EQ(combined(0, 1), -2) << "a size one short";
    EXPECT_EQ(combined(0, -1), -2) << "a size one too large";
}

TEST_F(UpgradeChecks, TakeImagesOfMkimage) {
    const std::string payload = payload_of(70001);
    write_text("/tmp/payload", payload);
    const auto make = [](const std::string &name) {
        const std::string command = "mkimage -A mips -O linux -T kernel -C lzma -a 0x80000000 -e 0x80000000 -n '" +
                                    name + "' -d /tmp/payload /tmp/upload.img > /dev/null";
        ASSERT_EQ(system(command.c_str()), 0);
    };
    settings = {{"fw.profile.type", "0a1b2c3d"}};
    make("\x02...\x0a\x1b\x2c\x3d firmware");
    EXPECT_EQ(combined(), 0);
    make("\x02...\x0a\x1b\x2c\x3e firmware");
    EXPECT_EQ(combined(), -1);
    make("\x04...\x0a\x1b\x2c\x3d firmware");
    EXPECT_EQ(combined(), -1);
}

TEST_F(UpgradeChecks, TellFileSizes) {
    put_image("12345");
    EXPECT_EQ(get_image_file_size(image), 5);
    put_image("");
    EXPECT_EQ(get_image_file_size(image), 0);
    ASSERT_EQ(truncate(image, off_t{INT32_MAX} + 1), 0);
    EXPECT_EQ(get_image_file_size(image), INT32_MAX);
    log_lines.clear();
    EXPECT_EQ(get_image_file_size(nullptr), 0);
    EXPECT_EQ(get_image_file_size("/tmp/none"), 0);
    EXPECT_EQ(logged(), "2 arg is null.|2 Can't open file:/tmp/none\n|");
}

TEST_F(UpgradeChecks, LogToTheDiagnosticLogAsWell) {
    ASSERT_EQ(set_dbg_level("ap_common_so", 6), 1);
    const std::string printed = printed_by([] { check_fw_type_ap("/tmp/none", 0); });
    set_dbg_level("ap_common_so", 0);
    const size_t entry = printed.find("function entry!"), text = printed.find("failed to open /tmp/none\n");
    EXPECT_TRUE(entry < text && text < printed.find("function exit!") &&
                printed.find("function exit!") != std::string::npos)
        << printed;
    EXPECT_TRUE(holds(read_text("/var/debug.ap_common_so.log"), "failed to open /tmp/none"));
}

}  // namespace
