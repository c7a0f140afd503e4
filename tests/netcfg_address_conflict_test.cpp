// netcfg_address_conflict_test.cpp: the list of served subnets, the search for an overlap, and the proposed address,
// over a store in memory; stepping to the next subnet can be made to fail or to stand still.

#include <arpa/inet.h>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "applatform/interfaces.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

using test::printed_by;
using testing::HasSubstr;

static enum { steps, fails, stands_still } stepping;
static int step_count;

// The address that follows in the next subnet, in host order.
int ifaddrs_ip_increase(const char *ip, const char *mask, char *out, int) {
    ++step_count;
    if (stepping == fails) return -1;
    const uint32_t size = stepping == steps ? ~ntohl(inet_addr(mask)) + 1 : 0;
    const in_addr next{htonl(ntohl(inet_addr(ip)) + size)};
    return inet_ntop(AF_INET, &next, out, 16) == nullptr ? -1 : 0;
}

namespace {

constexpr char mask24[] = "255.255.255.0", lan_ip[] = "lan.ip", lan_mask[] = "lan.mask", portal[] = "lan.portal_ip",
               pptp[] = "pptp.ser.pptpdserver", vlans[] = "vlan.tag.listnum";

class AddressConflict : public testing::Test {
protected:
    void SetUp() override {
        test::store.values.clear();
        stepping = steps;
        step_count = 0;
    }
    static std::vector<std::string> listed() {
        conflict_record list[100];
        std::memset(list, 'x', sizeof list);
        std::vector<std::string> lines;
        for (int i = 0, count = check_get_conflict_ip_list(list); i < count; ++i)
            lines.push_back(std::to_string(list[i].type) + " " + list[i].ip + "/" + list[i].mask + " " + list[i].tag);
        return lines;
    }
    conflict_record conflict{7, "", "", ""};
    char new_ip[16] = "before";
};

TEST_F(AddressConflict, ListsWhatIsServedInOrder) {
    EXPECT_THAT(listed(), testing::IsEmpty());
    test::store.values = {{"l2tp.ser.l2tpdserver", "10.6.0.1"},
                          {pptp, "10.5.0.1"},
                          {vlans, "2"},
                          {"vlan.tag.list1", "1;1;5;name;10.0.0.1;255.255.255.0;x"},
                          {"vlan.tag.list2", "1;1;no number"},
                          {"pppoeserver.info", "1;10.3.0.1;x"},
                          {"wl.guest.dhcps_ip", "10.2.0.1"},
                          {"wl.guest.dhcps_mask", "255.255.0.0"},
                          {portal, "10.1.0.1"},
                          {lan_ip, "192.168.100.100.and.more"}};
    EXPECT_THAT(listed(),
                testing::ElementsAre("0 192.168.100.100/ ", "1 10.1.0.1/255.255.255.0 ", "2 10.2.0.1/255.255.0.0 ",
                                     "3 10.3.0.1/255.255.255.0 ", "4 10.0.0.1/255.255.255.0 1", "4 / 2",
                                     "5 10.5.0.1/255.255.255.0 ", "6 10.6.0.1/255.255.255.0 "));
    test::store.values["pppoeserver.info"] = ";10.3.0.1";
    EXPECT_EQ(listed()[3], "3 /255.255.255.0 ") << "present, but not read";
}

TEST_F(AddressConflict, KeepsAtMostAHundredSubnetsAndDoesNotSearchSoMany) {
    const struct {
        const char *count;
        size_t listed;
        int result;
    } cases[] = {{"98", 99, 1}, {"99", 100, 0}, {"100", 100, 0}, {"2147483647", 100, 0}, {"-1", 1, 1}};
    test::store.values[pptp] = "10.0.0.1";
    for (const auto &c : cases) {
        SCOPED_TRACE(c.count);
        test::store.values[vlans] = c.count;
        EXPECT_EQ(listed().size(), c.listed);
        EXPECT_THAT(printed_by([&] { EXPECT_EQ(check_ip_conflict("10.0.0.5", mask24, &conflict, new_ip), c.result); }),
                    HasSubstr(c.listed == 100 ? "max num is large." : ""));
    }
}

TEST_F(AddressConflict, FindsTheFirstOverlapAndProposesAFreeAddress) {
    const struct {
        const char *what, *ip, *mask, *lan_ip, *lan_mask, *portal, *pptp;
        int type;  // of the record; 7: none
        const char *proposal;
    } cases[] = {
        {"LAN", "10.0.0.100", mask24, "10.0.0.1", mask24, "10.9.0.1", "10.9.1.1", 0, "10.0.1.1"},
        {"free", "10.0.1.100", mask24, "10.0.0.1", mask24, "10.9.0.1", "10.9.1.1", 7, "before"},
        {"wider candidate", "10.0.0.5", "255.0.0.0", "10.1.1.1", mask24, "10.9.0.1", "10.9.1.1", 0, "11.1.1.1"},
        {"wider LAN", "10.0.0.5", mask24, "10.1.1.1", "255.0.0.0", "9.9.0.1", "9.9.1.1", 0, "11.1.1.1"},
        {"portal", "10.9.0.9", mask24, "10.0.0.1", mask24, "10.9.0.1", "10.9.2.1", 1, "10.9.1.1"},
        {"the next are served too", "10.0.0.9", mask24, "10.0.0.1", mask24, "10.0.1.1", "10.0.2.1", 0, "10.0.3.1"},
        {"over a wide one", "10.0.0.9", mask24, "10.0.1.1", "255.255.0.0", "10.0.0.1", "10.1.0.1", 0, "10.2.1.1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::store.values = {{lan_ip, c.lan_ip}, {lan_mask, c.lan_mask}, {portal, c.portal}, {pptp, c.pptp}};
        conflict.type = 7;
        std::strcpy(new_ip, "before");
        EXPECT_EQ(check_ip_conflict(c.ip, c.mask, &conflict, new_ip), c.type == 7 ? 0 : 1);
        EXPECT_EQ(conflict.type, c.type);
        EXPECT_STREQ(new_ip, c.proposal);
    }
}

TEST_F(AddressConflict, EndsWhenNoStepLeavesTheSubnet) {
    test::store.values = {{lan_ip, "192.168.0.1"}, {lan_mask, mask24}};
    stepping = fails;
    EXPECT_EQ(check_ip_conflict("192.168.0.9", mask24, &conflict, new_ip), 1);
    EXPECT_STREQ(new_ip, "before");
    stepping = stands_still;
    EXPECT_EQ(check_ip_conflict("192.168.0.9", mask24, &conflict, new_ip), 1);
    EXPECT_STREQ(new_ip, "192.168.0.1");
    EXPECT_GT(step_count, 100);
}

TEST_F(AddressConflict, RefusesMissingArguments) {
    conflict_record records[2] = {{0, "10.0.0.1", "255.0.0.0", ""}, {}};
    std::memset(records[1].ip, '1', sizeof records[1].ip + sizeof records[1].mask);  // no end within the fields
    const std::pair<const char *, std::function<bool()>> cases[] = {
        {"arg is null.", [&] { return check_get_conflict_ip_list(nullptr) == 0; }},
        {"arg is null.", [&] { return check_ip_conflict(nullptr, mask24, records, new_ip) == 2; }},
        {"arg is null.", [&] { return check_ip_conflict("1.2.3.4", nullptr, records, new_ip) == 2; }},
        {"set is invalid.", [&] { return check_ip_conflict("1.2.3.4", mask24, nullptr, new_ip) == 2; }},
        {"NewIp is invalid.", [&] { return check_ip_conflict("1.2.3.4", mask24, records, nullptr) == 2; }},
        {"arg is null.", [&] { return check_conflict_with_ip_set(nullptr, mask24, records, 1) == 100; }},
        {"arg is null.", [&] { return check_conflict_with_ip_set("1.2.3.4", mask24, nullptr, 100) == 100; }},
        {"max num is large.", [&] { return check_conflict_with_ip_set("10.2.3.4", mask24, records, 100) == 100; }},
        {"", [&] { return check_conflict_with_ip_set("10.2.3.4", mask24, records, 2) == 0; }},
        {"", [&] { return check_conflict_with_ip_set("11.2.3.4", mask24, records, 2) == 2; }},
    };
    for (const auto &c : cases) EXPECT_THAT(printed_by([&] { EXPECT_TRUE(c.second()); }), HasSubstr(c.first));
}

}  // namespace
