// netcfg_lan_change_test.cpp: what a change of the LAN's address or mask does to every stored rule, over a store in
// memory that notes the writes.

#include <arpa/inet.h>
#include <climits>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"

using Keys = std::map<std::string, std::string>;

static Keys store;
static std::vector<std::string> written, logged;

int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    return found == store.end() ? 0 : (std::memcpy(value, found->second.c_str(), found->second.size() + 1), 1);
}
int SetValue(const char *key, const char *value) {
    written.emplace_back(key);
    store[key] = value;
    return 1;
}
void log_debug_print(const char *function, int, int level, const char *module, const char *format, ...) {
    logged.push_back(std::string(function) + " " + std::to_string(level) + " " + module + " " + format);
}

namespace {

constexpr char mask24[] = "255.255.255.0";

std::string mask_text(int prefix) {
    const in_addr mask{htonl(UINT32_MAX << (32 - prefix))};
    return inet_ntoa(mask);
}

class LanChange : public testing::Test {
protected:
    void SetUp() override { begin({}); }
    static void begin(const Keys &keys) {
        store = keys;
        written.clear();
        logged.clear();
    }
    // The device leaves 192.168.0.1/24 for 192.168.5.1/24.
    static void change() { check_change_lanip_handle("192.168.5.1", mask24, "192.168.0.1", mask24); }
    static Keys with_list(const std::string &name, const std::string &count, const std::string &entry) {
        return {{name + "num", count}, {name + "1", entry}};
    }
};

TEST_F(LanChange, MovesTheHostOfEveryListAndLeavesWhatDoesNotParse) {
    const std::string longest = "192.168.0.9;" + std::string(511 - 12, 'x');
    const struct {
        const char *what, *list;
        std::string entry, expected;
    } cases[] = {
        {"source NAT", "adv.snat.list", "192.168.0.23;x", "192.168.5.23;x"},
        {"another network's host", "adv.snat.list", "10.1.2.3;x;y", "192.168.5.3;x;y"},
        {"log server", "adv.logs.list", "192.168.0.7;514;1", "192.168.5.7;514;1"},
        {"virtual server", "adv.virtualser.list", "1;80;8080;192.168.0.9;tcp;2", "1;80;8080;192.168.5.9;tcp;2"},
        {"bandwidth", "bandwidth.mode.list", "a;b;c;192.168.0.10-192.168.0.20;5;6",
         "a;b;c;192.168.5.10-192.168.5.20;5;6"},
        {"binding", "security.ipbind.list", "1;name;192.168.0.4;aa:bb", "1;name;192.168.5.4;aa:bb"},
        {"the last word ends at a blank", "adv.snat.list", "192.168.0.23; two words", "192.168.5.23;two"},
        {"511 characters", "adv.snat.list", longest, "192.168.5.9;" + longest.substr(12)},
        {"512 characters lose the last", "adv.snat.list", longest + "y", "192.168.5.9;" + longest.substr(12)},
        {"2307 characters", "adv.snat.list", longest + std::string(2307 - 511, 'y'),
         "192.168.5.9;" + longest.substr(12)},
        {"a longer address cuts the end", "adv.snat.list", "10.0.0.9;" + std::string(502, 'z'),
         "192.168.5.9;" + std::string(499, 'z')},
        // what stays
        {"empty", "adv.snat.list", "", ""},
        {"one field", "adv.snat.list", "192.168.0.23", "192.168.0.23"},
        {"an empty last field", "adv.snat.list", "192.168.0.23;", "192.168.0.23;"},
        {"an empty first field", "adv.snat.list", ";x", ";x"},
        {"no address", "adv.snat.list", "192.168.0.256;x", "192.168.0.256;x"},
        {"a name", "adv.logs.list", "loghost;514", "loghost;514"},
        {"four of five fields", "adv.virtualser.list", "1;80;8080;192.168.0.9", "1;80;8080;192.168.0.9"},
        {"an empty field between", "adv.virtualser.list", "1;;8080;192.168.0.9;tcp", "1;;8080;192.168.0.9;tcp"},
        {"no range", "bandwidth.mode.list", "a;b;c;192.168.0.10;5", "a;b;c;192.168.0.10;5"},
        {"half a range", "bandwidth.mode.list", "a;b;c;192.168.0.10-;5", "a;b;c;192.168.0.10-;5"},
        {"three of four fields", "security.ipbind.list", "1;name;192.168.0.4", "1;name;192.168.0.4"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        begin(with_list(c.list, "1", c.entry));
        change();
        EXPECT_EQ(store, with_list(c.list, "1", c.expected));
    }
}

TEST_F(LanChange, WalksFromTheFirstEntryToTheCountAndNoFurther) {
    const struct {
        const char *count;
        bool moves_1, moves_3;  // entry 2 is missing
    } cases[] = {{"3", true, true},   {"2", true, false},         {"0", false, false}, {"-1", false, false},
                 {"x", false, false}, {"2147483647", true, true}, {"", false, false},  {"99999999999999", true, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.count);
        begin(
            {{"adv.snat.listnum", c.count}, {"adv.snat.list1", "192.168.0.2;x"}, {"adv.snat.list3", "192.168.0.3;x"}});
        change();
        EXPECT_EQ(store["adv.snat.list1"], c.moves_1 ? "192.168.5.2;x" : "192.168.0.2;x");
        EXPECT_EQ(store["adv.snat.list3"], c.moves_3 ? "192.168.5.3;x" : "192.168.0.3;x");
        EXPECT_FALSE(store.contains("adv.snat.list2"));
    }
}

TEST_F(LanChange, KeepsTheHostPartUnderEveryMask) {
    for (int prefix = 8; prefix <= 30; ++prefix) {
        SCOPED_TRACE(prefix);
        const uint32_t host_part = 0x00345679 & (UINT32_MAX >> prefix);
        const in_addr old_host{htonl(0x0A000000 | host_part)}, moved_host{htonl(0xAC000000 | host_part)};
        begin(with_list("adv.snat.list", "1", std::string(inet_ntoa(old_host)) + ";x"));
        check_change_lanip_handle("172.0.0.1", mask_text(prefix).c_str(), "10.0.0.1", mask_text(prefix).c_str());
        EXPECT_EQ(store["adv.snat.list1"], std::string(inet_ntoa(moved_host)) + ";x");
    }
}

// The parts are added in the word as `inet_addr` gives it, so the sum carries into the next byte of the text.
TEST_F(LanChange, AddsThePartsWhenTheNewNetworkIsSmaller) {
    begin(with_list("adv.snat.list", "1", "10.0.252.5;x"));
    check_change_lanip_handle("192.168.5.1", mask24, "10.0.0.1", "255.255.0.0");
    EXPECT_EQ(store["adv.snat.list1"], "192.168.1.6;x");
}

TEST_F(LanChange, MovesDmzHostsAndTheManagerAndSwitchesOffWhatDoesNotFit) {
    const struct {
        const char *what, *address, *switch_key, *host, *new_mask, *moved, *enabled;
    } cases[] = {
        {"inside", "wan2.dmzip", "wan2.dmzen", "192.168.0.9", mask24, "192.168.5.9", "1"},
        {"the device itself", "wan1.dmzip", "wan1.dmzen", "192.168.0.1", mask24, "192.168.5.1", "0"},
        {"last inside", "wan1.dmzip", "wan1.dmzen", "192.168.0.127", "255.255.255.128", "192.168.5.127", "1"},
        {"first outside", "wan1.dmzip", "wan1.dmzen", "192.168.0.128", "255.255.255.128", "192.168.5.128", "0"},
        {"no host", "wan1.dmzip", "wan1.dmzen", "", mask24, "", "1"},
        {"beyond the WANs", "wan3.dmzip", "wan3.dmzen", "192.168.0.9", mask24, "192.168.0.9", "1"},
        {"manager", "lan.webip", "lan.webipen", "192.168.0.9", mask24, "192.168.5.9", "1"},
        {"manager at the device's address", "lan.webip", "lan.webipen", "192.168.0.1", mask24, "192.168.5.1", "1"},
        {"manager outside", "lan.webip", "lan.webipen", "192.168.0.200", "255.255.255.128", "192.168.5.200", "0"},
        {"no manager", "lan.webip", "lan.webipen", "0.0.0.0", mask24, "0.0.0.0", "1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        begin({{"wans.flag", "2"}, {c.address, c.host}, {c.switch_key, "1"}});
        check_change_lanip_handle("192.168.5.1", c.new_mask, "192.168.0.1", mask24);
        EXPECT_EQ(store[c.address], c.moved);
        EXPECT_EQ(store[c.switch_key], c.enabled);
    }
}

TEST_F(LanChange, RunsTheRulesInOrderAndNotesEachFunction) {
    begin({{"wans.flag", "1"},
           {"wan1.dmzip", "192.168.0.1"},
           {"wan1.dmzen", "1"},
           {"bandwidth.mode.listnum", "1"},
           {"bandwidth.mode.list1", "a;b;c;192.168.0.2-192.168.0.3;d"},
           {"adv.virtualser.listnum", "1"},
           {"adv.virtualser.list1", "a;b;c;192.168.0.4;d"},
           {"adv.snat.listnum", "1"},
           {"adv.snat.list1", "192.168.0.5;x"},
           {"adv.logs.listnum", "1"},
           {"adv.logs.list1", "192.168.0.6;x"},
           {"security.ipbind.listnum", "1"},
           {"security.ipbind.list1", "a;b;192.168.0.7;x"}});
    change();
    EXPECT_THAT(written,
                testing::ElementsAre("wan1.dmzip", "wan1.dmzen", "bandwidth.mode.list1", "adv.virtualser.list1",
                                     "adv.snat.list1", "adv.logs.list1", "security.ipbind.list1"));
    ASSERT_EQ(logged.size(), 2 + 2 * 7 + 1);
    EXPECT_EQ(logged.front(), "check_change_lanip_handle 6 common_so function entry!");
    EXPECT_EQ(logged[4], "check_lanip_change_sync_lan_control 2 common_so get mib cfg is fail.");
    EXPECT_EQ(logged[14], "check_lanip_change_sync_ipmac_bind 6 common_so function entry!")
        << testing::PrintToString(logged);
    EXPECT_EQ(logged.back(), "check_change_lanip_handle 6 common_so function exit!");
}

TEST_F(LanChange, LeavesRuleOneToTheGuestNetwork) {
    const Keys two = {{"bandwidth.mode.listnum", "2"},
                      {"bandwidth.mode.list1", "a;b;c;192.168.0.2-192.168.0.3;d"},
                      {"bandwidth.mode.list2", "a;b;c;192.168.0.4-192.168.0.5;d"}};
    for (const char *guest : {"1", "2", "0", ""}) {
        SCOPED_TRACE(guest);
        const bool kept = std::atoi(guest) != 0;
        begin(two);
        store["bandwidth.gst.en"] = guest;
        EXPECT_THAT(test::printed_by(change),
                    testing::MatchesRegex(
                        kept ? "check_lanip_change_sync_qos_list\\[[0-9]+\\] skip qos rule for wifi Guest\n" : ""));
        EXPECT_EQ(store["bandwidth.mode.list1"],
                  kept ? two.at("bandwidth.mode.list1") : "a;b;c;192.168.5.2-192.168.5.3;d");
        EXPECT_EQ(store["bandwidth.mode.list2"], "a;b;c;192.168.5.4-192.168.5.5;d");
    }
}

TEST_F(LanChange, DoesNothingForTheSameAddressOrBadArguments) {
    const Keys nat = with_list("adv.snat.list", "1", "192.168.0.23;x");
    const struct {
        const char *what, *new_ip, *new_mask, *old_ip, *old_mask;
    } cases[] = {
        {"the mask alone", "192.168.0.1", "255.255.0.0", "192.168.0.1", mask24},
        {"no new address", nullptr, mask24, "192.168.0.1", mask24},
        {"no old mask", "192.168.5.1", mask24, "192.168.0.1", nullptr},
        {"nonsense", "192.168.5", "mask", "192.168.0.1", mask24},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        begin(nat);
        check_change_lanip_handle(c.new_ip, c.new_mask, c.old_ip, c.old_mask);
        sys_change_lanip(c.new_ip, c.new_mask, c.old_ip, c.old_mask);
        EXPECT_EQ(store, nat);
    }
}

TEST_F(LanChange, OlderFormMovesLogServersThenBandwidth) {
    begin({{"adv.logs.listnum", "1"},
           {"adv.logs.list1", "192.168.0.6;x"},
           {"bandwidth.mode.listnum", "1"},
           {"bandwidth.mode.list1", "a;b;c;192.168.0.2-192.168.0.3;d"},
           {"adv.snat.listnum", "1"},
           {"adv.snat.list1", "192.168.0.5;x"}});
    sys_change_lanip("192.168.5.1", mask24, "192.168.0.1", mask24);
    EXPECT_THAT(written, testing::ElementsAre("adv.logs.list1", "bandwidth.mode.list1"));
}

// One pool, "1;office;START;END;GATEWAY;MASK;1440;DNS1;8.8.8.8".
std::string pool(const std::string &start, const std::string &end, const std::string &own, const std::string &mask) {
    return "1;office;" + start + ";" + end + ";" + own + ";" + mask + ";1440;" + own + ";8.8.8.8";
}

TEST_F(LanChange, MovesOrRefillsThePool) {
    const std::string slash30 = "255.255.255.252", slash16 = "255.255.0.0";
    const struct {
        const char *what, *new_ip;
        std::string new_mask, old_ip, old_mask, start, end, new_start, new_end;
    } cases[] = {
        {"address", "192.168.5.1", mask24, "192.168.0.1", mask24, "192.168.0.100", "192.168.0.200", "192.168.5.100",
         "192.168.5.200"},
        {"start is the device", "192.168.5.100", mask24, "192.168.0.1", mask24, "192.168.0.100", "192.168.0.200",
         "192.168.5.101", "192.168.5.200"},
        {"end is the device", "192.168.5.200", mask24, "192.168.0.1", mask24, "192.168.0.100", "192.168.0.200",
         "192.168.5.100", "192.168.5.199"},
        {"step over a byte", "192.168.5.255", slash16, "192.168.0.1", slash16, "192.168.5.255", "192.168.9.9",
         "192.168.6.0", "192.168.9.9"},
        {"mask wider", "10.0.0.1", slash16, "10.0.0.1", mask24, "10.0.0.100", "10.0.0.200", "10.0.0.2", "10.0.255.254"},
        {"device is last", "10.0.255.254", slash16, "10.0.255.254", mask24, "10.0.255.100", "10.0.255.200", "10.0.0.1",
         "10.0.255.253"},
        {"both", "172.16.0.9", slash30, "10.0.0.1", mask24, "10.0.0.100", "10.0.0.200", "172.16.0.10", "172.16.0.10"},
        {"neither", "10.0.0.1", mask24, "10.0.0.1", mask24, "10.0.0.100", "10.0.0.200", "10.0.0.100", "10.0.0.200"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const bool changed = c.new_ip != c.old_ip || c.new_mask != c.old_mask;
        begin({{"dhcps.list2", pool(c.start, c.end, c.old_ip, c.old_mask)}});
        check_lanip_change_sync_dhcps(inet_addr(c.new_ip), inet_addr(c.new_mask.c_str()), inet_addr(c.old_ip.c_str()),
                                      inet_addr(c.old_mask.c_str()), 2);
        EXPECT_EQ(store["dhcps.list2"], pool(c.new_start, c.new_end, c.new_ip, c.new_mask));
        EXPECT_EQ(store["dhcps.start"], changed ? c.new_start : "");
        EXPECT_EQ(store["dhcps.end"], changed ? c.new_end : "");
        EXPECT_EQ(store["dhcps.gw"], changed ? c.new_ip : "");
        EXPECT_EQ(store["dhcps.dns1"], changed ? c.new_ip : "");
        EXPECT_FALSE(store.contains("dhcps.mask"));
    }
}

TEST_F(LanChange, PoolKeepsItsMaskWhenOnlyTheAddressChanges) {
    begin({{"dhcps.list1", "1;;"},
           {"dhcps.list3", "007;a b;10.0.0.2;10.0.0.9;10.0.0.1;255.0.0.0;;1.1.1.1;2.2.2.2"},
           {"dhcps.list4", "7;a b;10.0.0.2;10.0.0.9;10.0.0.1;255.0.0.0;60;1.1.1.1;2.2.2.2"}});
    for (const unsigned number : {1U, 2U, 3U})
        check_lanip_change_sync_dhcps(inet_addr("10.9.9.1"), 0xff, inet_addr("10.0.0.1"), 0xff, number);
    EXPECT_TRUE(written.empty()) << "fewer than nine fields, or no entry";
    check_lanip_change_sync_dhcps(inet_addr("11.9.9.1"), inet_addr(mask24), inet_addr("10.0.0.1"), inet_addr(mask24),
                                  4);
    EXPECT_EQ(store["dhcps.list4"], "7;a b;11.9.9.2;11.9.9.9;11.9.9.1;255.0.0.0;60;11.9.9.1;2.2.2.2");
    EXPECT_THAT(written, testing::ElementsAre("dhcps.start", "dhcps.end", "dhcps.gw", "dhcps.dns1", "dhcps.list4"));
}

TEST_F(LanChange, MovesStaticLeasesWithPoolOneOnly) {
    const in_addr_t new_ip = inet_addr("192.168.5.1"), old_ip = inet_addr("192.168.0.1"), mask = inet_addr(mask24);
    const Keys leases = {{"dhcps.Staticnum", "3"},
                         {"dhcps.Staticip1", "192.168.0.9;aa:bb;pc"},
                         {"dhcps.Staticip2", "192.168.0.10"},
                         {"dhcps.Staticip3", "192.168.0.11;"}};
    begin(leases);
    check_lanip_change_sync_dhcps(new_ip, mask, old_ip, mask, 2);
    check_lanip_change_sync_dhcps(old_ip, inet_addr("255.255.0.0"), old_ip, mask, 1);
    EXPECT_EQ(store, leases);
    check_lanip_change_sync_dhcps(new_ip, mask, old_ip, mask, 1);
    EXPECT_EQ(store["dhcps.Staticip1"], "192.168.5.9;aa:bb;pc");
    EXPECT_EQ(store["dhcps.Staticip2"], "192.168.0.10");
    EXPECT_EQ(store["dhcps.Staticip3"], "192.168.5.11;");
}

TEST_F(LanChange, RebuildsTheOnlyPoolFromItsKeys) {
    begin({{"dhcps.en", "1"}, {"dhcps.start", "10.0.0.2"}, {"dhcps.leasetime", "1440"}, {"dhcps.dns2", "9.9.9.9"}});
    sys_change_lanip_dhcps("10.0.0.1", mask24, nullptr, nullptr);
    EXPECT_EQ(store["dhcps.list1"], "1;1;10.0.0.2;;10.0.0.1;255.255.255.0;1440;10.0.0.1;9.9.9.9");
    EXPECT_THAT(written, testing::ElementsAre("dhcps.gw", "dhcps.mask", "dhcps.dns1", "dhcps.list1", "dhcps.listnum"));
    store["dhcps.start"] = std::string(2307, '7');
    sys_change_dhcps_cfglist();
    EXPECT_EQ(store["dhcps.list1"].size(), 2307U);
}

TEST_F(LanChange, ReplacesOneFieldOfARule) {
    const std::string full = "a;" + std::string(2307 - 2, 'b');
    const struct {
        const char *what;
        std::string rule;
        const char *delimiters;
        int index;
        std::string item, expected;
    } cases[] = {
        {"first", "a;b;c", ";", 0, "xyz", "xyz;b;c"},
        {"shorter", "aaa;bbb;ccc", ";", 1, "x", "aaa;x;ccc"},
        {"last", "a;b;c", ";", 2, "x", "a;b;x"},
        {"beyond the last", "a;b;c", ";", 3, "x", "a;b;c"},
        {"removed", "a;b;c", ";", 1, "", "a;c"},
        {"last removed", "a;b;c", ";", 2, "", "a;b;"},
        {"delimiters in a row", ";;a;;b;", ";", 1, "x", ";;a;;x;"},
        {"several delimiters", "a-b;c", ";-", 2, "x", "a-b;x"},
        {"empty rule", "", ";", 0, "x", ""},
        {"negative", "a;b", ";", -1, "x", "a;b"},
        {"far beyond", "a;b", ";", INT_MAX, "x", "a;b"},
        {"2307 characters grow and are cut", full, ";", 0, "xx", "xx;" + full.substr(2, 2307 - 3)},
        {"the end of 2307 characters removed", full, ";", 1, "", "a;"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char rule[2308];
        std::strcpy(rule, c.rule.c_str());
        check_modify_item_in_rule(rule, c.delimiters, c.index, c.item.c_str());
        EXPECT_EQ(rule, c.expected);
    }
    begin({});
    char rule[2308] = "a;b";
    check_modify_item_in_rule(rule, ";", -1, "x");
    check_modify_item_in_rule(rule, ";", 0, nullptr);
    EXPECT_EQ(logged[1], "check_modify_item_in_rule 2 common_so index is error.");
    EXPECT_EQ(logged[4], "check_modify_item_in_rule 2 common_so arg is null.");
}

TEST_F(LanChange, JoinsNetworkAndHostNumber) {
    const struct {
        const char *ip, *mask;
        unsigned hostid;
        int result;
        const char *out;
    } cases[] = {{"192.168.5.77", mask24, 9, 0, "192.168.5.9"},
                 {"10.1.2.3", "255.0.0.0", 0x010203, 0, "10.1.2.3"},
                 {"192.168.5.1", mask24, 0x0209, 0, "192.168.7.9"},  // joined by or, however wide
                 {"1.2.3.4", "255.255.255.255", 0, 0, "1.2.3.4"},
                 {"nonsense", mask24, 9, -1, "before"},
                 {nullptr, mask24, 9, -1, "before"}};
    for (const auto &c : cases) {
        char out[16] = "before";
        EXPECT_EQ(check_get_new_ipaddr_by_hostid(c.ip, c.mask, c.hostid, out), c.result);
        EXPECT_STREQ(out, c.out);
    }
    EXPECT_EQ(check_get_new_ipaddr_by_hostid("1.2.3.4", mask24, 1, nullptr), -1);
}

TEST_F(LanChange, NamesTheModules) {
    const std::pair<unsigned, const char *> names[] = {{0, "DBG"},
                                                       {15, "QOS"},
                                                       {31, "BASE_INFO"},
                                                       {47, "VPN_IPSEC"},
                                                       {63, "SCHED_RESTART_WIFI"},
                                                       {72, "LLDPD"},
                                                       {73, "73"},
                                                       {74, "PPPOE_USERPWD_AUTOSYNCHRO"},
                                                       {76, "76"},
                                                       {77, "XMESH"},
                                                       {84, "NET_CHECK"},
                                                       {85, "85"},
                                                       {88, "88"},
                                                       {UINT_MAX, "-1"}};
    for (const auto &[number, name] : names) EXPECT_STREQ(netctrl_module_name(number), name);
}

}  // namespace
