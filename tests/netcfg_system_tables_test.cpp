// netcfg_system_tables_test.cpp: routes, port mappings, the LAN client's address and the neighbours, from the kernel of
// the box (veth, routes, neighbours) and from files of odd contents.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"

using testing::HasSubstr;

static const char *static_routes;  // when set, what the command is made to leave

int doSystemCmd(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char command[512];
    std::vsnprintf(command, sizeof command, format, arguments);
    va_end(arguments);
    EXPECT_STREQ(command, "ip route ls table staticroute > /var/static_route");
    if (static_routes == nullptr) return std::system(command);
    test::write_text("/var/static_route", static_routes);
    return 0;
}

namespace {

void run(const char *command) { ASSERT_EQ(std::system(command), 0) << command; }

class SystemTables : public testing::Test {
protected:
    static void SetUpTestSuite() {
        run("ip -4 route flush table main; ip link add tslan type veth peer name tspeer && ip link set tslan up && ip "
            "link set tspeer up"
            " && ip addr add 192.0.2.1/24 dev tslan && ip route add 198.51.100.0/25 via 192.0.2.254 dev tslan metric 42"
            " && ip route add 10.0.0.0/8 via 192.0.2.253 dev tslan table staticroute"
            " && ip route add 10.1.1.1 dev tslan table staticroute"
            " && ip neigh add 192.0.2.77 lladdr 02:ab:cd:ef:00:77 dev tslan"
            " && ip neigh add 192.0.2.78 lladdr 02:ab:cd:ef:00:78 dev tslan nud failed");
    }
    static void TearDownTestSuite() { run("ip link del tslan"); }
    void SetUp() override { static_routes = nullptr; }

    static std::string shown(const route_entry &r) {
        return std::string(r.destination) + " " + r.mask + " " + r.gateway + " " + r.ifname + " " +
               std::to_string(r.metric);
    }
    static std::vector<std::string> routes(int max) {
        std::vector<route_entry> list(static_cast<size_t>(max) + 1);
        for (auto &route : list) route.metric = -7;
        EXPECT_EQ(file_get_route_table_list(list.data(), max), 0);
        std::vector<std::string> texts;
        texts.reserve(list.size());
        for (const auto &r : list) texts.push_back(r.destination[0] == '\0' ? "" : shown(r));
        return texts;
    }
};

TEST_F(SystemTables, ListsTheKernelsRoutesThenTheStaticOnes) {
    const std::vector<std::string> expected = {
        "192.0.2.0 255.255.255.0 0.0.0.0 tslan 0", "198.51.100.0 255.255.255.128 192.0.2.254 tslan 42",
        "10.0.0.0 255.0.0.0 192.0.2.253 tslan -7", "10.1.1.1 255.255.255.255 0.0.0.0 tslan -7"};
    ASSERT_EQ(file_get_route_list_num(), 4);
    for (size_t max = 0; max <= 5; ++max) {
        std::vector<std::string> filled(expected.begin(),
                                        expected.begin() + static_cast<long>(std::min<size_t>(max, 4)));
        filled.resize(max + 1);
        EXPECT_EQ(routes(static_cast<int>(max)), filled) << max;
    }
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(file_get_route_table_list(nullptr, 3), 1); }),
                HasSubstr("arg is null."));
    EXPECT_EQ(file_get_route_table_list(reinterpret_cast<route_entry *>(&static_routes), -1), 0) << "no room";
}

TEST_F(SystemTables, ReadsStaticRoutesOfOddForms) {
    const std::string one = "10.0.0.0 ", longest = "10.0.0.0/16 via 10.0.0.1 dev eth1" + std::string(300, ' ') + "\n";
    const struct {
        const char *what;
        std::string lines;
        std::vector<std::string> expected;
    } cases[] = {
        {"full masks",
         "10.0.0.0/0 dev eth1\n10.0.0.0/32 dev eth1\n",
         {one + "255.255.255.255 0.0.0.0 eth1", one + "255.255.255.255 0.0.0.0 eth1"}},
        {"1 and 33",
         "10.0.0.0/1 dev eth1\n10.0.0.0/33 dev eth1\n",
         {one + "128.0.0.0 0.0.0.0 eth1", one + "128.0.0.0 0.0.0.0 eth1"}},
        {"no prefix number", "10.0.0.0/ via 10.0.0.1\n", {one + "255.255.255.255 10.0.0.1 "}},
        {"default", "default via 10.0.0.1 dev eth1 \n", {"default 255.255.255.255 10.0.0.1 eth1"}},
        {"a long word", "10.0.0.0/8 dev an_interface_with_a_name\n", {one + "255.0.0.0 0.0.0.0 an_interface_wi"}},
        {"nothing behind", "10.0.0.0/8 dev eth1 via", {one + "255.0.0.0 0.0.0.0 eth1"}},
        {"15 characters end it", "10.0.0.1 dev e1\n10.0.0.0/8 dev eth1\n", {}},
        {"16 do not", "10.0.0.0 dev et1\n10.0.0.1 dev e1\n", {one + "255.255.255.255 0.0.0.0 et1"}},
        {"an overlong line comes in pieces",
         longest + "10.0.0.0/8 dev eth1\n",
         {one + "255.255.0.0 10.0.0.1 eth1", "", one + "255.0.0.0 0.0.0.0 eth1"}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        static_routes = c.lines.c_str();
        const int kernel_routes = 2, count = file_get_route_list_num();
        std::vector<std::string> expected = c.expected, found = routes(count);
        ASSERT_EQ(count, kernel_routes + static_cast<int>(expected.size()));
        for (size_t i = 0; i < expected.size(); ++i)
            EXPECT_THAT(found[i + kernel_routes], testing::StartsWith(expected[i]));
    }
}

TEST_F(SystemTables, NotesEntryAndExitWhileTheLevelIsFive) {
    char ip[16];
    const auto call = [&] { find_ip_in_arpfile("02:ab:cd:ef:00:77", ip); };
    set_dbg_level("prod", 4);
    EXPECT_EQ(test::printed_by(call), "");
    set_dbg_level("prod", 5);
    EXPECT_THAT(test::printed_by(call),
                testing::AllOf(HasSubstr("ENTER >>> find_ip_in_arpfile"), HasSubstr("LEAVE <<< find_ip_in_arpfile")));
    set_dbg_level("prod", 0);
}

TEST_F(SystemTables, FindsANeighbourByItsMac) {
    const struct {
        const char *what, *mac;
        int result;
        const char *ip;
    } cases[] = {
        {"as it stands", "02:ab:cd:ef:00:77", 0, "192.0.2.77"}, {"upper case", "02:AB:CD:EF:00:77", 0, "192.0.2.77"},
        {"incomplete", "02:ab:cd:ef:00:78", 1, "0.0.0.0"},      {"unknown", "02:ab:cd:ef:00:79", 1, "0.0.0.0"},
        {"a part", "02:ab:cd:ef:00:7", 1, "0.0.0.0"},           {"the heading's word", "HW", 1, "0.0.0.0"},
        {"more behind", "02:ab:cd:ef:00:77x", 0, "192.0.2.77"}, {"null", nullptr, 1, "0.0.0.0"},
    };
    const int before = test::open_descriptors();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char ip[16] = "before";
        EXPECT_EQ(find_ip_in_arpfile(c.mac, ip), c.result);
        EXPECT_STREQ(ip, c.ip);
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(SystemTables, ReadsPortMappings) {
    std::string many;
    for (int i = 1; i <= 129; ++i) {
        if (i == 129) test::write_text("/var/upnpmap", many);
        many += std::to_string(i) + ";b;c;d;e;f\n";
    }
    upnp_list list;
    std::memset(&list, 'x', sizeof list);
    ASSERT_EQ(file_get_upnp_list(&list), 0);
    EXPECT_EQ(list.count, 128);
    test::write_text("/var/upnpmap", many);
    ASSERT_EQ(file_get_upnp_list(&list), 0);
    EXPECT_EQ(list.count, 128);
    EXPECT_STREQ(list.entries[127].field_1, "128");

    test::write_text("/var/upnpmap", "203.0.113.9;80;192.168.0.9;123456789;TCP;web server;more\n\n;x\none;two\n" +
                                         std::string(300, 'y') + ";z");
    ASSERT_EQ(file_get_upnp_list(&list), 0);
    ASSERT_EQ(list.count, 4) << "two lines begin with nothing; the long one is read in two pieces";
    const upnp_entry &first = list.entries[0];
    EXPECT_STREQ(first.field_1, "203.0.113.9");
    EXPECT_STREQ(first.field_4, "1234567") << "cut at its field";
    EXPECT_STREQ(first.field_6, "web server");
    EXPECT_STREQ(list.entries[1].field_2, "two");
    EXPECT_STREQ(list.entries[1].field_3, "");
    EXPECT_EQ(std::string(list.entries[2].field_1), std::string(15, 'y'));

    std::filesystem::remove("/var/upnpmap");
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(file_get_upnp_list(&list), 1); }), HasSubstr("fopen is fail."));
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(file_get_upnp_list(nullptr), 1); }), HasSubstr("arg is null."));
}

TEST_F(SystemTables, ReadsTheLanClientsAddress) {
    test::write_text("/etc/lan.ini", "ip=10.0.0.7\nmask=255.0.0.0\ngateway=10.0.0.1\ndns1=\n");
    const struct {
        const char *what, *status;
        int result;
        const char *text;
    } cases[] = {{"has one", "1\n", 0, ""},
                 {"more behind", " 1 x", 0, ""},
                 {"none", "0", 1, "status is error."},
                 {"fetching", "2", 1, "status is error."},
                 {"no number", "up", 1, "get status is fail."},
                 {"empty", "", 1, "get status is fail."}};
    set_dbg_level("prod", 3);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::write_text("/etc/lan.cfg", c.status);
        ip_info info{"before", "", "", "", ""};
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(file_lan_dhcpc_get_ipinfo_and_status(&info), c.result); }),
                    HasSubstr(c.text));
        EXPECT_STREQ(info.ip, c.result == 0 ? "10.0.0.7" : "before");
        EXPECT_STREQ(info.dns2, c.result == 0 ? "0.0.0.0" : "");
    }
    std::filesystem::remove("/etc/lan.cfg");
    ip_info info;
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(file_lan_dhcpc_get_ipinfo_and_status(&info), 1); }),
                HasSubstr("Failed(2) to fopen, No such file or directory."));
    set_dbg_level("prod", 0);
}

}  // namespace
