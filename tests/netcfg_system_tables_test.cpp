// netcfg_system_tables_test.cpp: routes, port mappings, the LAN client's address and the neighbours, from the kernel of
// the box (veth, routes, neighbours) and from files of odd contents.

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "apsupport/foundation.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_commands.h"

using test::printed_by;
using test::write_text;
using testing::HasSubstr;

namespace {

void run(const char *command) { ASSERT_EQ(std::system(command), 0) << command; }

constexpr char list_static_routes[] = "ip route ls table staticroute > /var/static_route";

class SystemTables : public testing::Test {
protected:
    static void SetUpTestSuite() {
        run(R"(ip -4 route flush table main; ip link add tslan type veth peer name tspeer && ip link set tslan up &&
            ip link set tspeer up && ip addr add 192.0.2.1/24 dev tslan &&
            ip route add 198.51.100.0/25 via 192.0.2.254 dev tslan metric 42 &&
            ip route add 10.0.0.0/8 via 192.0.2.253 dev tslan table staticroute &&
            ip route add 10.1.1.1 dev tslan table staticroute &&
            ip neigh add 192.0.2.77 lladdr 02:ab:cd:ef:00:77 dev tslan &&
            ip neigh add 192.0.2.78 lladdr 02:ab:cd:ef:00:78 dev tslan &&
            ip neigh change 192.0.2.78 dev tslan nud failed)");
    }
    static void TearDownTestSuite() { run("ip link del tslan"); }

    // "DESTINATION MASK GATEWAY INTERFACE METRIC" of every entry, and of one behind the last.
    static std::vector<std::string> routes(int max) {
        std::vector<route_entry> list(static_cast<size_t>(max) + 1, route_entry{"", "", "", "", -7});
        EXPECT_EQ(file_get_route_table_list(list.data(), max), 0);
        std::vector<std::string> texts;
        texts.reserve(list.size());
        for (const auto &r : list)
            texts.push_back(std::string(r.destination) + " " + r.mask + " " + r.gateway + " " + r.ifname + " " +
                            std::to_string(r.metric));
        return texts;
    }
};

TEST_F(SystemTables, ListsTheKernelsRoutesThenTheStaticOnes) {
    run(list_static_routes);
    std::vector<std::string> expected = {
        "192.0.2.0 255.255.255.0 0.0.0.0 tslan 0", "198.51.100.0 255.255.255.128 192.0.2.254 tslan 42",
        "10.0.0.0 255.0.0.0 192.0.2.253 tslan -7", "10.1.1.1 255.255.255.255 0.0.0.0 tslan -7", "    -7"};
    test::commands.clear();
    EXPECT_EQ(file_get_route_list_num(), 4);
    EXPECT_EQ(routes(4), expected);
    EXPECT_THAT(test::commands, testing::ElementsAre(list_static_routes, list_static_routes));
    for (const size_t max : {3U, 2U, 1U, 0U}) {
        expected.resize(max);
        expected.emplace_back("    -7");
        EXPECT_EQ(routes(static_cast<int>(max)), expected);
    }
    route_entry none;
    EXPECT_EQ(file_get_route_table_list(&none, -1), 0) << "no room";
    EXPECT_THAT(printed_by([] { EXPECT_EQ(file_get_route_table_list(nullptr, 3), 1); }), HasSubstr("arg is null."));
}

TEST_F(SystemTables, ReadsStaticRoutesOfOddForms) {
    const std::string longest = "10.0.0.0/16 via 10.0.0.1 dev eth1" + std::string(300, ' ') + "\n";
    const std::tuple<const char *, std::string, std::vector<std::string>> cases[] = {
        {"no bit", "10.0.0.0/0 dev eth1\n", {"10.0.0.0 255.255.255.255 0.0.0.0 eth1"}},
        {"all bits", "10.0.0.0/32 dev eth1\n", {"10.0.0.0 255.255.255.255 0.0.0.0 eth1"}},
        {"one bit", "10.0.0.0/1 dev eth1\n", {"10.0.0.0 128.0.0.0 0.0.0.0 eth1"}},
        {"a bit too many", "10.0.0.0/33 dev eth1\n", {"10.0.0.0 128.0.0.0 0.0.0.0 eth1"}},
        {"no prefix number", "10.0.0.0/ via 10.0.0.1\n", {"10.0.0.0 255.255.255.255 10.0.0.1 "}},
        {"default", "default via 10.0.0.1 dev eth1 \n", {"default 255.255.255.255 10.0.0.1 eth1"}},
        {"a long word", "10.0.0.0/8 dev an_interface_with_a_name\n", {"10.0.0.0 255.0.0.0 0.0.0.0 an_interface_wi"}},
        {"nothing behind", "10.0.0.0/8 dev eth1 via", {"10.0.0.0 255.0.0.0 0.0.0.0 eth1"}},
        {"15 characters end it", "10.0.0.1 dev e1\n10.0.0.0/8 dev eth1\n", {}},
        {"16 do not", "10.0.0.0 dev et1\n10.0.0.1 dev e1\n", {"10.0.0.0 255.255.255.255 0.0.0.0 et1"}},
        {"an overlong line comes in pieces", longest, {"10.0.0.0 255.255.0.0 10.0.0.1 eth1", " 255.255.255.255 "}},
    };
    for (const auto &[what, lines, expected] : cases) {
        SCOPED_TRACE(what);
        write_text("/var/static_route", lines);
        const size_t kernel_routes = 2;
        const int count = file_get_route_list_num();
        ASSERT_EQ(count, kernel_routes + expected.size());
        const auto found = routes(count);
        for (size_t i = 0; i < expected.size(); ++i)
            EXPECT_THAT(found[i + kernel_routes], testing::StartsWith(expected[i]));
    }
}

TEST_F(SystemTables, NotesEntryAndExitWhileTheLevelIsFive) {
    char ip[16];
    const auto call = [&] { find_ip_in_arpfile("02:ab:cd:ef:00:77", ip); };
    set_dbg_level("prod", 4);
    EXPECT_EQ(printed_by(call), "");
    set_dbg_level("prod", 5);
    EXPECT_THAT(printed_by(call),
                testing::ContainsRegex("ENTER >>> find_ip_in_arpfile(.|\n)*LEAVE <<< find_ip_in_arpfile"));
    set_dbg_level("prod", 0);
}

TEST_F(SystemTables, FindsANeighbourByItsMac) {
    const std::tuple<const char *, const char *, int, const char *> cases[] = {
        {"as it stands", "02:ab:cd:ef:00:77", 0, "192.0.2.77"}, {"upper case", "02:AB:CD:EF:00:77", 0, "192.0.2.77"},
        {"incomplete", "02:ab:cd:ef:00:78", 1, "0.0.0.0"},      {"unknown", "02:ab:cd:ef:00:79", 1, "0.0.0.0"},
        {"a part", "02:ab:cd:ef:00:7", 1, "0.0.0.0"},           {"the heading's word", "HW", 1, "0.0.0.0"},
        {"more behind", "02:ab:cd:ef:00:77x", 0, "192.0.2.77"}, {"null", nullptr, 1, "0.0.0.0"},
    };
    const int before = test::open_descriptors();
    for (const auto &[what, mac, result, expected] : cases) {
        SCOPED_TRACE(what);
        char ip[16] = "before";
        EXPECT_EQ(find_ip_in_arpfile(mac, ip), result);
        EXPECT_STREQ(ip, expected);
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(SystemTables, ReadsPortMappings) {
    std::string many;
    for (int i = 1; i <= 129; ++i) many += std::to_string(i) + ";b;c;d;e;f\n";
    write_text("/var/upnpmap", many);
    upnp_list list;
    std::memset(&list, 'x', sizeof list);
    ASSERT_EQ(file_get_upnp_list(&list), 0);
    EXPECT_EQ(list.count, 128);
    EXPECT_STREQ(list.entries[127].field_1, "128");

    write_text("/var/upnpmap", "203.0.113.9;80;192.168.0.9;123456789;TCP;web server;more\n\n;x\none;two\n" +
                                   std::string(300, 'y') + ";z");
    ASSERT_EQ(file_get_upnp_list(&list), 0);
    ASSERT_EQ(list.count, 4) << "two lines begin with nothing; the long one is read in two pieces";
    EXPECT_STREQ(list.entries[0].field_1, "203.0.113.9");
    EXPECT_STREQ(list.entries[0].field_4, "1234567") << "cut at its field";
    EXPECT_STREQ(list.entries[0].field_6, "web server");
    EXPECT_STREQ(list.entries[1].field_2, "two");
    EXPECT_STREQ(list.entries[1].field_3, "");
    EXPECT_EQ(std::string(list.entries[2].field_1), std::string(15, 'y'));

    std::filesystem::remove("/var/upnpmap");
    EXPECT_THAT(printed_by([&] { EXPECT_EQ(file_get_upnp_list(&list), 1); }), HasSubstr("fopen is fail."));
    EXPECT_THAT(printed_by([&] { EXPECT_EQ(file_get_upnp_list(nullptr), 1); }), HasSubstr("arg is null."));
}

TEST_F(SystemTables, ReadsTheLanClientsAddress) {
    write_text("/etc/lan.ini", "ip=10.0.0.7\nmask=255.0.0.0\ngateway=10.0.0.1\ndns1=\n");
    const char *const cases[][2] = {
        {"1\n", ""},
        {" 1 x", ""},
        {"0", "status is error."},
        {"2", "status is error."},
        {"up", "get status is fail."},
        {"", "get status is fail."},
    };
    ip_info info{};
    const auto read = [&](int result) { EXPECT_EQ(file_lan_dhcpc_get_ipinfo_and_status(&info), result); };
    for (const auto &c : cases) {
        SCOPED_TRACE(c[0]);
        const bool has_address = *c[1] == '\0';
        write_text("/etc/lan.cfg", c[0]);
        info = {"before", "", "", "", ""};
        EXPECT_THAT(printed_by([&] { read(has_address ? 0 : 1); }), HasSubstr(c[1]));
        EXPECT_STREQ(info.ip, has_address ? "10.0.0.7" : "before");
        EXPECT_STREQ(info.dns2, has_address ? "0.0.0.0" : "");
    }
    std::filesystem::remove("/etc/lan.cfg");
    set_dbg_level("prod", 3);
    EXPECT_THAT(printed_by([&] { read(1); }), HasSubstr("Failed(2) to fopen, No such file or directory."));
    set_dbg_level("prod", 0);
}

}  // namespace
