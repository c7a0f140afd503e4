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
    const struct {
        const char *what, *ifname;
        int channel, bandwidth, result;
        const char *after;
    } cases[] = {
        {"a free channel", "wlan1.0", 149, 80, 0, "149/80/153"},
        {"the upper of a pair", "ath1", 40, 40, 0, "40/40/36"},
        {"a radar channel in peace", "wlan1", 104, 20, 0, "104/20/0"},
        {"radar", "wlan1", 100, 20, -1, "36/80/40"},
        {"a channel of the other band", "wlan1", 6, 20, -1, "36/80/40"},
        {"a bandwidth between", "wlan1", 36, 60, -1, "36/80/40"},
        {"too wide for the band", "wlan0", 1, 80, -1, "6/20/0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        start(scenario());
        EXPECT_EQ(switch_to(c.ifname, c.channel, c.bandwidth), c.result);
        EXPECT_EQ(channel(c.ifname), c.after);
    }
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan1", 100), 1);
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan1", 36), 0);
    EXPECT_EQ(wifi_current_chan_is_dfs("wlan0", 6), 0);
}

TEST_F(WirelessWorld, MeasuresLoadByOverlap) {
    WifiSpectrum spectrum[13];
    ASSERT_EQ(wifi_interface_get_spectrum("wlan0", spectrum, 13), 13);
    // The neighbour, on the air half of the time, covers the 40 MHz around the channels 9 and 13; channel 5 touches
    // none.
    const struct {
        int channel;
        uint32_t networks;
        double load;
    } expected[] = {
        {1, 0, 0}, {6, 1, 1 - (1 - 0.01) * (1 - 0.5 * 0.25)}, {9, 1, 1 - (1 - 0.01 * 0.25) * 0.5}, {11, 0, 0.5}};
    for (const auto &e : expected) {
        SCOPED_TRACE(e.channel);
        const WifiSpectrum &s = spectrum[e.channel - 1];
        EXPECT_EQ(s.channel, static_cast<uint32_t>(e.channel));
        EXPECT_EQ(s.word_1, e.networks);
        EXPECT_EQ(s.word_3, static_cast<uint32_t>(std::lround(100 * e.load)));
    }
}

TEST_F(WirelessWorld, ListsClientsWithCountersAndAddresses) {
    WifiClientInfo clients[4];
    ASSERT_EQ(wifi_get_client_list("wlan0.0", clients, 4), 2);
    EXPECT_STREQ(clients[0].mac, "02:00:00:00:0c:01");
    EXPECT_STREQ(clients[0].ip, "10.0.0.1");
    EXPECT_STREQ(clients[1].ip, "10.0.0.2");
    EXPECT_STREQ(clients[0].stat_b, "-55");
    EXPECT_STREQ(clients[0].conn_time, "100");
    EXPECT_STREQ(clients[0].noise, "-95");
    EXPECT_STREQ(clients[0].stat_text, "11ax");
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
    const struct {
        const char *what;
        std::string text, complaint;
    } cases[] = {
        {"no JSON", "{\n\n\"access_points\": [}", "no JSON object, line 3"},
        {"an array", "[]", "no JSON object"},
        {"a MAC", R"({"clients":[{"mac":"02:00:00:00:00:00:00"}]})", "is no MAC address"},
        {"a band", R"({"neighbours":[{"bssid":"02:00:00:00:00:00","band":"6G"}]})", "band \"6G\" is neither"},
        {"a channel", R"({"access_points":[{"name":"a","radios":[{"band":"5G","channel":6}]}]})",
         "starts on channel 6"},
        {"a name", R"({"access_points":[{}]})", "has no name"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        start(c.text);
        const std::string file = "/tmp/complaint";
        EXPECT_EQ(test::run_in_child([&] {
                      dup2(open(file.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
                      if (uwb_check_dev_status("wlan0") != -1 || uwb_check_dev_status("wlan0") != -1) _exit(1);
                  }),
                  0);
        const std::string said = test::read_text(file);
        EXPECT_THAT(said, HasSubstr(c.complaint));
        EXPECT_EQ(std::ranges::count(said, '\n'), 1);
    }
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
    unsigned char mac[6] = {};
    EXPECT_EQ(ifaddrs_get_if_netmac("up0", mac), 0);
    EXPECT_EQ(mac[5], 1);
    EXPECT_EQ(ifaddrs_get_if_netmac("wlan0.0", mac), 0);
    EXPECT_EQ(mac[5], 0x24);
    EXPECT_EQ(ifaddrs_get_if_netmac("nowhere", mac), -1);
    EXPECT_EQ(ifaddrs_get_interface_downup("up0"), 1);
    EXPECT_EQ(ifaddrs_get_interface_downup("wlan1"), 1);
    EXPECT_NE(ifaddrs_get_interface_downup("nowhere"), 1);

    uint64_t counters[4] = {};
    EXPECT_EQ(sys_get_if_statistics("up1", counters), 0);
    EXPECT_GT(counters[0], counters[1]);  // bytes come before packets
    EXPECT_GT(counters[1], 0u);
    EXPECT_EQ(sys_get_if_statistics("wlan0.0", counters), 0);
    EXPECT_EQ(sys_get_if_statistics("nowhere", counters), -1);

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

// Speaks just enough MQTT to hear one topic: packets shorter than 128 bytes, delivered at most once.
class Listener {
public:
    explicit Listener(std::string topic) : topic_(std::move(topic)), fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address = {AF_UNIX, "/var/run/bus.socket"};
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        send_packet('\x10', std::string("\0\4MQTT\4\2\0\x3c", 10) + text("listener"));
        EXPECT_EQ(receive_packet().first, '\x20');
        send_packet('\x82', std::string("\0\1", 2) + text(topic_) + '\0');
        EXPECT_EQ(receive_packet().first, '\x90');
    }
    ~Listener() { close(fd_); }

    // The next message, behind the length and the text of its topic.
    std::string next() const { return receive_packet().second.substr(2 + topic_.size()); }

private:
    static std::string text(const std::string &text) {
        return std::string(1, '\0') + static_cast<char>(text.size()) + text;
    }
    void send_packet(char kind, const std::string &body) const {
        const std::string packet = std::string(1, kind) + static_cast<char>(body.size()) + body;
        EXPECT_EQ(send(fd_, packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
    }
    std::pair<char, std::string> receive_packet() const {
        char head[2] = {}, body[128] = {};
        EXPECT_EQ(recv(fd_, head, 2, MSG_WAITALL), 2);
        const size_t length = static_cast<unsigned char>(head[1]);
        EXPECT_EQ(recv(fd_, body, length, MSG_WAITALL), static_cast<ssize_t>(length));
        return {head[0], std::string(body, length)};
    }
    const std::string topic_;
    const int fd_;
};

}  // namespace

TEST(MessageBus, DeliversThroughTheBroker) {
    EXPECT_EQ(holymsg_publish("topic", "x", 1), -1);  // no broker yet
    ASSERT_EQ(system("/sbin/bus_start.sh"), 0);
    const Listener listener("ugw.wserver.message");
    const int before = test::open_descriptors();
    EXPECT_EQ(send_msg_to_wlan_server("{\"op\":1}"), 0);
    EXPECT_EQ(send_msg_to_wlan_server(""), 0);
    EXPECT_EQ(holymsg_publish("wild/#", "x", 1), -1);
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_EQ(listener.next(), "{\"op\":1}");
    EXPECT_EQ(listener.next(), "");
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
