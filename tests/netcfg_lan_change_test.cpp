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
#include "foundation/text.h"
#include "tests/support/capture.h"

using Keys = std::map<std::string, std::string>;

static Keys store;
static std::string written;
static std::vector<std::string> logged;

int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    return found == store.end() ? 0 : (std::memcpy(value, found->second.c_str(), found->second.size() + 1), 1);
}
int SetValue(const char *key, const char *value) {
    written += std::string(key) + " ";
    store[key] = value;
    return 1;
}
void log_debug_print(const char *function, int, int level, const char *module, const char *format, ...) {
    logged.push_back(std::string(function) + " " + std::to_string(level) + " " + module + " " + format);
}

namespace {

constexpr char mask24[] = "255.255.255.0", mask25[] = "255.255.255.128", mask16[] = "255.255.0.0",
               mask30[] = "255.255.255.252";

Keys one_entry(const std::string &list, const std::string &entry) { return {{list + "num", "1"}, {list + "1", entry}}; }

class LanChange : public testing::Test {
protected:
    void SetUp() override { begin({}); }
    static void begin(const Keys &stored) {
        store = stored;
        written.clear();
        logged.clear();
    }
    // The device leaves 10.0.0.1/24 for 10.5.5.1/24.
    static void change() { check_change_lanip_handle("10.5.5.1", mask24, "10.0.0.1", mask24); }
    static void change_pool(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask,
                            unsigned pool) {
        check_lanip_change_sync_dhcps(inet_addr(new_ip), inet_addr(new_mask), inet_addr(old_ip), inet_addr(old_mask),
                                      pool);
    }
};

constexpr char snat[] = "adv.snat.list", logs[] = "adv.logs.list", servers[] = "adv.virtualser.list",
               bandwidth[] = "bandwidth.mode.list", bindings[] = "security.ipbind.list";

TEST_F(LanChange, MovesTheHostOfEveryListAndLeavesWhatDoesNotParse) {
    const std::string x502(502, 'x');
    const std::tuple<const char *, std::string, std::string> moved[] = {
        {snat, "10.0.0.23;x", "10.5.5.23;x"},
        {snat, "172.1.2.3;x;y", "10.5.5.3;x;y"},
        {logs, "10.0.0.7;514;1", "10.5.5.7;514;1"},
        {servers, "1;80;8080;10.0.0.9;tcp;2", "1;80;8080;10.5.5.9;tcp;2"},
        {bandwidth, "a;b;c;10.0.0.10-10.0.0.20;5;6", "a;b;c;10.5.5.10-10.5.5.20;5;6"},
        {bindings, "1;name;10.0.0.4;aa:bb", "1;name;10.5.5.4;aa:bb"},
        {snat, "10.0.0.23; two words", "10.5.5.23;two"},  // the last field is a word
        {snat, "10.0.0.9;" + x502, "10.5.5.9;" + x502},   // 511 characters, and one more
        {snat, "110.0.0.9;" + x502, "10.5.5.9;" + x502.substr(1)},
        {snat, "10.0.0.9;" + x502 + std::string(2307 - 511, 'y'), "10.5.5.9;" + x502},
        {snat, "1.0.0.9;" + x502 + "y", "10.5.5.9;" + x502},  // a longer address cuts the end
    };
    for (const auto &[list, entry, expected] : moved) {
        begin(one_entry(list, entry));
        change();
        EXPECT_EQ(store, one_entry(list, expected));
    }
    const char *const left[][2] = {
        {snat, ""},
        {snat, "10.0.0.23;"},
        {snat, ";x"},
        {snat, "10.0.0.256;x"},
        {logs, "loghost;514"},
        {servers, "1;80;8080;10.0.0.9"},
        {servers, "1;;8080;10.0.0.9;tcp"},
        {bandwidth, "a;b;c;10.0.0.10;5"},
        {bandwidth, "a;b;c;10.0.0.10-;5"},
        {bindings, "1;name;10.0.0.4"},
    };
    for (const auto &[list, entry] : left) {
        begin(one_entry(list, entry));
        change();
        EXPECT_EQ(store, one_entry(list, entry));
    }
}

TEST_F(LanChange, WalksFromTheFirstEntryToTheCountAndNoFurther) {
    for (const char *count : {"0", "-1", "x", "1", "2", "3", "99999999999999"}) {
        SCOPED_TRACE(count);
        begin({{"adv.snat.list1", "10.0.0.2;x"}, {"adv.snat.list3", "10.0.0.3;x"}, {"adv.snat.listnum", count}});
        change();
        EXPECT_EQ(store["adv.snat.list1"], ap::to_int(count) >= 1 ? "10.5.5.2;x" : "10.0.0.2;x");
        EXPECT_EQ(store["adv.snat.list3"], ap::to_int(count) >= 3 ? "10.5.5.3;x" : "10.0.0.3;x");
        EXPECT_FALSE(store.contains("adv.snat.list2"));
    }
}

// The parts are added in the word as `inet_addr` gives it, so the sum carries into the next byte of the text.
TEST_F(LanChange, AddsThePartsWhenTheNewNetworkIsSmaller) {
    begin(one_entry(snat, "10.0.252.5;x"));
    check_change_lanip_handle("192.168.5.1", mask24, "10.0.0.1", mask16);
    EXPECT_EQ(store["adv.snat.list1"], "192.168.1.6;x");
}

TEST_F(LanChange, MovesDmzHostsAndTheManagerAndSwitchesOffWhatDoesNotFit) {
    const char *const cases[][6] = {
        {"wan2.dmzip", "wan2.dmzen", "10.0.0.9", mask24, "10.5.5.9", "1"},
        {"wan1.dmzip", "wan1.dmzen", "10.0.0.1", mask24, "10.5.5.1", "0"},  // the device itself
        {"wan1.dmzip", "wan1.dmzen", "10.0.0.127", mask25, "10.5.5.127", "1"},
        {"wan1.dmzip", "wan1.dmzen", "10.0.0.128", mask25, "10.5.5.128", "0"},  // the first outside
        {"wan1.dmzip", "wan1.dmzen", "", mask24, "", "1"},
        {"wan3.dmzip", "wan3.dmzen", "10.0.0.9", mask24, "10.0.0.9", "1"},  // beyond the WANs
        {"lan.webip", "lan.webipen", "10.0.0.1", mask24, "10.5.5.1", "1"},
        {"lan.webip", "lan.webipen", "10.0.0.200", mask25, "10.5.5.200", "0"},
        {"lan.webip", "lan.webipen", "0.0.0.0", mask24, "0.0.0.0", "1"},
    };
    for (const auto &[address, enabled, host, new_mask, moved, stays_enabled] : cases) {
        begin({{"wans.flag", "2"}, {address, host}, {enabled, "1"}});
        check_change_lanip_handle("10.5.5.1", new_mask, "10.0.0.1", mask24);
        EXPECT_EQ(store, (Keys{{"wans.flag", "2"}, {address, moved}, {enabled, stays_enabled}}));
    }
}

// An entry in every list, two in one.
Keys every_rule() {
    Keys rules = {{"wans.flag", "1"}, {"wan1.dmzip", "10.0.0.1"}};
    const char *const entries[][2] = {{bandwidth, "a;b;c;10.0.0.2-10.0.0.3;d"},
                                      {servers, "a;b;c;10.0.0.4;d"},
                                      {snat, "10.0.0.5;x"},
                                      {logs, "10.0.0.6;x"},
                                      {bindings, "a;b;10.0.0.7;x"}};
    for (const auto &[list, entry] : entries) rules.merge(one_entry(list, entry));
    rules["bandwidth.mode.listnum"] = "2";
    rules["bandwidth.mode.list2"] = "a;b;c;10.0.0.4-10.0.0.5;d";
    return rules;
}

TEST_F(LanChange, RunsTheRulesInOrderAndNotesEachFunction) {
    begin(every_rule());
    change();
    EXPECT_EQ(written, "wan1.dmzip wan1.dmzen bandwidth.mode.list1 bandwidth.mode.list2 adv.virtualser.list1 "
                       "adv.snat.list1 adv.logs.list1 security.ipbind.list1 ");
    ASSERT_EQ(logged.size(), 2 + 2 * 7 + 1);
    EXPECT_EQ(logged.front(), "check_change_lanip_handle 6 common_so function entry!");
    EXPECT_EQ(logged[4], "check_lanip_change_sync_lan_control 2 common_so get mib cfg is fail.");
    EXPECT_EQ(logged[14], "check_lanip_change_sync_ipmac_bind 6 common_so function entry!");
    EXPECT_EQ(logged.back(), "check_change_lanip_handle 6 common_so function exit!");
    begin(every_rule());
    sys_change_lanip("10.5.5.1", mask24, "10.0.0.1", mask24);
    EXPECT_EQ(written, "adv.logs.list1 bandwidth.mode.list1 bandwidth.mode.list2 ") << "the older form";
}

TEST_F(LanChange, LeavesRuleOneToTheGuestNetwork) {
    for (const std::string guest : {"1", "2", "0", ""}) {
        SCOPED_TRACE(guest);
        const bool kept = !guest.empty() && guest != "0";
        begin(every_rule());
        store["bandwidth.gst.en"] = guest;
        constexpr char line[] = "check_lanip_change_sync_qos_list\\[[0-9]+\\] skip qos rule for wifi Guest\n";
        EXPECT_THAT(test::printed_by(change), testing::MatchesRegex(kept ? line : ""));
        EXPECT_EQ(store["bandwidth.mode.list1"], kept ? "a;b;c;10.0.0.2-10.0.0.3;d" : "a;b;c;10.5.5.2-10.5.5.3;d");
        EXPECT_EQ(store["bandwidth.mode.list2"], "a;b;c;10.5.5.4-10.5.5.5;d");
    }
}

TEST_F(LanChange, DoesNothingForTheSameAddressOrBadArguments) {
    const char *const cases[][4] = {
        {"10.0.0.1", mask16, "10.0.0.1", mask24},  // the mask alone
        {nullptr, mask24, "10.0.0.1", mask24},
        {"10.5.5.1", mask24, "10.0.0.1", nullptr},
        {"10.5.x", "mask", "10.0.0.1", mask24},
    };
    for (const auto &[new_ip, new_mask, old_ip, old_mask] : cases) {
        begin(every_rule());
        check_change_lanip_handle(new_ip, new_mask, old_ip, old_mask);
        sys_change_lanip(new_ip, new_mask, old_ip, old_mask);
        EXPECT_EQ(written, "");
    }
}

TEST_F(LanChange, MovesOrRefillsThePool) {
    const auto pool = [](const std::string &range, const std::string &own, const std::string &mask) {
        return "1;a b;" + range + ";" + own + ";" + mask + ";60;" + own + ";8.8.8.8";
    };
    const struct {
        const char *what, *new_ip, *new_mask, *old_ip, *old_mask, *range, *new_range;
    } cases[] = {
        {"address", "10.5.5.1", mask24, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "10.5.5.7;10.5.5.9"},
        {"start is the device", "10.5.5.7", mask24, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "10.5.5.8;10.5.5.9"},
        {"end is the device", "10.5.5.9", mask24, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "10.5.5.7;10.5.5.8"},
        {"step over a byte", "10.5.5.255", mask16, "10.0.0.1", mask16, "10.0.5.255;10.0.9.9", "10.5.6.0;10.5.9.9"},
        {"mask wider", "10.0.0.1", mask16, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "10.0.0.2;10.0.255.254"},
        {"device is last", "10.0.255.254", mask16, "10.0.255.254", mask24, "1.1.1.1;2.2.2.2", "10.0.0.1;10.0.255.253"},
        {"both", "172.16.0.9", mask30, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "172.16.0.10;172.16.0.10"},
        {"neither", "10.0.0.1", mask24, "10.0.0.1", mask24, "10.0.0.7;10.0.0.9", "10.0.0.7;10.0.0.9"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        begin({{"dhcps.list2", pool(c.range, c.old_ip, c.old_mask)}});
        change_pool(c.new_ip, c.new_mask, c.old_ip, c.old_mask, 2);
        EXPECT_EQ(store["dhcps.list2"], pool(c.new_range, c.new_ip, c.new_mask));
        if (written.empty()) continue;
        EXPECT_THAT(written, testing::StartsWith("dhcps.start dhcps.end dhcps.gw dhcps.dns1 dhcps.list2 "));
        EXPECT_EQ(store["dhcps.start"] + ";" + store["dhcps.end"], c.new_range);
        EXPECT_EQ(store["dhcps.gw"] + store["dhcps.dns1"], std::string(c.new_ip) + c.new_ip);
        EXPECT_FALSE(store.contains("dhcps.mask"));
    }
}

TEST_F(LanChange, LeavesAPoolThatDoesNotParseAndTheMaskOfOneThatDoes) {
    begin({{"dhcps.list1", "1;;"},
           {"dhcps.list3", "7;a;10.0.0.2;10.0.0.9;10.0.0.1;255.0.0.0;;1.1.1.1;2.2.2.2"},
           {"dhcps.list4", "07;a;10.0.0.2;10.0.0.9;10.0.0.1;255.0.0.0;60;1.1.1.1;2.2.2.2"}});
    for (const unsigned number : {1U, 2U, 3U}) change_pool("11.9.9.1", mask16, "10.0.0.1", mask24, number);
    EXPECT_EQ(written, "") << "fewer than nine fields, or no entry";
    change_pool("11.9.9.1", mask24, "10.0.0.1", mask24, 4);
    EXPECT_EQ(store["dhcps.list4"], "7;a;11.9.9.2;11.9.9.9;11.9.9.1;255.0.0.0;60;11.9.9.1;2.2.2.2");
}

TEST_F(LanChange, MovesStaticLeasesWithPoolOneOnly) {
    begin({{"dhcps.Staticnum", "3"},
           {"dhcps.Staticip1", "10.0.0.9;aa:bb;pc"},
           {"dhcps.Staticip2", "10.0.0.10"},
           {"dhcps.Staticip3", "10.0.0.11;"}});
    change_pool("10.5.5.1", mask24, "10.0.0.1", mask24, 2);
    change_pool("10.0.0.1", mask16, "10.0.0.1", mask24, 1);
    EXPECT_EQ(written, "");
    change_pool("10.5.5.1", mask24, "10.0.0.1", mask24, 1);
    EXPECT_EQ(store["dhcps.Staticip1"], "10.5.5.9;aa:bb;pc");
    EXPECT_EQ(store["dhcps.Staticip3"], "10.5.5.11;");
    EXPECT_EQ(written, "dhcps.Staticip1 dhcps.Staticip3 ");
}

TEST_F(LanChange, RebuildsTheOnlyPoolFromItsKeys) {
    begin({{"dhcps.en", "1"}, {"dhcps.start", "10.0.0.2"}, {"dhcps.leasetime", "1440"}, {"dhcps.dns2", "9.9.9.9"}});
    sys_change_lanip_dhcps("10.0.0.1", mask24, nullptr, nullptr);
    EXPECT_EQ(store["dhcps.list1"], "1;1;10.0.0.2;;10.0.0.1;255.255.255.0;1440;10.0.0.1;9.9.9.9");
    EXPECT_EQ(written, "dhcps.gw dhcps.mask dhcps.dns1 dhcps.list1 dhcps.listnum ");
    store["dhcps.start"] = std::string(2307, '7');
    sys_change_dhcps_cfglist();
    EXPECT_THAT(store["dhcps.list1"], testing::EndsWith("9.9.9.9")) << "what does not fit is not stored";
}

TEST_F(LanChange, ReplacesOneFieldOfARule) {
    const std::string full = "a;" + std::string(2307 - 2, 'b');
    const std::tuple<const char *, std::string, const char *, int, const char *, std::string> cases[] = {
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
        {"2307 characters grow and are cut", full, ";", 0, "xx", "xx;" + full.substr(2, 2307 - 3)},
        {"the end of 2307 characters removed", full, ";", 1, "", "a;"},
    };
    char rule[2308];
    for (const auto &[what, before, delimiters, index, item, expected] : cases) {
        std::strcpy(rule, before.c_str());
        check_modify_item_in_rule(rule, delimiters, index, item);
        EXPECT_EQ(rule, expected) << what;
    }
    begin({});
    check_modify_item_in_rule(rule, ";", -1, "x");
    check_modify_item_in_rule(rule, ";", 0, nullptr);
    EXPECT_EQ(logged[1], "check_modify_item_in_rule 2 common_so index is error.");
    EXPECT_EQ(logged[4], "check_modify_item_in_rule 2 common_so arg is null.");
}

TEST_F(LanChange, JoinsNetworkAndHostNumber) {
    const std::tuple<const char *, const char *, unsigned, int, const char *> cases[] = {
        {"192.168.5.77", mask24, 9, 0, "192.168.5.9"},
        {"10.1.2.3", "255.0.0.0", 0x010203, 0, "10.1.2.3"},
        {"192.168.5.1", mask24, 0x0209, 0, "192.168.7.9"},  // joined by or, however wide
        {"nonsense", mask24, 9, -1, "before"},
        {nullptr, mask24, 9, -1, "before"},
    };
    for (const auto &[ip, mask, hostid, result, expected] : cases) {
        char out[16] = "before";
        EXPECT_EQ(check_get_new_ipaddr_by_hostid(ip, mask, hostid, out), result);
        EXPECT_STREQ(out, expected);
    }
    EXPECT_EQ(check_get_new_ipaddr_by_hostid("1.2.3.4", mask24, 1, nullptr), -1);
}

TEST_F(LanChange, NamesTheModules) {
    std::string names;
    for (const unsigned module : {0U, 15U, 47U, 72U, 73U, 74U, 76U, 77U, 84U, 85U, 88U, UINT_MAX})
        names += std::string(netctrl_module_name(module)) + " ";
    EXPECT_EQ(names, "DBG QOS VPN_IPSEC LLDPD 73 PPPOE_USERPWD_AUTOSYNCHRO 76 XMESH NET_CHECK 85 88 -1 ");
}

}  // namespace
