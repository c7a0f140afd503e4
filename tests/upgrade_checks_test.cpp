// The checks of an uploaded image: type, product, size, checksum, and all of them together.

#include <sys/stat.h>

#include "tests/support/scripted_commands.h"
#include "tests/upgrade_world.h"

using namespace test;

namespace {

class UpgradeChecks : public UpgradeWorld {
protected:
    static int combined(int offset = 0, int more = 0) {
        int type = 0;
        return flash_check_fw_type_and_crc_ap(image, offset, get_image_file_size(image) - offset + more, &type);
    }
};

TEST_F(UpgradeChecks, TellTheTypeByMagicAndClass) {
    const std::tuple<uint32_t, uint8_t, int, const char *> cases[] = {
        {0x27051956, 2, 2, "5 pimg_header->fw_cls:2,FW_TYPE_KERNEL_IMAGE:2.|5 File Type : kernel image|"},
        {0x27051956, 4, -1, "5 pimg_header->fw_cls:4,FW_TYPE_KERNEL_IMAGE:2.|2 get fw type is fail.|"},
        {0x27051958, 4, 4, "5 File Type : policy image|"},
        {0x27051958, 2, -1, "2 get fw type is fail.|"},
        {0x03000008, 200, 5, "5 File Type : flash image|"},
        {0x27051957, 2, -1, "2 File Type : unknow fw type.|"},
        {0x56190527, 2, -1, "2 File Type : unknow fw type.|"},
    };
    for (const auto &[magic, firmware_class, type, log] : cases) {
        put_image(noise(1001) + image_of("payload", {magic, firmware_class}));
        EXPECT_EQ(check_fw_type_ap(image, 1001), type);
        EXPECT_EQ(logged(), log);
    }
    EXPECT_THAT(printed_by([] { check_fw_type_ap(image, 1001); }),
                HasSubstr("] ntohl(pimg_header->ih_magic):56190527,IH_MAGIC:27051956.\n"));
}

TEST_F(UpgradeChecks, AnswerForFilesThatAreNoImages) {
    mkdir("/tmp/folder", 0755);
    mkfifo("/tmp/fifo", 0600);
    put_image(image_of(""));
    const std::tuple<const char *, int, std::string, std::string, std::string> cases[] = {
        {"/tmp/none", 0, "failed to open /tmp/none\n", "Can't open file:/tmp/none\n", "Can't open file:/tmp/none\n"},
        {"/tmp/fifo", 0, "failed  to lseek /tmp/fifo\n", "Can't lseek file:/tmp/fifo\n",
         "Can't lseek file:/tmp/fifo\n"},
        {image, -1, "failed  to lseek /tmp/upload.img\n", "Can't lseek file:/tmp/upload.img\n",
         "Can't lseek file:/tmp/upload.img\n"},
        {image, INT32_MAX, "File Type : unknow fw type.", "read image header is fail.", "crc is error."},
        {"/tmp/folder", 0, "File Type : unknow fw type.", "read image header is fail.",
         "Can't open file:/tmp/folder\n"},
    };
    for (const auto &[file, offset, type_log, product_log, checksum_log] : cases) {
        int type = 0;
        EXPECT_EQ(flash_check_fw_type_and_crc_ap(file, offset, 100, &type), -1);
        EXPECT_EQ(type, -1);
        expect_calls(
            {{[f = file, o = offset] { return check_fw_type_ap(f, o); }, -1, "2 " + type_log + "|"},
             {[f = file, o = offset] { return check_fw_valid_ap(2, f, o); }, -1, "2 " + product_log + "|"},
             {[f = file, o = offset] { return check_fw_crc_ap(2, f, o, 100); }, -1, "2 " + checksum_log + "|"}});
    }
    expect_calls({{[] { return flash_check_fw_type_and_crc_ap(nullptr, 0, 0, nullptr); }, -4, "2 arg is null.|"},
                  {[] { return check_fw_valid_ap(2, nullptr, 0); }, -1, "2 arg is error.|"},
                  {[] { return check_fw_crc_ap(2, nullptr, 0, 0); }, -1, "2 arg is null.|"},
                  {[] { return get_image_file_size(nullptr); }, 0, "2 arg is null.|"},
                  {[] { return get_image_file_size("/tmp/none"); }, 0, "2 Can't open file:/tmp/none\n|"}});
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
    constexpr char type[] = "fw.profile.type", id[] = "fw.product.id";
    const std::tuple<const char *, std::map<std::string, std::string>, uint32_t, int> cases[] = {
        {"the profile's type", {{type, "1a2b"}}, 0x1a2b, 1},
        {"the product id", {{id, "0x1A2B"}}, 0x1a2b, 1},
        {"the type goes before the id", {{type, "1a2b"}, {id, "ffff"}}, 0x1a2b, 1},
        {"and the id does not count", {{type, "1a2b"}, {id, "ffff"}}, 0xffff, -1},
        {"an empty type counts as zero", {{type, ""}, {id, "ffff"}}, 0, 1},
        {"one off", {{id, "1a2b"}}, 0x1a2c, -1},
        {"more than 32 bits read as the largest", {{id, "100001a2b"}}, 0xffffffff, 1},
        {"and not as what is left of them", {{id, "100001a2b"}}, 0x1a2b, -1},
        {"a negative one wraps", {{id, "-2"}}, 0xfffffffe, 1},
        {"longer than any number", {{id, std::string(2307, 'f')}}, 0xffffffff, 1},
        {"none", {}, 0, -1},
    };
    for (const auto &[what, configured, product, expected] : cases) {
        SCOPED_TRACE(what);
        store.values = configured;
        const std::string header = image_of("", {.product = product});
        put_image("1" + header);
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_KERNEL_IMAGE, image, 1), expected);
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_POLICY_IMAGE, image, 1), expected);
        put_image("1" + std::string(24, 'x') + header.substr(36, 4) + "last");
        EXPECT_EQ(check_fw_valid_ap(FW_TYPE_WEBFS_IMAGE, image, 1), expected);
    }
    EXPECT_THAT(logged(), HasSubstr("2 ERROR: product id not match.|2 get fw product id is fail.|"));
}

TEST_F(UpgradeChecks, AcceptATypeWithoutAProductAndRefuseShortHeaders) {
    const auto valid = [](int type, size_t size) {
        return [=] { return put_image(image_of("").substr(0, size)), check_fw_valid_ap(type, image, 0); };
    };
    commands.clear();
    expect_calls({{valid(7, 0), 1, "2 fw_type is not support:7.|"},
                  {valid(5, 0), 1, "2 fw_type is not support:5.|"},
                  {valid(2, 63), -1, "2 read image header is fail.|"},
                  {valid(2, 64), 1, ""},
                  {valid(3, 31), -1, ""}});
    EXPECT_THAT(commands, testing::IsEmpty());
    expect_calls({{valid(3, 32), -1, "2 ERROR: product id not match.|"}});
    EXPECT_THAT(commands, testing::ElementsAre("free"));
}

TEST_F(UpgradeChecks, MeasureThePayloadAgainstThePartition) {
    const std::tuple<int, unsigned, const char *, const char *> cases[] = {
        {2, bank_size, "] mtd :KernelFS2, size:00030000\n", ""},
        {3, other_size, "", "5 mtd :WebFS, size:00002000.|"},
        {4, other_size, "", "5 mtd :Policy, size:00002000.|"},
        {5, flash_size, "", "5 mtd :ALL, size:00068000.|"},
        {9, 0, "", "5 fw_type is not support:9.|"},
    };
    for (const auto &[type, room, print, log] : cases) {
        SCOPED_TRACE(type);
        const auto measure = [of = type](unsigned size) { return check_mtd_size_ap(of, nullptr, size); };
        const std::string printed = printed_by([&, fits = room + 64] { EXPECT_EQ(measure(fits), 1); });
        EXPECT_THAT(printed, testing::AllOf(HasSubstr("] FW_MTD_NAME:KernelFS2\n"), HasSubstr(print)));
        EXPECT_EQ(logged(), log);
        for (const unsigned too_large : {room + 65, 63U}) {  // what has no header wraps around
            EXPECT_EQ(measure(too_large), -2);
            EXPECT_THAT(logged(), HasSubstr("2 file is large than mtd size. file size="));
        }
    }
    put_image(image_of(""));
    using enum Operation;
    const auto size = [](Operation broken, int type) {
        return [=] { return fail(broken), check_mtd_size_ap(type, nullptr, 64); };
    };
    const auto product = [](Operation broken, int type) {
        return [=] { return fail(broken), check_fw_valid_ap(type, image, 0); };
    };
    expect_calls({{size(info, 4), -1, "2 get mtd dev info is fail.|"},
                  {size(open, 2), -1, "2 Can't open mtd:KernelFS2\n|"},
                  {size(open, 4), -1, "2 Can't open mtd dev:Policy.|"},
                  {product(open, 4), -1, "2 Can't open file:KernelFS2\n|"},
                  {product(open, 3), -1, "2 Can't open file:WebFS\n|"}});
}

TEST_F(UpgradeChecks, CountExactlyTheBytesBehindTheHeader) {
    for (const size_t size : {0U, 1U, 1024U, 1025U, 65535U, 65536U, 65537U, 200000U}) {
        SCOPED_TRACE(size);
        const std::string payload = noise(size);
        const int image_size = static_cast<int>(size) + 64;
        put_image("preamble" + image_of(payload) + "what follows");
        EXPECT_EQ(check_fw_crc_ap(2, image, 8, image_size), 1);
        EXPECT_EQ(check_fw_crc_ap(2, image, 8, image_size + 1), -1);
        put_image(image_of(payload));
        EXPECT_EQ(check_fw_crc_ap(4, image, 0, image_size), 1);
        EXPECT_EQ(check_fw_crc_ap(4, image, 0, image_size + 1), -1) << "the file ends before that";
        put_image(image_of(payload, {.checksum_flip = 1}));
        EXPECT_EQ(check_fw_crc_ap(4, image, 0, image_size), -1);
    }
    // Without bytes behind the header the checksum is 0, whatever the size says.
    put_image(image_of(""));
    for (const int size : {64, 63, INT32_MIN}) EXPECT_EQ(check_fw_crc_ap(2, image, 0, size), 1) << size;
    put_image("");
    EXPECT_THAT(printed_by([] { EXPECT_EQ(check_fw_crc_ap(2, image, 0, 64), 1); }), HasSubstr("read error"));
    log_lines.clear();
    EXPECT_EQ(check_fw_crc_ap(3, image, 0, 64), -1);
    EXPECT_EQ(logged(), "2 fwtype is not support:3.|");
}

TEST_F(UpgradeChecks, CombineWithTheLaterFailureOverTheEarlier) {
    const Recipe right, product{.product = 0x1a2c}, sum{.checksum_flip = 0x80000000},
        product_and_sum{.product = 0x1a2c, .checksum_flip = 1};
    const std::tuple<const char *, Recipe, uint32_t, int> cases[] = {
        {"all right", right, 0, 0},
        {"product", product, 0, -1},
        {"size over product", product, 1, -3},
        {"checksum over product", product_and_sum, 0, -2},
        {"checksum over size", sum, 1, -2},
        {"a policy", {ap::policy_magic, 4}, 0, -1},
        {"a whole flash", {ap::flash_magic, 0}, 0, -1},
    };
    for (const auto &[what, recipe, too_much, expected] : cases) {
        SCOPED_TRACE(what);
        put_image("in front" + image_of(payload_of(bank_size + too_much), recipe));
        int result = 1;
        const std::string printed = printed_by([&] { result = combined(8); });
        EXPECT_EQ(result, expected);
        EXPECT_THAT(printed,
                    HasSubstr("] offset 8, size " + std::to_string(bank_size + too_much + 64) + ", fwtype = "));
        EXPECT_THAT(printed, HasSubstr("] ret = " + std::to_string(expected) + "\n"));
    }
    EXPECT_EQ(flash::count(Operation::erase) + flash::count(Operation::write), 0U);
    put_image(image_of(payload_of(5000)));
    for (const int more : {-1, 1}) EXPECT_EQ(combined(0, more), -2) << "a size that is one off";
}

TEST_F(UpgradeChecks, TakeImagesOfMkimage) {
    write_text("/tmp/payload", payload_of(70001));
    store.values = {{"fw.profile.type", "0a1b2c3d"}};
    const std::pair<std::string, int> cases[] = {
        {"\x02...\x0a\x1b\x2c\x3d", 0}, {"\x02...\x0a\x1b\x2c\x3e", -1}, {"\x04...\x0a\x1b\x2c\x3d", -1}};
    for (const auto &[name, expected] : cases) {
        const std::string command = "mkimage -A mips -O linux -T kernel -C lzma -a 0x80000000 -e 0x80000000 -n '" +
                                    name + " firmware' -d /tmp/payload /tmp/upload.img > /dev/null";
        ASSERT_EQ(system(command.c_str()), 0);
        EXPECT_EQ(combined(), expected);
    }
}

TEST_F(UpgradeChecks, TellFileSizes) {
    for (const off_t size : {off_t{0}, off_t{5}, off_t{INT32_MAX}, off_t{INT32_MAX} + 1}) {
        put_image("");
        ASSERT_EQ(truncate(image, size), 0);
        EXPECT_EQ(get_image_file_size(image), std::min<off_t>(size, INT32_MAX));
    }
}

TEST_F(UpgradeChecks, LogToTheDiagnosticLogAsWell) {
    ASSERT_EQ(set_dbg_level("ap_common_so", 6), 1);
    EXPECT_THAT(printed_by([] { check_fw_type_ap("/tmp/none", 0); }),
                testing::ContainsRegex("function entry!(.|\n)*failed to open /tmp/none\n(.|\n)*function exit!"));
    set_dbg_level("ap_common_so", 0);
    EXPECT_THAT(read_text("/var/debug.ap_common_so.log"), HasSubstr("failed to open /tmp/none"));
}

}  // namespace
