// The request channel to the portal's kernel module, over real netlink sockets.

#include <array>
#include <thread>
#include <unistd.h>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"

namespace {

using test::Bytes;
using testing::ContainsRegex;
using testing::MatchesRegex;

class KernelLink : public testing::Test {
protected:
    void SetUp() override {
        if (!module.fd) GTEST_SKIP() << "no user-space netlink sockets here";
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 1);
        test::commands.clear();
    }

    // Answers the next request with `payload` while `request` runs; what the module saw.
    template <typename Request> Bytes answered(const Bytes &payload, Request request) const {
        Bytes seen;
        std::thread answerer([&] {
            uint32_t sender = 0;
            seen = module.next(sender);
            module.answer(sender, payload);
        });
        request();
        answerer.join();
        return seen;
    }

    test::PortalModule module;
    Bytes data = Bytes(40000);
};

Bytes header_of(uint32_t length, uint16_t type) {
    Bytes header(16);
    ap::store_le(header.data(), length);
    ap::store_le(header.data() + 4, type);
    ap::store_le(header.data() + 6, uint16_t{1});
    ap::store_le(header.data() + 12, static_cast<uint32_t>(getpid()));
    return header;
}

Bytes request_with(uint32_t size, uint16_t type, const uint8_t *payload, size_t length) {
    Bytes message = header_of(size, type);
    message.insert(message.end(), payload, payload + length);
    message.resize(size);
    return message;
}

TEST_F(KernelLink, EachCommandSendsItsPayloadInABufferOfOneSize) {
    const struct {
        unsigned int command;
        uint16_t type;
        size_t length;  // 0: nothing is sent
    } cases[] = {{0, 20, 68},  {1, 20, 68},  {2, 0, 0},    {3, 21, 112}, {4, 21, 112}, {5, 22, 20736},
                 {6, 23, 312}, {7, 24, 112}, {8, 28, 112}, {9, 0, 0},    {10, 0, 0},   {0xFFFFFFFF, 0, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        test::commands.clear();
        EXPECT_EQ(tpi_ap_portal_handle(c.command, data.data()), 0);
        const Bytes expected = c.length == 0 ? Bytes() : request_with(30720, c.type, data.data(), c.length);
        EXPECT_TRUE(test::received_by(module.fd.get()) == expected);
        EXPECT_EQ(test::commands, c.command == 1 ? std::vector<std::string>{"insmod /lib/modules/ap_portal.ko"}
                                                 : std::vector<std::string>());
    }
}

TEST_F(KernelLink, AnOnlineUserIsAsLongAsItsData) {
    for (const int length : {0, 1, 112, 30704, 30705, -1}) {
        SCOPED_TRACE(length);
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(ap_portal_online_user_add(data.data(), length), 0); });
        const auto size = static_cast<size_t>(length);
        const bool fits = length >= 0 && length <= 30704;
        const Bytes expected = fits ? request_with(static_cast<uint32_t>(16 + length), 29, data.data(), size) : Bytes();
        EXPECT_TRUE(test::received_by(module.fd.get()) == expected);
        EXPECT_THAT(printed, MatchesRegex(fits ? ""
                                               : "Debug->src/ap_portal/ap_portal.c: [a-z_]*\\([0-9]+\\)--"
                                                 "No message need to be send\n"));
    }
    EXPECT_THAT(test::printed_by([&] { tpi_ap_portal_handle(0, nullptr); }),
                ContainsRegex("No message need to be send\n"));
}

TEST_F(KernelLink, AnswersAreBoundedByWhatArrived) {
    const struct {
        const char *what;
        uint32_t announced;
        size_t count_bytes, record_bytes;
        int node_result;
        unsigned int node_count;
        int kick_result;
    } cases[] = {
        {"nobody", 0, 4, 0, 0, 0, 255},
        {"one client", 1, 4, 112, 0, 1, 0},
        {"more bytes than announced", 1, 4, 224, 0, 1, 0},
        {"a record is missing", 3, 4, 224, 0, 2, 0},
        {"half a record", 2, 4, 168, 0, 1, 0},
        {"no whole record", 1, 4, 111, 0, 0, 255},
        {"as many as fit", 274, 4, size_t{274} * 112, 0, 274, 0},
        {"a count of all ones", UINT32_MAX, 4, 112, 0, 1, 0},
        {"three bytes of a count", 1, 3, 0, 255, 77, 255},
        {"a header alone", 1, 0, 0, 255, 77, 255},
    };
    const unsigned char macs[2][6] = {{2, 0, 0, 0, 0, 1}, {2, 0, 0, 0, 0, 2}};
    const int descriptors = test::open_descriptors();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes payload(4);
        ap::store_le(payload.data(), c.announced);
        payload.resize(c.count_bytes);
        payload.insert(payload.end(), data.begin(), data.begin() + static_cast<long>(c.record_bytes));
        const auto check_records = [&] {
            ASSERT_EQ(portal_info != nullptr, c.node_count != 0 && c.node_count != 77);
            if (portal_info == nullptr) return;
            EXPECT_EQ(std::memcmp(portal_info, data.data(), size_t{112} * c.node_count), 0);
            std::free(std::exchange(portal_info, nullptr));
        };

        unsigned int count = 77;
        const Bytes asked = answered(payload, [&] { EXPECT_EQ(tpi_ap_portal_get_node_info(&count), c.node_result); });
        EXPECT_TRUE(asked == request_with(30720, 27, nullptr, 0));
        EXPECT_EQ(count, c.node_count);
        check_records();

        const Bytes kick = answered(payload, [&] { EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, 26), c.kick_result); });
        const uint8_t kicked[] = {2, 0, 0, 0, 2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2};
        EXPECT_TRUE(kick == request_with(30720, 26, kicked, sizeof kicked));
        check_records();
    }
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST_F(KernelLink, AKickHoldsAsManyMacsAsTheRequestHasRoomFor) {
    const std::vector<std::array<unsigned char, 6>> macs(5117, {2, 0, 0, 0, 0, 9});
    const auto *first = reinterpret_cast<const unsigned char(*)[6]>(macs.data());
    const Bytes seen = answered(Bytes(4), [&] { EXPECT_EQ(tpi_ap_portal_del_mac(5116, first, 25), 255); });
    ASSERT_EQ(seen.size(), 30720U);
    EXPECT_EQ(ap::le32(seen.data() + 16), 5116U);
    EXPECT_EQ(seen[16 + 4 + 5116 * 6 - 1], 9);
    EXPECT_EQ(tpi_ap_portal_del_mac(5117, first, 25), 255);
    EXPECT_TRUE(test::received_by(module.fd.get()).empty());
}

TEST_F(KernelLink, ASilentModuleIsGivenUpAfterTwoSeconds) {
    const test::FakeClock clock;
    unsigned int count = 77;
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(tpi_ap_portal_get_node_info(&count), 255); }), "");
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    EXPECT_EQ(tpi_ap_portal_del_mac(0, nullptr, 26), 255);
    EXPECT_EQ(clock.elapsed_ms(), 4000);
    EXPECT_EQ(count, 77U);
}

TEST_F(KernelLink, AMissingModuleIsReportedWhereTheRequestWasMade) {
    module.fd.reset();
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(tpi_ap_portal_handle(0, data.data()), 0); }),
                MatchesRegex("portal_talking_with_kernel,[0-9]+:Fail to send out msg:Connection refused\\(111\\)\n"));
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(tpi_ap_portal_del_mac(0, nullptr, 26), 255); }),
              "Fail to send out msg:Connection refused(111)\n");
}

}  // namespace
