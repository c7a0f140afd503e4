// product_interfaces_test.cpp: interface names, ports, LEDs, record locks, MAC texts, MAC cloning, uplink throughput.

#include <cstdarg>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "applatform/commands.h"
#include "applatform/interfaces.h"
#include "applatform/system.h"
#include "apsupport/product.h"
#include "foundation/byte_order.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_store.h"

namespace {

using Lines = std::vector<std::string>;

Lines logged;     // "level module text" of the platform's logger
Lines gpio_sets;  // "line=value"
int gpio_result;

struct Port {
    int result = 0;
    uint32_t link = 1, speed = 2, duplex = 3;
} port;

struct Uplink {
    std::string ifname;
    uint64_t counters[4] = {};
    unsigned int uptime_s = 0;
    int result = 0;
} uplink;

int mac_result;

}  // namespace

extern "C" {
const char *iof_eth_name_get(int id) {
    static std::string name;
    name = "if" + std::to_string(id);
    return name.c_str();
}
int iof_port_status_get(int, void *record) {
    const uint32_t words[] = {port.link, port.speed, port.duplex};
    std::memcpy(record, words, sizeof words);
    return port.result;
}
int iof_gpio_set(int line, int value) {
    gpio_sets.push_back(std::to_string(line) + "=" + std::to_string(value));
    return gpio_result;
}
int ifaddrs_get_if_netmac(const char *, unsigned char mac[6]) {
    const unsigned char bytes[] = {0xAB, 0, 0x0C, 1, 2, 0xFF};
    std::memcpy(mac, bytes, 6);
    return mac_result;
}
int sys_get_if_statistics(const char *ifname, void *record) {
    uplink.ifname = ifname;
    std::memcpy(record, uplink.counters, sizeof uplink.counters);
    return uplink.result;
}
unsigned int system_get_uptime(void) { return uplink.uptime_s; }
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
    EXPECT_STREQ(get_eth_name(7), "if7");
    EXPECT_STREQ(ifaddrs_get_lan_ifname(), "if0");
    const struct {
        int wan, kind, protocol;
        const char *name;
        bool is_logged;
    } cases[] = {
        {1, 3, 0, "if12", false},  {4, 3, 1, "if15", false},  {1, 3, 2, "ppp1", false},   {4, 3, 5, "ppp4", false},
        {2, 3, 6, nullptr, false}, {2, 3, 8, nullptr, false}, {2, 3, -1, nullptr, false}, {1, 1, 0, nullptr, false},
        {1, 2, 0, nullptr, false}, {0, 3, 0, nullptr, true},  {5, 3, 0, nullptr, true},   {1, 0, 0, nullptr, true},
        {1, 4, 0, nullptr, true},  {1, 3, 9, nullptr, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.wan << " " << c.kind << " " << c.protocol);
        logged.clear();
        const std::string printed =
            test::printed_by([&] { EXPECT_STREQ(ifaddrs_get_wan_ifname(c.wan, c.kind, c.protocol), c.name); });
        EXPECT_EQ(printed.find("common_so.E]") != std::string::npos, c.is_logged);
        EXPECT_EQ(logged, c.is_logged ? Lines{"2 common_so arg is error."} : Lines{});
    }
    EXPECT_EQ(ifaddrs_get_wan_ifname_gw(5, 2), nullptr);
}

TEST(Ports, TellLinkSpeedAndDuplex) {
    const struct {
        const char *what;
        int result;
        uint32_t link;
        int expected;
    } cases[] = {{"up", 0, 1, 1}, {"down", 0, 0, 0}, {"another state", 0, 2, 0}, {"failed", -1, 1, -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        port = {c.result, c.link, 100, 1};
        const std::string both = test::printed_by([&] {
            EXPECT_EQ(get_port_link_status(3), c.expected);
            EXPECT_EQ(hal_get_port_link_status(3), c.expected);
        });
        EXPECT_THAT(both, testing::MatchesRegex(
                              c.result == 0 ? ""
                                            : "\\[get_port_link_status [0-9]+\\]: get port link status error!\n"
                                              "\\[hal_get_port_link_status [0-9]+\\]: get port link status error!\n"));
    }
    unsigned int speed = 0, duplex = 0;
    port = {0, 1, 1000, 1};
    EXPECT_EQ(hal_get_eth_status(5, &speed, &duplex), 0);
    EXPECT_EQ(speed, 1000u);
    EXPECT_EQ(duplex, 1u);
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(hal_get_eth_status(6, &speed, &duplex), 1); }), "Port[6] is invalid");
    EXPECT_EQ(speed, 255u);
    EXPECT_EQ(duplex, 15u);
    port.result = -1;
    speed = duplex = 0;
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(hal_get_eth_status(2, &speed, &duplex), 1); }),
                testing::MatchesRegex("\\[hal_get_eth_status [0-9]+\\]: get port\\[2\\] link status error!\n"));
    EXPECT_EQ(speed, 255u);
}

TEST(Ports, AreNumberedByTheConfiguration) {
    test::store.values = {{"lan.port_num", "3"}, {"lan0.port_id", "4"}, {"lan2.port_id", "4"}, {"lan3.port_id", "9"}};
    EXPECT_EQ(get_lan_port_id_by_index(2), 4);
    EXPECT_EQ(get_portid_by_phyid(4), 0);
    EXPECT_EQ(get_portid_by_phyid(0), 1);  // a port without a number has 0
    EXPECT_EQ(get_portid_by_phyid(9), -1);
    test::store.values["lan.port_num"] = "2000000000";
    EXPECT_EQ(get_portid_by_phyid(77), -1);
    EXPECT_EQ(get_wan_port_id_by_index(), 0);
}

TEST(Leds, AreSetInOrderThroughFailures) {
    for (const auto &[mode, value] : std::map<int, int>{{1, 1}, {2, 2}, {3, 3}, {0, 3}, {-1, 3}}) {
        gpio_sets.clear();
        logged.clear();
        gpio_result = 0;
        EXPECT_EQ(hal_set_all_led(mode), 0);
        Lines expected;
        for (const char *line : {"0", "8", "5", "1", "2", "3", "4"})
            expected.push_back(std::string(line) + "=" + std::to_string(value));
        EXPECT_EQ(gpio_sets, expected);
        EXPECT_TRUE(logged.empty());

        gpio_result = -5;
        EXPECT_EQ(hal_set_all_led(mode), 0);
        Lines failures(7, "2 ap_common_so iof_gpio_set failed ret=-5\n");
        if (value == 3) failures[0].pop_back();
        EXPECT_EQ(logged, failures);
    }
}

TEST(RecordLock, IsRefusedWhileAnotherProcessHoldsTheFile) {
    const int fd = open("/tmp/locked", O_RDWR | O_CREAT, 0600);
    int ready[2], done[2];
    ASSERT_EQ(pipe(ready) + pipe(done), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        char byte = static_cast<char>(lock_set(fd, F_RDLCK));
        [[maybe_unused]] const ssize_t moved = write(ready[1], &byte, 1) + read(done[0], &byte, 1);
        _exit(lock_set(fd, F_UNLCK) == 1 ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 1);

    EXPECT_EQ(lock_set(fd, F_RDLCK), 1);
    const std::string refused = test::printed_by([&] { EXPECT_EQ(lock_set(fd, F_WRLCK), 0); });
    EXPECT_THAT(refused, testing::HasSubstr("already locked by pid_" + std::to_string(holder) + " (t=0)"));
    EXPECT_EQ(lock_set(fd, F_UNLCK), 1);

    ASSERT_EQ(write(done[1], &byte, 1), 1);
    int status = -1;
    waitpid(holder, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(lock_set(fd, F_WRLCK), 1);
    EXPECT_EQ(lock_set(fd, F_WRLCK), 1);  // its own lock stands in nobody's way
    close(fd);
}

TEST(RecordLock, SaysWhichStepFailed) {
    const int read_only = open("/tmp/locked", O_RDONLY);
    const struct {
        const char *what;
        int fd, type;
        const char *text;
    } cases[] = {
        {"a closed descriptor", 999, F_RDLCK, "Failed(9) to F_GETLK, Bad file descriptor."},
        {"an unknown type", read_only, 77, "Failed(22) to F_GETLK, Invalid argument."},
        {"a write lock on a file opened for reading", read_only, F_WRLCK,
         "Failed(9) to F_SETLKW(1), Bad file descriptor."},
        {"unlocking a closed descriptor", 999, F_UNLCK, "Failed(9) to F_SETLKW(2), Bad file descriptor."},
    };
    for (const auto &c : cases)
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(lock_set(c.fd, c.type), 0) << c.what; }),
                    testing::HasSubstr(c.text));
    close(read_only);
}

TEST(MacTexts, AreFormattedAndFound) {
    char out[18] = "kept";
    EXPECT_EQ(getIfMac("br0", out), 0);
    EXPECT_STREQ(out, "ab:00:0c:01:02:ff");
    mac_result = -1;
    EXPECT_EQ(getIfMac("br0", out), 1);

    const struct {
        const char *text, *expected;
        int result;
    } cases[] = {
        {"0123456789aB", "01:23:45:67:89:aB", 0}, {"0123456789abcdef", "01:23:45:67:89:ab", 0}, {"", "kept", -1}};
    for (const auto &c : cases) {
        std::strcpy(out, "kept");
        EXPECT_EQ(str2mac(c.text, out), c.result);
        EXPECT_STREQ(out, c.expected);
    }
    EXPECT_EQ(str2mac(nullptr, out), -1);

    ASSERT_EQ(system("ip link add arp0 type veth peer name arp1 && ip addr add 192.0.2.1/24 dev arp0 && "
                     "ip link set arp0 up && ip neigh add 192.0.2.9 lladdr 02:00:00:00:00:09 dev arp0"),
              0);
    std::strcpy(out, "kept");
    EXPECT_EQ(get_mac_address("192.0.2.10", out), 4 - 1);  // the fields of the last line
    EXPECT_STREQ(out, "kept");
    EXPECT_EQ(get_mac_address("192.0.2.9", out), 3);
    EXPECT_STREQ(out, "02:00:00:00:00:09");
    EXPECT_EQ(system("ip link del arp0"), 0);
    EXPECT_EQ(get_mac_address("192.0.2.9", out), 0);
}

TEST(MacClone, SavesOnceAndRestoresOnce) {
    test::store = {};
    test::factory = {};
    test::store.values = {{"wl5g.wlan_index", "1"}, {"clone_mac_en", "0"}};
    test::factory.values = {{"KIVRA.wlan1_mac", "factory"}};
    char out[64] = "";

    EXPECT_EQ(setWlanDefaultMac(), 0);
    EXPECT_EQ(saveWlanDefaultMac(), 1);
    EXPECT_EQ(saveWlanDefaultMac(), 0);
    EXPECT_EQ(test::factory.values["KIVRA.clone_wlan1_mac"], "factory");
    EXPECT_EQ(test::store.values["clone_mac_en"], "1");
    EXPECT_EQ(test::store.commits + test::factory.commits, 2);

    test::factory.values["KIVRA.wlan1_mac"] = "cloned";
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(getWlanDefaultMac(out), 0); }), "clone_mac_en = 1\n");
    EXPECT_STREQ(out, "factory");
    EXPECT_EQ(setWlanDefaultMac(), 1);
    EXPECT_EQ(setWlanDefaultMac(), 0);
    EXPECT_EQ(test::factory.values["KIVRA.wlan1_mac"], "factory");
    EXPECT_EQ(test::store.values["wlan1_mac"], "factory");
    EXPECT_EQ(test::store.values["clone_mac_en"], "0");
    EXPECT_EQ(test::store.commits + test::factory.commits, 4);
    test::factory.values["KIVRA.wlan1_mac"] = "another";
    EXPECT_EQ(test::printed_by([&] { getWlanDefaultMac(out); }), "clone_mac_en = 0\n");
    EXPECT_STREQ(out, "another");
}

// One sample after the other, since the sample before is the process's.
TEST(UplinkRate, ComesFromTwoSamples) {
    const struct {
        const char *what, *flag;
        unsigned int uptime_s;
        uint64_t first, third;
        int result;
        unsigned int rate_a, rate_b;
        const char *ifname;
    } samples[] = {
        {"totals since start", "1", 100, 102400, 1024000, 0, 80, 8, "if12"},
        {"within the same second", "1", 100, 104448, 1025024, 0, 8, 16, "if12"},
        {"two seconds on", "", 102, 106496, 1025024 + 2047, 0, 0, 8, "if8"},
        {"no statistics", "", 103, 0, 0, -1, 0, 0, "if8"},
        {"a reset counter", "0", 104, 4096, 1025024 + 2047 + (uint64_t{1} << 45), 0, 0, 16, "if8"},
        {"a clock that went back", "2", 50, 5120, 1025024 + 2047 + (uint64_t{1} << 45), 0, 0, 8, "if8"},
    };
    for (const auto &s : samples) {
        SCOPED_TRACE(s.what);
        test::store.values["wans.flag"] = s.flag;
        uplink = {"", {s.first, 7, s.third, 7}, s.uptime_s, s.result};
        unsigned int a = 1, b = 1;
        EXPECT_EQ(get_eth0_cur_rate(&a, &b), 0);
        EXPECT_EQ(a, s.rate_a);
        EXPECT_EQ(b, s.rate_b);
        EXPECT_EQ(uplink.ifname, s.ifname);
    }
}
