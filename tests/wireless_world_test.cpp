// wireless_world_test.cpp: the library on the host platform's virtual radios: one world, changed by several processes,
// with drivers that fail and drivers that answer nonsense.

#include <arpa/inet.h>
#include <cmath>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "applatform/interfaces.h"
#include "applatform/kernel_rules.h"
#include "applatform/message_bus.h"
#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"

namespace {

using testing::HasSubstr;

constexpr char scenario_file[] = "/apbox/world/scenario.json", state_file[] = "/apbox/world/state.json";

// Two access points ten metres apart, a neighbour, two clients. At exponent 3 and 40 dB at one metre, 20 dBm arrive
// with 20 - 40 - 30 = -50 dBm at ten metres.
std::string scenario(const std::string &faults = "", const std::string &more = "") {
    const auto access_point = [](const std::string &name, int number, const std::string &position) {
        const std::string mac = "\"bssid\":\"02:00:00:00:0" + std::to_string(number);
        return R"({"name":")" + name + R"(","position":)" + position +
               R"(,"radios":[{"band":"2.4G","channel":6,"power_dbm":20,"networks":[{"ssid":"house",)" + mac +
               R"(:24","security":"wpa2-psk"}]},{"band":"5G","channel":36,"bandwidth":80,"radar":[100],)" +
               R"("networks":[{"ssid":"house","os_name":"ath1","encoding":"gb2312",)" + mac + R"(:50"}]}]})";
    };
    return R"({"access_points":[)" + access_point("ap1", 1, "[0,0]") + "," + access_point("ap2", 2, "[10,0]") +
           R"(],"neighbours":[{"band":"2.4G","channel":9,"bandwidth":40,"extension":13,"power_dbm":10,"load":0.5,)"
           R"("position":[0,1],"ssid":"next","bssid":"02:00:00:00:99:99","security":"wep"},{"band":"2.4G","channel":1,)"
           R"("position":[100000,0],"ssid":"far","bssid":"02:00:00:00:99:98"}],"clients":[{"mac":"02:00:00:00:0c:01",)"
           R"("ip":"10.0.0.1","access_point":"ap1","interface":"wlan0.0","position":[10,0],"received_per_second":1000,)"
           R"("received_before":4294967000,"connected_before":100},{"mac":"02:00:00:00:0c:02","ip":"10.0.0.2",)"
           R"("access_point":"ap1","interface":"wlan0.0","address_in":"file"}],"faults":[)" +
           faults + "]" + more + "}";
}

struct WirelessWorld : testing::Test {
    void SetUp() override {
        be("ap1");
        start(scenario());
    }
    static void be(const std::string &name) { test::write_text("/apbox/name", name + "\n"); }
    static void start(const std::string &text) {
        std::remove(state_file);
        test::write_text(scenario_file, text);
    }
    static std::string scan(const char *ifname, const char *ssid = nullptr) {
        auto list = std::make_unique<WifiScanList>();
        if (wifi_interface_get_scan_results_by_ssid(ifname, ssid, list.get()) != 0) return "failed";
        std::string found;
        for (int i = 0; i < list->count; ++i) {
            const WifiScanResult &r = list->records[i];
            found += std::string(r.ssid) + "/" + r.num_a + "/" + r.rssi + "/" + r.sideband + "/" + r.security + " ";
        }
        return found;
    }
    static std::string channel(const char *ifname) {
        int info[4] = {};
        if (wifi_get_interface_chaninfo(ifname, info) != 0) return "failed";
        return std::to_string(info[1]) + "/" + std::to_string(info[2]) + "/" + std::to_string(info[3]);
    }
    static int switch_to(const char *ifname, int to, int bandwidth) {
        const int request[2] = {to, bandwidth};
        return wifi_interface_switch_chan(ifname, request);
    }
};

void send_broadcast() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0), on = 1;
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = 9;
    to.sin_addr.s_addr = inet_addr("192.0.2.255");
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    EXPECT_EQ(sendto(fd, "x", 1, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 1);
    close(fd);
}

}  // namespace

extern "C" unsigned int sleep(unsigned int) { return 0; }

TEST_F(WirelessWorld, HearsWhatDistanceAndPowerLetThrough) {
    EXPECT_EQ(scan("wlan0.0"), "next/9/-30/upper/wep house/6/-50/none/wpa2-psk/aes ");
    EXPECT_EQ(scan("wlan0", "house"), "house/6/-50/none/wpa2-psk/aes ");
    EXPECT_EQ(scan("wlan0", "nobody"), "");
    EXPECT_EQ(scan("wlan9"), "failed");
    be("ap2");
    const unsigned char power[2] = {23, 5};
    EXPECT_EQ(wifi_interface_set_txpower("wlan0.0", power), 0);
    be("ap1");
    EXPECT_EQ(scan("wlan0", "house"), "house/6/-65/none/wpa2-psk/aes ");
}

TEST_F(WirelessWorld, ShowsASwitchToTheOthersAtOnce) {
    const int from_another_process = test::run_in_child([] {
        be("ap2");
        if (switch_to("wlan0.0", 11, 40) != 0 || channel("wlan0.0") != "11/40/7") _exit(1);
    });
    EXPECT_EQ(from_another_process, 0);
    be("ap1");
    EXPECT_EQ(scan("wlan0", "house"), "house/11/-50/lower/wpa2-psk/aes ");
    EXPECT_EQ(channel("wlan0.0"), "6/20/0");
}

TEST_F(WirelessWorld, SwitchesOnlyToWhatTheRadioCanDo) {
    const auto after = [](const char *ifname, int to, int bandwidth, int result) {
        start(scenario());
        EXPECT_EQ(switch_to(ifname, to, bandwidth), result);
        return channel(ifname);
    };
    EXPECT_EQ(after("wlan1.0", 149, 80, 0), "149/80/153");
    EXPECT_EQ(after("ath1", 40, 40, 0), "40/40/36");
    EXPECT_EQ(after("wlan1", 104, 20, 0), "104/20/0");   // a radar channel in peace
    EXPECT_EQ(after("wlan1", 100, 20, -1), "36/80/40");  // radar
    EXPECT_EQ(after("wlan1", 6, 20, -1), "36/80/40");    // a channel of the other band
    EXPECT_EQ(after("wlan1", 36, 60, -1), "36/80/40");   // a bandwidth between
    EXPECT_EQ(after("wlan0", 1, 80, -1), "6/20/0");      // too wide for the band
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan1", 100), 1);
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan1", 36), 0);
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan0", 6), 0);
}

TEST_F(WirelessWorld, MeasuresLoadByOverlap) {
    WifiSpectrum spectrum[13];
    ASSERT_EQ(wifi_interface_get_spectrum("wlan0", spectrum, 13), 13);
    const auto expect = [&](uint32_t on_channel, uint32_t networks, double load) {
        const auto &[channel, heard, percent] = spectrum[on_channel - 1];
        EXPECT_EQ(channel, on_channel);
        EXPECT_EQ(heard, networks) << on_channel;
        EXPECT_EQ(percent, static_cast<uint32_t>(std::lround(100 * load))) << on_channel;
    };
    // The neighbour, on the air half of the time, covers the 40 MHz around the channels 9 and 13.
    expect(1, 0, 0);
    expect(6, 1, 1 - (1 - 0.01) * (1 - 0.5 * 0.25));
    expect(9, 1, 1 - (1 - 0.01 * 0.25) * 0.5);
    expect(11, 0, 0.5);
}

TEST_F(WirelessWorld, ListsClientsWithCountersAndAddresses) {
    WifiClientInfo clients[4];
    ASSERT_EQ(wifi_get_client_list("wlan0.0", clients, 4), 2);
    std::string first;
    for (const char *text : {clients[0].mac, clients[0].ip, clients[0].stat_b, clients[0].conn_time, clients[0].noise})
        first += text + std::string(" ");
    EXPECT_EQ(first + clients[0].stat_text, "02:00:00:00:0c:01 10.0.0.1 -55 100 -95 11ax");
    EXPECT_STREQ(clients[1].ip, "10.0.0.2");
    // A world that began three seconds ago: the counter has wrapped.
    std::string state = test::read_text(state_file);
    const size_t at = state.find("started_at");
    const double started = std::stod(state.substr(state.find(':', at) + 1));
    test::write_text(state_file, "{\"started_at\": " + std::to_string(started - 3) + "}");
    ASSERT_EQ(wifi_get_client_list("wlan0.0", clients, 1), 1);
    EXPECT_LT(clients[0].bytes_a, 100000u);
    EXPECT_GE(clients[0].bytes_a, 3000u - 296u);
    EXPECT_STREQ(clients[0].conn_time, "103");
    EXPECT_EQ(wifi_get_interface_client_num("wlan1.0"), 0);
}

TEST_F(WirelessWorld, FailsOrAnswersNonsenseWhenTold) {
    start(scenario(R"({"call":"uwb_scan","interface":"wlan0","after":1,"times":2},)"
                   R"({"call":"uwb_get_sta_info","nonsense":true},{"call":"uwb_get_channel_list","nonsense":true},)"
                   R"({"call":"km_get_online_ip","access_point":"ap2"},{"call":"iof_gpio_set","result":-16})"));
    const std::string results[] = {"next/9/-30/upper/wep house/6/-50/none/wpa2-psk/aes ", "failed"};
    EXPECT_EQ(scan("wlan0"), results[0]);
    EXPECT_EQ(scan("wlan0"), results[1]);  // both tries
    EXPECT_EQ(scan("wlan0"), results[0]);
    std::vector<WifiClientInfo> clients(128);
    EXPECT_EQ(wifi_get_interface_client_list("wlan0.0", clients.data(), 128), 128);
    EXPECT_STREQ(clients[127].mac, "7f:7f:7f:7f:7f:7f");
    std::vector<WifiSpectrum> spectrum(64);
    EXPECT_LE(wifi_interface_get_spectrum("wlan0", spectrum.data(), 64), 64);
    EXPECT_EQ(iof_gpio_set(3, 1), -16);
    OnlineIpTable table;
    EXPECT_EQ(get_client_ip_mac(&table), 0);
    be("ap2");
    EXPECT_EQ(get_client_ip_mac(&table), 1);
}

TEST_F(WirelessWorld, RefusesAScenarioThatMakesNoSense) {
    const auto complaint = [](const std::string &text) {
        start(text);
        const std::string file = "/tmp/complaint";
        EXPECT_EQ(test::run_in_child([&] {
                      dup2(open(file.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
                      if (uwb_check_dev_status("wlan0") != -1 || uwb_check_dev_status("wlan0") != -1) _exit(1);
                  }),
                  0);
        std::string said = test::read_text(file);
        EXPECT_EQ(std::ranges::count(said, '\n'), 1) << text;
        return said;
    };
    EXPECT_THAT(complaint("{\n\n\"access_points\": [}"), HasSubstr("no JSON object, line 3"));
    EXPECT_THAT(complaint("[]"), HasSubstr("no JSON object"));
    EXPECT_THAT(complaint(R"({"clients":[{"mac":"02:00:00:00:00:00:00"}]})"), HasSubstr("is no MAC address"));
    EXPECT_THAT(complaint(R"({"neighbours":[{"bssid":"02:00:00:00:00:00","band":"6G"}]})"),
                HasSubstr("band \"6G\" is neither"));
    EXPECT_THAT(complaint(R"({"access_points":[{"name":"a","radios":[{"band":"5G","channel":6}]}]})"),
                HasSubstr("starts on channel 6"));
    EXPECT_THAT(complaint(R"({"access_points":[{}]})"), HasSubstr("has no name"));
}

TEST_F(WirelessWorld, KeepsPrivateElementsGpioLinesAndLocks) {
    WifiPrivateIe port = {};
    port.port = 98;
    EXPECT_EQ(wifi_interface_create_private_ie(&port), -1);  // the facility is off
    EXPECT_EQ(wifi_interface_enable_private_ie(), 0);
    EXPECT_EQ(wifi_interface_create_private_ie(&port), 0);
    EXPECT_EQ(wifi_interface_destory_private_ie(98), 0);
    EXPECT_EQ(wifi_interface_destory_private_ie(98), -1);

    int locked = -1;
    EXPECT_EQ(iof_gpio_lock_set(7, 5), 0);
    EXPECT_EQ(iof_gpio_lock_get(7, &locked), 0);
    EXPECT_EQ(locked, 1);
    EXPECT_EQ(iof_gpio_set(-1, 0), -1);
    EXPECT_STREQ(iof_gpio_dir_get(37), "gpio37");
    EXPECT_EQ(iof_gpio_dir_get(11), nullptr);
}

TEST_F(WirelessWorld, LosesNoChangeOfManyProcesses) {
    constexpr int processes = 6, changes = 20;
    for (int p = 0; p < processes; ++p) {
        if (fork() != 0) continue;
        for (int i = 0; i < changes; ++i)
            if (iof_gpio_lock_set(p * changes + i, 1) != 0) _exit(1);
        _exit(0);
    }
    for (int p = 0; p < processes; ++p) {
        int status = -1;
        wait(&status);
        EXPECT_EQ(status, 0);
    }
    for (int line = 0; line < processes * changes; ++line) {
        int locked = 0;
        EXPECT_EQ(iof_gpio_lock_get(line, &locked), 0);
        EXPECT_EQ(locked, 1) << line;
    }
}

TEST_F(WirelessWorld, PrefersTheMachinesOwnInterfaces) {
    start(scenario("", R"(,"interfaces":[{"id":8,"name":"up0"}],"ports":[{"port":1,"link":1,"speed":100,"duplex":0},)"
                       R"({"port":2,"interface":"up0"}])"));
    ASSERT_EQ(system("ip link add up0 address 02:00:00:00:aa:01 type veth peer name up1 && ip link set up0 up && "
                     "ip link set up1 up && ip addr add 192.0.2.1/24 dev up0"),
              0);
    send_broadcast();
    const struct {
        const char *name;
        int found, last_mac_byte, is_up;
    } interfaces[] = {{"up0", 0, 1, 1}, {"wlan0.0", 0, 0x24, 1}, {"nowhere", -1, 0, 0}};
    for (const auto &i : interfaces) {
        unsigned char mac[6] = {};
        uint64_t counters[4] = {};
        EXPECT_EQ(ifaddrs_get_if_netmac(i.name, mac), i.found);
        EXPECT_EQ(mac[5], i.last_mac_byte);
        EXPECT_EQ(ifaddrs_get_interface_downup(i.name) == 1, i.is_up == 1);
        EXPECT_EQ(sys_get_if_statistics(i.name, counters), i.found);
    }
    uint64_t counters[4] = {};
    EXPECT_EQ(sys_get_if_statistics("up1", counters), 0);
    EXPECT_GT(counters[0], counters[1]);  // bytes come before packets
    EXPECT_GT(counters[1], 0u);

    EXPECT_STREQ(iof_eth_name_get(8), "up0");
    EXPECT_STREQ(iof_eth_name_get(12), "eth1");
    EXPECT_EQ(iof_eth_name_get(99), nullptr);
    uint32_t record[3] = {};
    EXPECT_EQ(iof_port_status_get(1, record), 0);
    EXPECT_EQ(record[1], 100u);
    EXPECT_EQ(iof_port_status_get(2, record), 0);
    EXPECT_EQ(record[0], 1u);
    EXPECT_EQ(iof_port_status_get(3, record), -1);
    EXPECT_EQ(system("ip link del up0"), 0);
}

TEST(KernelRules, AreKeptUntilTheDeviceRestarts) {
    const auto rule = [](const char *text) {
        return std::unique_ptr<cJSON, void (*)(cJSON *)>(cJSON_Parse(text), cJSON_Delete);
    };
    const auto rules = [] {
        std::string text = test::read_text("/var/run/kernel_rules.json");
        std::erase_if(text, [](char c) { return c == '\n' || c == '\t' || c == ' '; });
        return text;
    };
    EXPECT_EQ(km_dns_redirect_add_rule(rule(R"({"Domain":"a.lan","Ip":"10.0.0.1"})").get()), 0);
    EXPECT_EQ(km_dns_redirect_add_rule(rule(R"({"Domain":"a.lan","Ip":"10.0.0.2"})").get()), 0);
    EXPECT_EQ(km_dns_redirect_del_rule(rule(R"({"Domain":"b.lan"})").get()), -1);
    EXPECT_EQ(km_dns_redirect_add_rule(rule(R"({"Ip":"10.0.0.2"})").get()), -1);
    EXPECT_EQ(km_auto_wizards_ip("10.0.0.1", "255.0.0.0"), 0);
    EXPECT_EQ(km_auto_wizards_enable(), 0);
    EXPECT_EQ(km_interface_isolate_enable(), 0);
    EXPECT_EQ(rules(), R"({"dns_redirect":[{"Domain":"a.lan","Ip":"10.0.0.2"}],"auto_wizards":{"address":)"
                       R"({"ip":"10.0.0.1","mask":"255.0.0.0"},"enabled":true},"interface_isolate":true})");
    EXPECT_EQ(km_dns_redirect_del_rule(rule(R"({"Domain":"a.lan"})").get()), 0);
    EXPECT_THAT(rules(), HasSubstr(R"("dns_redirect":[])"));
}

namespace {

// Just enough MQTT to hear one topic: packets shorter than 128 bytes, delivered at most once.
std::string mqtt_text(const std::string &text) { return std::string{'\0', static_cast<char>(text.size())} + text; }
std::string mqtt_packet(char kind, const std::string &body) {
    return std::string{kind, static_cast<char>(body.size())} + body;
}

void expect_received(int fd, const std::string &expected) {
    std::string bytes(expected.size(), '\0');
    EXPECT_EQ(recv(fd, bytes.data(), bytes.size(), MSG_WAITALL), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(bytes, expected);
}

}  // namespace

TEST(MessageBus, DeliversThroughTheBroker) {
    EXPECT_EQ(holymsg_publish("topic", "x", 1), -1);  // no broker yet
    ASSERT_EQ(system("/sbin/bus_start.sh"), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = {AF_UNIX, "/var/run/bus.socket"};
    ASSERT_EQ(connect(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const std::string topic = mqtt_text("ugw.wserver.message"), head("\4\2\0\x3c", 4), number("\0\1", 2);
    const std::string hello = mqtt_packet('\x10', mqtt_text("MQTT") + head + mqtt_text("listener")) +
                              mqtt_packet('\x82', number + topic + '\0');
    ASSERT_EQ(send(listener, hello.data(), hello.size(), 0), static_cast<ssize_t>(hello.size()));
    expect_received(listener, mqtt_packet('\x20', std::string(2, '\0')) + mqtt_packet('\x90', number + '\0'));

    const int before = test::open_descriptors();
    EXPECT_EQ(send_msg_to_wlan_server("{\"op\":1}"), 0);
    EXPECT_EQ(send_msg_to_wlan_server(""), 0);
    EXPECT_EQ(holymsg_publish("wild/#", "x", 1), -1);
    EXPECT_EQ(test::open_descriptors(), before);
    expect_received(listener, mqtt_packet('\x30', topic + "{\"op\":1}") + mqtt_packet('\x30', topic));
    close(listener);
}

namespace {

std::string timers_run;
int timers_left;

void note_timer(void *name) {
    timers_run += static_cast<const char *>(name);
    __atomic_fetch_sub(&timers_left, 1, __ATOMIC_RELEASE);
}
void set_timer(double seconds, const char *name) {
    EXPECT_EQ(holymsg_set_timeout(seconds, note_timer, const_cast<char *>(name)), 0);
}
void arm_another(void *) { holymsg_set_timeout(0, note_timer, const_cast<char *>("d")); }

void wait_for_timers() {
    for (int tries = 0; __atomic_load_n(&timers_left, __ATOMIC_ACQUIRE) > 0 && tries < 2000; ++tries) usleep(1000);
}

}  // namespace

TEST(MessageBus, RunsTimersOnceInOrderAndLetsThemArmOthers) {
    timers_run.clear();
    timers_left = 4;
    set_timer(0.06, "c");
    set_timer(0.02, "a");
    set_timer(0.02, "b");
    EXPECT_EQ(holymsg_set_timeout(0.09, arm_another, nullptr), 0);
    EXPECT_EQ(holymsg_set_timeout(0, nullptr, nullptr), -1);
    EXPECT_EQ(holymsg_set_timeout(std::nan(""), note_timer, nullptr), -1);
    wait_for_timers();
    EXPECT_EQ(timers_run, "abcd");
}

TEST(MessageBus, GivesAForkedChildTimersOfItsOwn) {
#ifdef __mips__
    GTEST_SKIP() << "the user emulation cannot start a thread in a child of a threaded process";
#endif
    timers_left = 2;
    set_timer(0.03, "p");
    EXPECT_EQ(test::run_in_child([] {
                  timers_run.clear();
                  timers_left = 1;
                  set_timer(0.01, "x");
                  wait_for_timers();
                  usleep(50000);
                  if (timers_run != "x") _exit(1);
              }),
              0);
    set_timer(0, "q");
    wait_for_timers();
    EXPECT_TRUE(timers_run.ends_with("pq"));
}
