// The request channel to the portal's kernel module, over real netlink sockets.

#include <array>
#include <dlfcn.h>
#include <functional>
#include <poll.h>
#include <unistd.h>

#include "platform/host/portal_netlink.h"
#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"

namespace {

std::function<int()> while_waiting;  // what the wait gives, unless it gives 0
std::vector<int> waits_ms;

}  // namespace

extern "C" int poll(pollfd *waiting, nfds_t count, int timeout_ms) {
    static const auto next = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
    waits_ms.push_back(timeout_ms);
    const int result = while_waiting ? while_waiting() : 0;
    return result != 0 ? result : next(waiting, count, timeout_ms);
}

namespace {

using test::Bytes;
using test::joined;
using testing::EndsWith;

const auto no_message = test::line("Debug", "ap_portal", "portal_talking_with_kernel", "No message need to be send\n");

class KernelLink : public testing::Test {
protected:
    void SetUp() override {
        if (!module) GTEST_SKIP() << "no user-space netlink sockets here";
    }
    // The answer to `request` is `payload`; what the module saw.
    Bytes answered(const Bytes &payload, const std::function<void()> &request) const {
        Bytes seen;
        while_waiting = [&] {
            return seen = test::answer_next<sockaddr_nl>(module.get(), joined(Bytes(16), payload)), 0;
        };
        request();
        while_waiting = nullptr;
        return seen;
    }

    ap::UniqueFd module = ap::host::open_portal_module();
    const Bytes data = test::counted(40000);
};

Bytes request_with(size_t size, uint16_t type, const Bytes &payload = {}) {
    Bytes message(size);
    ap::store_le(message.data(), static_cast<uint32_t>(size));
    ap::store_le(message.data() + 4, type);
    ap::store_le(message.data() + 6, uint16_t{1});
    ap::store_le(message.data() + 12, static_cast<uint32_t>(getpid()));
    test::put(message, 16, payload);
    return message;
}

TEST_F(KernelLink, EachCommandSendsItsPayloadInABufferOfOneSize) {
    const struct {
        unsigned int command;
        uint16_t type;
        size_t length;  // 0: nothing is sent
    } cases[] = {{0, 20, 68},  {1, 20, 68},  {2, 0, 0},    {3, 21, 112}, {4, 21, 112},      {5, 22, 20736},
                 {6, 23, 312}, {7, 24, 112}, {8, 28, 112}, {9, 0, 0},    {0xFFFFFFFF, 0, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        test::commands.clear();
        EXPECT_EQ(tpi_ap_portal_handle(c.command, data.data()), 0);
        EXPECT_TRUE(test::received_by(module.get()) ==
                    (c.length == 0 ? Bytes() : request_with(30720, c.type, test::counted(c.length))));
        EXPECT_EQ(test::commands, std::vector<std::string>(c.command == 1 ? 1 : 0, "insmod /lib/modules/ap_portal.ko"));
    }
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(tpi_ap_portal_handle(0, nullptr), 0); }), no_message);
}

TEST_F(KernelLink, AnOnlineUserIsAsLongAsItsData) {
    for (const int length : {0, 1, 30704, 30705, -1}) {
        SCOPED_TRACE(length);
        const bool fits = length >= 0 && length <= 30704;
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(ap_portal_online_user_add(data.data(), length), fits ? 0 : 255); });
        const size_t size = fits ? static_cast<size_t>(length) : 0;
        EXPECT_TRUE(test::received_by(module.get()) ==
                    (fits ? request_with(16 + size, 29, test::counted(size)) : Bytes()));
        EXPECT_THAT(printed, fits ? "" : no_message);
    }
}

TEST_F(KernelLink, AnAnswersRecordsAreHandedOver) {
    const unsigned char macs[2][6] = {{2, 0, 0, 0, 0, 1}, {2, 0, 0, 0, 0, 2}};
    const int descriptors = test::open_descriptors();
    for (const uint8_t count : Bytes{0, 2}) {
        SCOPED_TRACE(count);
        const Bytes records = test::counted(size_t{112} * count), answer = joined({count, 0, 0, 0}, records);
        const auto taken = [&] {
            const ap::HeapPtr<uint8_t> kept(static_cast<uint8_t *>(std::exchange(portal_info, nullptr)));
            return kept ? Bytes(kept.get(), kept.get() + records.size()) : Bytes();
        };
        unsigned int found = 77;
        const Bytes asked = answered(answer, [&] { EXPECT_EQ(tpi_ap_portal_get_node_info(&found), 0); });
        EXPECT_TRUE(asked == request_with(30720, 27));
        EXPECT_EQ(found, count);
        EXPECT_TRUE(taken() == records);
        const Bytes kick =
            answered(answer, [&] { EXPECT_EQ(tpi_ap_portal_del_mac(2, macs, 26), count == 0 ? 255 : 0); });
        EXPECT_TRUE(kick == request_with(30720, 26, {2, 0, 0, 0, 2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2}));
        EXPECT_TRUE(taken() == records);
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
    EXPECT_TRUE(test::received_by(module.get()).empty());
}

TEST_F(KernelLink, ASilentModuleIsGivenUpAfterTwoSecondsInAll) {
    test::FakeClock clock;
    unsigned int count = 77;
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(tpi_ap_portal_get_node_info(&count), 255); }), "");
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    EXPECT_EQ(count, 77U);
    waits_ms.clear();
    while_waiting = [&] { return clock.advance_ms(600), errno = EINTR, -1; };
    EXPECT_EQ(tpi_ap_portal_del_mac(0, nullptr, 26), 255);
    while_waiting = nullptr;
    EXPECT_EQ(waits_ms, (std::vector<int>{2000, 1400, 800, 200}));
}

TEST_F(KernelLink, AMissingModuleIsReportedWhereTheRequestWasMade) {
    module.reset();
    const std::string line = "Fail to send out msg:Connection refused(" + std::to_string(ECONNREFUSED) + ")\n";
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(tpi_ap_portal_handle(0, data.data()), 0); }),
                testing::AllOf(testing::StartsWith("portal_talking_with_kernel,"), EndsWith(":" + line)));
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(ap_portal_online_user_add(data.data(), 4), 255); }), EndsWith(line));
    EXPECT_EQ(test::printed_by([] { EXPECT_EQ(tpi_ap_portal_del_mac(0, nullptr, 26), 255); }), line);
}

}  // namespace
