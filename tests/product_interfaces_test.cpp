// product_interfaces_test.cpp: interface names, ports, LEDs, record locks, MAC texts, MAC cloning, uplink throughput.

#include <cstdarg>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <regex>
#include <unistd.h>

#include "applatform/commands.h"
#include "applatform/interfaces.h"
#include "applatform/system.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

namespace {

using testing::HasSubstr;
using Lines = std::vector<std::string>;

Lines logged;     // "level module text" of the platform's logger
Lines gpio_sets;  // "line=value"
int gpio_result, port_result, mac_result, statistics_result;
uint32_t port_words[] = {0, 1000, 1};  // link, speed, duplex
std::string uplink;
uint64_t counters[4];
unsigned int uptime_s;

}  // namespace

extern "C" {
const char *iof_eth_name_get(int id) {
    static std::string name;
    return name = "if" + std::to_string(id), name.c_str();
}
int iof_port_status_get(int, void *record) { return std::memcpy(record, port_words, sizeof port_words), port_result; }
int iof_gpio_set(int line, int value) {
    return gpio_sets.push_back(std::to_string(line) + "=" + std::to_string(value)), gpio_result;
}
int ifaddrs_get_if_netmac(const char *, unsigned char mac[6]) {
    constexpr unsigned char bytes[6] = {0xAB, 0, 0x0C, 1, 2, 0xFF};
    return std::memcpy(mac, bytes, sizeof bytes), mac_result;
}
int sys_get_if_statistics(const char *ifname, void *record) {
    uplink = ifname;
    return std::memcpy(record, counters, sizeof counters), statistics_result;
}
unsigned int system_get_uptime(void) { return uptime_s; }
void log_debug_print(const char *, int, int level, const char *module, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    logged.push_back(std::to_string(level) + " " + module + " " + text);
}
}

TEST(InterfaceNames, FollowWanKindAndProtocol) {
    const struct {
        int wan, kind, protocol;
        const char *name;
    } cases[] = {{1, 3, 0, "if12"},  {4, 3, 1, "if15"},   {1, 3, 2, "ppp1"},  {4, 3, 5, "ppp4"}, {2, 3, 6, nullptr},
                 {2, 3, 8, nullptr}, {2, 3, -1, nullptr}, {1, 1, 0, nullptr}, {1, 2, 0, nullptr}};
    const std::string printed = test::printed_by([&] {
        for (const auto &c : cases) EXPECT_STREQ(ifaddrs_get_wan_ifname(c.wan, c.kind, c.protocol), c.name);
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(logged, Lines{});
    for (const auto &bad : {std::array{0, 3, 0}, {5, 3, 0}, {1, 0, 0}, {1, 4, 0}, {1, 3, 9}})
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(ifaddrs_get_wan_ifname(bad[0], bad[1], bad[2]), nullptr); }),
                    testing::ContainsRegex("common_so.E].*: arg is error.\n"));
    EXPECT_EQ(logged, Lines(5, "2 common_so arg is error."));
    EXPECT_STREQ(get_eth_name(7), "if7");
    EXPECT_STREQ(ifaddrs_get_lan_ifname(), "if0");
    EXPECT_EQ(ifaddrs_get_wan_ifname_gw(5, 2), nullptr);
}

TEST(Ports, TellLinkSpeedAndDuplex) {
    // What the three functions print, with their results.
    const auto states = [](int port, int result, uint32_t link) {
        port_words[0] = link;
        port_result = result;
        unsigned int speed = 0, duplex = 0;
        const std::string text = test::printed_by([&] {
            std::printf("%d ", get_port_link_status(port));
            std::printf("%d ", hal_get_port_link_status(port));
            const int known = hal_get_eth_status(port, &speed, &duplex);
            std::printf("%d %u/%u", known, speed, duplex);
        });
        return std::regex_replace(text, std::regex(" \\d+\\]:"), " LINE]:");
    };
    EXPECT_EQ(states(5, 0, 1), "1 1 0 1000/1");
    EXPECT_EQ(states(5, 0, 0), "0 0 0 1000/1");
    EXPECT_EQ(states(5, 0, 2), "0 0 0 1000/1");
    EXPECT_EQ(states(6, 0, 1), "1 1 Port[6] is invalid1 255/15");
    EXPECT_EQ(states(5, -1, 1), "[get_port_link_status LINE]: get port link status error!\n-1 "
                                "[hal_get_port_link_status LINE]: get port link status error!\n-1 "
                                "[hal_get_eth_status LINE]: get port[5] link status error!\n1 255/15");
}

TEST(Ports, AreNumberedByTheConfiguration) {
    test::store.values = {{"lan.port_num", "3"}, {"lan0.port_id", "4"}, {"lan2.port_id", "4"}, {"lan3.port_id", "9"}};
    EXPECT_EQ(get_lan_port_id_by_index(2), 4);
    EXPECT_EQ(get_portid_by_phyid(4), 0);
    EXPECT_EQ(get_portid_by_phyid(0), 1) << "a port without a number has 0";
    EXPECT_EQ(get_portid_by_phyid(9), -1);
    test::store.values["lan.port_num"] = "2000000000";
    EXPECT_EQ(get_portid_by_phyid(77), -1) << "and soon";
    EXPECT_EQ(get_wan_port_id_by_index(), 0);
}

TEST(Leds, AreSetInOrderThroughFailures) {
    for (const auto &[mode, value] : std::map<int, std::string>{{1, "1"}, {2, "2"}, {3, "3"}, {0, "3"}, {-1, "3"}}) {
        SCOPED_TRACE(mode);
        Lines expected, failures(7, "2 ap_common_so iof_gpio_set failed ret=-5\n");
        for (const char *line : {"0=", "8=", "5=", "1=", "2=", "3=", "4="}) expected.push_back(line + value);
        if (value == "3") failures[0].pop_back();
        for (const int result : {0, -5}) {
            gpio_sets.clear();
            logged.clear();
            gpio_result = result;
            EXPECT_EQ(hal_set_all_led(mode), 0);
            EXPECT_EQ(gpio_sets, expected);
            EXPECT_EQ(logged, result == 0 ? Lines{} : failures);
        }
    }
}

TEST(RecordLock, IsRefusedWhileAnotherProcessHoldsTheFile) {
    const int fd = open("/tmp/locked", O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(lock_set(fd, F_RDLCK), 1);
    const std::string holder = "already locked by pid_" + std::to_string(getpid()) + " (t=0)";
    const auto other = [&] {
        EXPECT_EQ(lock_set(fd, F_RDLCK), 1);
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(lock_set(fd, F_WRLCK), 0); }), HasSubstr(holder));
        EXPECT_EQ(lock_set(fd, F_UNLCK), 1);
        if (testing::Test::HasFailure()) _exit(1);
    };
    EXPECT_EQ(test::run_in_child(other), 0);
    EXPECT_EQ(lock_set(fd, F_WRLCK), 1) << "its own lock stands in nobody's way";
    close(fd);
}

TEST(RecordLock, SaysWhichStepFailed) {
    const int read_only = open("/tmp/read_only", O_RDONLY | O_CREAT, 0600);
    const auto fails = [](int fd, int type) { return test::printed_by([&] { EXPECT_EQ(lock_set(fd, type), 0); }); };
    EXPECT_THAT(fails(999, F_RDLCK), HasSubstr(": Failed(9) to F_GETLK, Bad file descriptor.\n"));
    EXPECT_THAT(fails(read_only, 77), HasSubstr(": Failed(22) to F_GETLK, Invalid argument.\n"));
    EXPECT_THAT(fails(read_only, F_WRLCK), HasSubstr(": Failed(9) to F_SETLKW(1), Bad file descriptor.\n"));
    EXPECT_THAT(fails(999, F_UNLCK), HasSubstr(": Failed(9) to F_SETLKW(2), Bad file descriptor.\n"));
    close(read_only);
}

TEST(MacTexts, AreFormattedAndFound) {
    char out[18] = "kept";
    for (const char *bad : {"", static_cast<const char *>(nullptr)}) EXPECT_EQ(str2mac(bad, out), -1);
    mac_result = -1;
    EXPECT_EQ(getIfMac("br0", out), 1);
    EXPECT_EQ(get_mac_address("192.0.2.9", out), 0) << "a table without lines";

    ASSERT_EQ(system("ip link add arp0 type veth peer name arp1 && ip addr add 192.0.2.1/24 dev arp0 && "
                     "ip link set arp0 up && ip neigh add 192.0.2.9 lladdr 02:00:00:00:00:09 dev arp0 && "
                     "ip neigh add 192.0.2.8 nud failed dev arp0"),
              0);
    for (const char *unknown : {"192.0.2.8", "192.0.2.10", "192.0.2.90"}) {
        EXPECT_EQ(get_mac_address(unknown, out), 3) << "the fields of the last line";
        EXPECT_STREQ(out, "kept") << unknown;
    }
    EXPECT_EQ(get_mac_address("192.0.2.9", out), 3);
    EXPECT_STREQ(out, "02:00:00:00:00:09");

    mac_result = 0;
    EXPECT_EQ(getIfMac("br0", out), 0);
    EXPECT_STREQ(out, "ab:00:0c:01:02:ff");
    for (const char *text : {"0123456789aB", "0123456789aBcdef"}) {
        EXPECT_EQ(str2mac(text, out), 0);
        EXPECT_STREQ(out, "01:23:45:67:89:aB");
    }
}

TEST(MacClone, SavesOnceAndRestoresOnce) {
    test::store = {{{"wl5g.wlan_index", "1"}, {"clone_mac_en", "0"}}};
    test::factory = {{{"KIVRA.wlan1_mac", "factory"}}};
    const auto state = [] {
        auto &values = test::store.values, &factory = test::factory.values;
        return values["clone_mac_en"] + " " + values["wlan1_mac"] + "; " + factory["KIVRA.wlan1_mac"] + " " +
               factory["KIVRA.clone_wlan1_mac"] + "; " + std::to_string(test::store.commits) + " " +
               std::to_string(test::factory.commits);
    };
    const auto told = [] {
        char mac[64] = "";
        return test::printed_by([&] { EXPECT_EQ(getWlanDefaultMac(mac), 0); }) + mac;
    };
    EXPECT_EQ(setWlanDefaultMac(), 0);
    EXPECT_EQ(saveWlanDefaultMac(), 1);
    EXPECT_EQ(saveWlanDefaultMac(), 0);
    EXPECT_EQ(state(), "1 ; factory factory; 1 1");
    test::factory.values["KIVRA.wlan1_mac"] = "cloned";
    EXPECT_EQ(told(), "clone_mac_en = 1\nfactory");
    EXPECT_EQ(setWlanDefaultMac(), 1);
    EXPECT_EQ(setWlanDefaultMac(), 0);
    EXPECT_EQ(state(), "0 factory; factory factory; 2 2");
    test::factory.values["KIVRA.wlan1_mac"] = "another";
    EXPECT_EQ(told(), "clone_mac_en = 0\nanother");
}

// One sample after the other, since the sample before is the process's.
TEST(UplinkRate, ComesFromTwoSamples) {
    const auto rates = [](const char *flag, unsigned int now_s, uint64_t first, uint64_t third, int result = 0) {
        test::store.values["wans.flag"] = flag;
        uptime_s = now_s;
        counters[0] = first;
        counters[2] = third;
        statistics_result = result;
        unsigned int a = 1, b = 1;
        EXPECT_EQ(get_eth0_cur_rate(&a, &b), 0);
        return uplink + " " + std::to_string(a) + " " + std::to_string(b);
    };
    constexpr uint64_t third = 1025024 + 2047, large = third + (uint64_t{1} << 45);
    EXPECT_EQ(rates("1", 100, 102400, 1024000), "if12 80 8") << "totals since start";
    EXPECT_EQ(rates("1", 100, 104448, 1025024), "if12 8 16") << "within the same second";
    EXPECT_EQ(rates("", 102, 106496, third), "if8 0 8") << "two seconds on";
    EXPECT_EQ(rates("", 103, 0, 0, -1), "if8 0 0") << "no statistics";
    EXPECT_EQ(rates("0", 104, 4096, large), "if8 0 16") << "a reset counter, and one beyond 32 bits";
    EXPECT_EQ(rates("2", 50, 5120, large), "if8 0 8") << "a clock that went back";
}
