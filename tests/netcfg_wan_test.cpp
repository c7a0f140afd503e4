// netcfg_wan_test.cpp: address files, port map, and every status decision of a WAN: cable and daemons are scripted, the
// interfaces and their addresses are the kernel's.

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>

#include "applatform/interfaces.h"
#include "applatform/system.h"
#include "apsupport/netcfg.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

using test::printed_by;
using test::write_text;
using testing::HasSubstr;

static std::string running;  // the name of a process
static int cable, asked_port;

int monitor_check_exist(const char *name) { return running == name ? 7 : 0; }
int iof_port_status_get(int port, void *record12) {
    asked_port = port;
    std::memcpy(record12, &cable, sizeof cable);
    return cable < 0 ? -1 : 0;
}
const char *iof_eth_name_get(int id) { return id == 12 ? "tswan1" : id == 13 ? "tswan2" : nullptr; }

namespace {

class Wan : public testing::Test {
protected:
    // WAN 1 has no address, WAN 2 has one.
    static void SetUpTestSuite() {
        ASSERT_EQ(
            std::system("ip link add tswan1 type veth peer name tsisp1 && ip link add tswan2 type veth peer name tsisp2"
                        " && ip addr add 198.51.100.9/24 dev tswan2"),
            0);
    }
    static void TearDownTestSuite() { std::system("ip link del tswan1; ip link del tswan2"); }
    void SetUp() override {
        test::store.values.clear();
        cable = 1;
        write_text("/etc/lan_wan_port", "wan[1] 4\nwan[2] 5\n");
    }
};

constexpr char no_wire[] = "wan is not wire.", no_name[] = "get wan ifname fail.", connecting[] = "wan is connecting.",
               not_connected[] = "wan is not connected.";

TEST_F(Wan, DecidesTheLinkStatus) {
    const struct {
        const char *what;
        int cable, wan, type, mode;
        const char *running, *text;
        int status;
    } cases[] = {{"no cable", 0, 1, 0, 3, "dhcpcd_wan1", no_wire, 0},
                 {"port fails", -1, 1, 0, 3, "dhcpcd_wan1", no_wire, 0},
                 {"no router", 1, 1, 0, 1, "dhcpcd_wan1", no_name, 0},
                 {"no such WAN", 1, 5, 0, 3, "", no_name, 0},
                 {"has an address", 1, 2, 0, 3, "", "", 3},
                 {"static, has one", 1, 2, 1, 3, "", "", 3},
                 {"DHCP", 1, 1, 0, 3, "dhcpcd_wan1", connecting, 2},
                 {"other WAN's", 1, 1, 0, 3, "dhcpcd_wan2", not_connected, 1},
                 {"PPP daemon", 1, 1, 0, 3, "pppd_wan1", not_connected, 1},
                 {"IPv6 client", 1, 1, 0, 3, "dhcp6c", connecting, 2},
                 {"PPPoE", 1, 1, 2, 3, "pppd_wan1", connecting, 2},
                 {"type 3", 1, 2, 3, 3, "pppd_wan2", connecting, 2},
                 {"type 4, IPv6", 1, 2, 4, 3, "dhcp6c", not_connected, 1},
                 {"type 5", 1, 1, 5, 3, "pppd_wan1", not_connected, 1},
                 {"static", 1, 1, 1, 3, "dhcpcd_wan1", not_connected, 1}};
    const int before = test::open_descriptors();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        cable = c.cable;
        running = c.running;
        EXPECT_THAT(printed_by([&] { EXPECT_EQ(system_wan_get_link_status(c.wan, c.type, c.mode), c.status); }),
                    HasSubstr(c.text));
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Wan, FindsThePortOfALabel) {
    const std::tuple<std::string, int, int> cases[] = {
        {"wan[1] 3\nwan[2] 4\n", 2, 4}, {"  wan[2]\t 4 x\n", 2, 4}, {"wan[2]\nwan[2] 6\n", 2, 6},
        {"wan[2]x 4\n", 2, -1},         {"wan[1] 3\n", 4, -1},      {std::string(200, 'x') + "\nwan[2] 9", 2, 9},
        {"wan[0] 3\n", 0, -1},          {"wan[5] 3\n", 5, -1}};
    for (const auto &[map, wan, port] : cases) {
        write_text("/etc/lan_wan_port", map);
        EXPECT_EQ(wanid_to_phy_port(wan), port) << map;
    }
    std::filesystem::remove("/etc/lan_wan_port");
    EXPECT_EQ(wanid_to_phy_port(2), -1);
}

TEST_F(Wan, ReadsTheConnectionType) {
    test::store.values = {{"wan1.connecttype", "8"}, {"wan4.connecttype", "2x"}, {"wan5.connecttype", "2"}};
    EXPECT_EQ(getWanConnType(1), 8);
    EXPECT_EQ(getWanConnType(2), 0);
    EXPECT_EQ(getWanConnType(4), 2);
    for (const int wan : {0, 5})
        EXPECT_THAT(printed_by([&] { EXPECT_EQ(getWanConnType(wan), 0); }),
                    testing::MatchesRegex("\\[getWanConnType [0-9]+\\]:\twan connect type error!\n"));
}

TEST_F(Wan, SavesAndReadsAddressFiles) {
    const ip_info saved{"10.1.1.2", "255.255.255.0", "10.1.1.1", "", "9.9.9.9"};
    ASSERT_EQ(file_wan_ip_save(g_wan_ip_info[3], &saved), 0);
    EXPECT_EQ(test::read_text("/etc/wan4.ini"),
              "ip=10.1.1.2\nmask=255.255.255.0\ngateway=10.1.1.1\ndns1=\ndns2=9.9.9.9\n");
    ip_info info{};
    ASSERT_EQ(file_wan_ip_info_get(4, &info), 0);
    EXPECT_STREQ(info.gateway, "10.1.1.1");
    EXPECT_STREQ(info.dns1, "0.0.0.0") << "empty";
    write_text("/etc/wan1.ini", "dns1=1.1.1.1.1.1.1.1.1.1.1\nip=1.2.3.4\n");
    ASSERT_EQ(file_wan_ip_info_get(1, &info), 0);
    EXPECT_STREQ(info.dns1, "1.1.1.1.1.1.1.1") << "cut at its field";
    EXPECT_STREQ(info.dns2, "0.0.0.0") << "missing";
    EXPECT_STREQ(g_wan_ip_info2[3], "/etc/wan42.ini");

    const auto fails = [](const char *text, auto call) {
        EXPECT_THAT(printed_by([&] { EXPECT_EQ(call(), 1); }), HasSubstr(text));
    };
    fails("invalide wan_id:0.", [&] { return file_wan_ip_info_get(0, &info); });
    fails("invalide wan_id:5.", [&] { return file_wan_ip_info_get(5, nullptr); });
    fails("ip_info struct is NULL.", [&] { return file_wan_ip_info_get(1, nullptr); });
    fails("fopen is fail.", [&] { return file_wan_ip_save("/nowhere/wan", &info); });
    fails("fwrite is fail.", [&] { return file_wan_ip_save("/dev/full", &info); });
    fails("arg is null.", [&] { return file_get_ip_info_from_ini(nullptr, &info), 1; });
}

TEST_F(Wan, SummarisesWanOne) {
    test::store.values = {
        {"sys.mode", "3"}, {"wan1.ip", "10.1.1.2"}, {"wan1.gateway", "10.1.1.1"}, {"wan1.dns1", "1.1.1.1"}};
    write_text("/etc/wan1.ini", "ip=10.7.7.2\nmask=255.0.0.0\n");
    const std::tuple<const char *, int, const char *, int, const char *, const char *, const char *> cases[] = {
        {"0", 1, "dhcpcd_wan1", 2, "dhcp", "10.7.7.2", "255.0.0.0"},
        {"0", 1, "", 1, "dhcp", "before", "before"},
        {"2", 1, "pppd_wan1", 2, "pppoe", "10.7.7.2", "255.0.0.0"},
        {"1", 0, "", 0, "static", "10.1.1.2", "before"},
        {"1", 1, "", 1, "static", "before", "before"},
        {"02", 0, "", 0, "static", "10.1.1.2", "before"},
    };
    for (const auto &[type, has_cable, process, status, type_name, ip, mask] : cases) {
        SCOPED_TRACE(testing::Message() << type << " " << process);
        test::store.values["wan1.connecttype"] = type;
        cable = has_cable;
        running = process;
        ip_info info{"before", "before", "before", "before", "before"};
        char name[8];
        EXPECT_EQ(sysytem_get_route_wan_info(1, name, &info), status);
        EXPECT_STREQ(name, type_name);
        EXPECT_STREQ(info.ip, ip);
        EXPECT_STREQ(info.mask, mask);
    }
    EXPECT_EQ(asked_port, 4);
    EXPECT_EQ(sysytem_get_route_wan_info(1, nullptr, nullptr), 1);
}

}  // namespace
