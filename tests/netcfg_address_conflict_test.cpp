// netcfg_address_conflict_test.cpp: the list of served subnets, the search for an overlap, and the proposed address,
// over a store in memory; stepping to the next subnet can be made to fail or to stand still.

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

#include "applatform/config_store.h"
#include "applatform/interfaces.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"

using testing::HasSubstr;
using Keys = std::map<std::string, std::string>;

static Keys store;
static enum { steps, fails, stands_still } stepping;
static int step_count;

int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    return found == store.end() ? 0 : (std::memcpy(value, found->second.c_str(), found->second.size() + 1), 1);
}

// The address that follows in the next subnet, in host order.
int ifaddrs_ip_increase(const char *ip, const char *mask, char *out, int) {
    ++step_count;
    if (stepping == fails) return -1;
    const uint32_t size = stepping == steps ? ~ntohl(inet_addr(mask)) + 1 : 0;
    const in_addr next{htonl(ntohl(inet_addr(ip)) + size)};
    return inet_ntop(AF_INET, &next, out, 16) == nullptr ? -1 : 0;
}

namespace {

constexpr char mask24[] = "255.255.255.0";

class AddressConflict : public testing::Test {
protected:
    void SetUp() override {
        store.clear();
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
    static void add_vlans(int count, const char *entry = "1;1;5;name;10.0.0.1;255.255.255.0;x") {
        store["vlan.tag.listnum"] = std::to_string(count);
        for (int i = 1; i <= count; ++i) store["vlan.tag.list" + std::to_string(i)] = entry;
    }
};

TEST_F(AddressConflict, ListsWhatIsServedInOrder) {
    EXPECT_TRUE(listed().empty());
    add_vlans(2);
    store["vlan.tag.list2"] = "1;1;no number";
    store.insert({{"l2tp.ser.l2tpdserver", "10.6.0.1"},
                  {"pptp.ser.pptpdserver", "10.5.0.1"},
                  {"pppoeserver.info", "1;10.3.0.1;x"},
                  {"wl.guest.dhcps_ip", "10.2.0.1"},
                  {"wl.guest.dhcps_mask", "255.255.0.0"},
                  {"lan.portal_ip", "10.1.0.1"},
                  {"lan.ip", "192.168.100.100.and.more"}});
    EXPECT_THAT(listed(),
                testing::ElementsAre("0 192.168.100.100/ ", "1 10.1.0.1/255.255.255.0 ", "2 10.2.0.1/255.255.0.0 ",
                                     "3 10.3.0.1/255.255.255.0 ", "4 10.0.0.1/255.255.255.0 1", "4 / 2",
                                     "5 10.5.0.1/255.255.255.0 ", "6 10.6.0.1/255.255.255.0 "));
    store["pppoeserver.info"] = ";10.3.0.1";
    EXPECT_EQ(listed()[3], "3 /255.255.255.0 ") << "present, but not read";
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(check_get_conflict_ip_list(nullptr), 0); }), HasSubstr("arg is null."));
}

TEST_F(AddressConflict, KeepsAtMostAHundredSubnetsAndDoesNotSearchSoMany) {
    const struct {
        const char *count;
        size_t listed;
        int result;
    } cases[] = {{"99", 99, 1}, {"100", 100, 0}, {"101", 100, 0}, {"2147483647", 100, 0}, {"-1", 0, 0}};
    add_vlans(101);
    store["pptp.ser.pptpdserver"] = "10.0.0.1";
    for (const auto &c : cases) {
        SCOPED_TRACE(c.count);
        store["vlan.tag.listnum"] = c.count;
        EXPECT_EQ(listed().size(), std::min<size_t>(c.listed + 1, 100));
        store.erase("pptp.ser.pptpdserver");
        conflict_record conflict{};
        char new_ip[16] = "";
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(check_ip_conflict("10.0.0.5", mask24, &conflict, new_ip), c.result); });
        EXPECT_EQ(printed.find("max num is large.") != std::string::npos, c.listed == 100);
        store["pptp.ser.pptpdserver"] = "10.0.0.1";
    }
}

TEST_F(AddressConflict, FindsTheFirstOverlapAndProposesAFreeAddress) {
    const struct {
        const char *what, *ip, *mask, *lan_ip, *lan_mask, *portal, *pptp;
        int result, type;
        const char *proposal;
    } cases[] = {
        {"LAN", "192.168.0.100", mask24, "192.168.0.1", mask24, nullptr, nullptr, 1, 0, "192.168.1.1"},
        {"free", "192.168.1.100", mask24, "192.168.0.1", mask24, nullptr, nullptr, 0, 7, "before"},
        {"wider candidate", "10.0.0.5", "255.0.0.0", "10.1.1.1", mask24, nullptr, nullptr, 1, 0, "11.1.1.1"},
        {"wider LAN", "10.0.0.5", mask24, "10.1.1.1", "255.0.0.0", nullptr, nullptr, 1, 0, "11.1.1.1"},
        {"portal", "172.16.0.9", mask24, "192.168.0.1", mask24, "172.16.0.1", nullptr, 1, 1, "172.16.1.1"},
        {"the next is served too", "192.168.0.9", mask24, "192.168.0.1", mask24, "192.168.1.1", "192.168.2.1", 1, 0,
         "192.168.3.1"},
        {"over a wide one", "192.168.0.9", mask24, "192.168.1.1", "255.255.0.0", "192.168.0.1", "192.169.0.1", 1, 0,
         "192.170.1.1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        store = {{"lan.ip", c.lan_ip}, {"lan.mask", c.lan_mask}};
        if (c.portal != nullptr) store["lan.portal_ip"] = c.portal;
        if (c.pptp != nullptr) store["pptp.ser.pptpdserver"] = c.pptp;
        conflict_record conflict{7, "", "", ""};
        char new_ip[16] = "before";
        EXPECT_EQ(check_ip_conflict(c.ip, c.mask, &conflict, new_ip), c.result);
        EXPECT_EQ(conflict.type, c.type);
        EXPECT_STREQ(new_ip, c.proposal);
    }
}

TEST_F(AddressConflict, EndsWhenNoStepLeavesTheSubnet) {
    store = {{"lan.ip", "192.168.0.1"}, {"lan.mask", mask24}};
    conflict_record conflict{};
    char new_ip[16] = "before";
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
    char new_ip[16];
    const struct {
        const char *text;
        std::function<int()> call;
        int result;
    } cases[] = {
        {"arg is null.", [&] { return check_ip_conflict(nullptr, mask24, records, new_ip); }, 2},
        {"arg is null.", [&] { return check_ip_conflict("1.2.3.4", nullptr, records, new_ip); }, 2},
        {"set is invalid.", [&] { return check_ip_conflict("1.2.3.4", mask24, nullptr, new_ip); }, 2},
        {"NewIp is invalid.", [&] { return check_ip_conflict("1.2.3.4", mask24, records, nullptr); }, 2},
        {"arg is null.", [&] { return check_conflict_with_ip_set(nullptr, mask24, records, 1); }, 100},
        {"arg is null.", [&] { return check_conflict_with_ip_set("1.2.3.4", mask24, nullptr, 1); }, 100},
        {"max num is large.", [&] { return check_conflict_with_ip_set("10.2.3.4", mask24, records, 100); }, 100},
        {"", [&] { return check_conflict_with_ip_set("10.2.3.4", mask24, records, 2); }, 0},
        {"", [&] { return check_conflict_with_ip_set("11.2.3.4", mask24, records, 2); }, 2},
        {"", [&] { return check_conflict_with_ip_set("10.2.3.4", mask24, records, 0); }, 0},
    };
    for (const auto &c : cases)
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(c.call(), c.result); }), HasSubstr(c.text));
}

}  // namespace
