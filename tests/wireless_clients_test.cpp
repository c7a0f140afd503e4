// wireless_clients_test.cpp: station lists, the online table and its fallback files, band lists, noise and rates.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

#include "applatform/kernel_rules.h"
#include "apsupport/wireless.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_driver.h"
#include "tests/support/scripted_store.h"

namespace {

using test::driver;
using test::Station;

struct Address {
    std::string mac, ip;
};
std::vector<Address> online;
int online_result;
bool online_without_list;

std::string mac_of(int last) {
    char text[18];
    std::snprintf(text, sizeof text, "0a:bc:00:00:00:%02x", last);
    return text;
}

std::vector<Station> stations_of(const std::vector<int> &last_mac_bytes) {
    std::vector<Station> stations(last_mac_bytes.size());
    for (size_t i = 0; i < stations.size(); ++i) stations[i].last_mac_byte = static_cast<uint8_t>(last_mac_bytes[i]);
    return stations;
}

struct Clients : testing::Test {
    void SetUp() override {
        driver = {};
        online.clear();
        online_result = 0;
        online_without_list = false;
    }
};

}  // namespace

extern "C" {
int km_get_online_ip(cJSON *object) {
    if (online_without_list) return 0;
    cJSON *list = cJSON_AddArrayToObject(object, "List");
    for (const Address &address : online) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "Mac", address.mac.c_str());
        cJSON_AddStringToObject(item, "Ip", address.ip.c_str());
        cJSON_AddItemToArray(list, item);
    }
    return online_result;
}
}

TEST_F(Clients, AreReadFromTheDriversRecord) {
    const test::WordsAt words = {{8, 0xffffffff},  {12, 4000000000}, {16, 3600},       {20, 0xffffffa1},
                                 {24, 0xfffffffb}, {60, 0xffffffb5}, {32, 4000000001}, {40, 7}};
    driver.stations["wlan0.0"] = {{0xfe, words, "11ax-and-more"}};
    WifiClientInfo client;
    std::memset(&client, 0xee, sizeof client);
    EXPECT_EQ(wifi_get_interface_client_list("wlan0.0", &client, 1), 1);
    std::string texts;
    for (const char *text :
         {client.ifname, client.mac, client.ip, client.reserved_text, client.stat_a, client.conn_time, client.hostname,
          client.stat_b, client.noise, client.stat_c, client.stat_text, client.stat_d})
        texts += text + std::string("|");
    EXPECT_EQ(texts, "os-wlan0.0|0a:bc:00:00:00:fe|||4000000000|3600||-75|-95|4294967295|11ax-and-mor|-5|");
    EXPECT_EQ(client.bytes_a, 4000000001u);
    EXPECT_EQ(client.bytes_b, 7u);
}

TEST_F(Clients, AreCountedAndNeverOutgrowTheCallersOrTheDriversArray) {
    const struct {
        const char *what;
        int stations, extra, capacity, asked, result, written, counted;
    } cases[] = {
        {"none", 0, 0, 4, 4, 0, 0, 0},
        {"fewer than room", 3, 0, 4, 4, 3, 3, 3},
        {"as many as room", 4, 0, 4, 4, 4, 4, 4},
        {"one more than room", 4, 1, 4, 4, 5, 4, 5},
        {"many more than room", 4, 90, 4, 4, 5, 4, 94},
        {"all of the driver's", 200, 0, 128, 128, 128, 128, 128},
        {"more than the driver's", 200, 1, 128, 128, 128, 128, 129},
        {"more room than the driver's", 200, 0, 200, 128, 128, 128, 128},
        {"a negative count", 0, -5, 4, 4, 0, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver = {};
        driver.stations["w"].resize(static_cast<size_t>(c.stations));
        driver.extra_stations = c.extra;
        std::vector<WifiClientInfo> out(202);
        EXPECT_EQ(wifi_get_interface_client_list("w", out.data(), c.capacity), c.result);
        EXPECT_EQ(std::ranges::count_if(out, [](const auto &client) { return client.mac[0] != '\0'; }), c.written);
        EXPECT_EQ(wifi_get_interface_client_num("w"), c.counted);
        EXPECT_EQ(driver.log, "osif stations0/" + std::to_string(c.asked) + " osif stations0/128 ");
    }
    driver.result = -1;
    driver.extra_stations = 7;
    WifiClientInfo client;
    EXPECT_EQ(wifi_get_interface_client_list("w", &client, 1), 0);
    EXPECT_EQ(wifi_get_interface_client_num("w"), 0);
}

#ifndef __SANITIZE_ADDRESS__  // which has an allocator of its own

static bool no_memory;

extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *calloc(size_t count, size_t size) {
    return no_memory && count == 128 && size == 80 ? nullptr : __libc_calloc(count, size);
}

TEST_F(Clients, AreNoneWithoutMemory) {
    no_memory = true;
    const std::string printed = test::printed_by([] { EXPECT_EQ(wifi_get_interface_client_list("w", nullptr, 1), 0); });
    no_memory = false;
    EXPECT_THAT(printed, testing::MatchesRegex(
                             "\033\\[1;40;31m\\[PROD\\] [0-9]{4} wifi_get_clientlist_: calloc failed\n\033\\[0m"));
}
#endif

TEST_F(Clients, GetTheFirstAddressOfTheirMacInAnySpelling) {
    driver.stations["w"] = stations_of({1, 2, 3, 1});
    online = {{"0A:BC:00:00:00:02", "10.0.0.2"}, {mac_of(1), "10.0.0.1"}, {"0a:BC:00:00:00:01", "10.9.9.9"},
              {"0a:bc:00:00:00:0", "10.8.8.8"},  {"", "10.7.7.7"},        {mac_of(2) + "tail", "10.6.6.6"}};
    WifiClientInfo out[8];
    ASSERT_EQ(wifi_get_client_list("w", out, 8), 4);
    const char *expected[] = {"10.0.0.1", "10.0.0.2", "", "10.0.0.1"};
    for (int i = 0; i < 4; ++i) EXPECT_STREQ(out[i].ip, expected[i]);
}

TEST_F(Clients, KeepThe512FirstEntriesOfTheOnlineTable) {
    for (int i = 0; i < 600; ++i)
        online.push_back({mac_of(i % 256) + "toolong", "10.0.0." + std::to_string(i) + ".0.0.0.0"});
    static OnlineIpTable table;
    EXPECT_EQ(get_client_ip_mac(&table), 0);
    EXPECT_EQ(table.count, 512u);
    EXPECT_EQ(table.entries[511].mac, mac_of(511 % 256));
    EXPECT_STREQ(table.entries[511].ip, "10.0.0.511.0.0.");

    char mac[18] = "untouched";
    get_client_mac_by_ip("10.0.0.600.0.0.", mac);
    EXPECT_STREQ(mac, "untouched");
    get_client_mac_by_ip("10.0.0.7.0.0.0.", mac);
    EXPECT_EQ(mac, mac_of(7));

    table.count = 99;
    online_result = 1;
    EXPECT_EQ(get_client_ip_mac(&table), 1);
    online_result = 0;
    online_without_list = true;
    EXPECT_EQ(get_client_ip_mac(&table), 1);
    EXPECT_EQ(table.count, 99u);
}

// What the headings say does not count, a MAC in lower case is none, and who is in no line gets the last address.
TEST_F(Clients, FallBackToTheKernelsFile) {
    const auto addresses = [](const std::vector<int> &last_mac_bytes) {
        driver.stations["w"] = stations_of(last_mac_bytes);
        WifiClientInfo clients[8];
        std::string found;
        const int count = wifi_get_client_list("w", clients, 8);
        for (int i = 0; i < count; ++i) found += std::string(clients[i].ip) + " ";
        return found;
    };
    constexpr char first_file[] = "/proc/net/km_online_ip", second_file[] = "/proc/km/km_online_ip";
    EXPECT_EQ(addresses({5}), " ");
    test::write_text(second_file, "h\nh\n1.1.1.1 skipped 0A-BC-00-00-00-05 x\n10.0.1.5 skipped 0A-BC-00-00-00-05 x\n"
                                  "10.0.1.8 the-line-feed-belongs-to-the-MAC 0A-BC-00-00-00-08\n"
                                  "123.123.123.1234567 skipped 0A-BC-00-00-00-0A x\n10.0.1.9 \n");
    EXPECT_EQ(addresses({8, 5, 10}), "10.0.1.9 10.0.1.5 123.123.123.123 ");
    const std::string headings = "1.1.1.1 0A-BC-00-00-00-05 x\n1.1.1.1 0A-BC-00-00-00-05 x\n";
    test::write_text(first_file, headings);
    EXPECT_EQ(addresses({5}), " ");
    test::write_text(first_file, headings + "10.0.0.5 0A-BC-00-00-00-05 rest of line\n10.0.0.6 0a-bc-00-00-00-06 x\n"
                                            "10.0.0.7 0A-BC-00-00-00-07 x\n10.0.0.8 0A-BC-00-00-00-05 x\n");
    EXPECT_EQ(addresses({6, 5, 9, 7, 5}), "10.0.0.8 10.0.0.5 10.0.0.8 10.0.0.7 10.0.0.5 ");
    std::remove(first_file);
    std::remove(second_file);
}

TEST_F(Clients, OfABandStopAtTheCapacity) {
    test::store.values = {
        {"wlan24g.radio_mib_prefix", "r2"}, {"wlan5g.radio_mib_prefix", "r5"}, {"wlan5g.bss_mib_prefix", "b5-"}};
    for (const char *key : {"r5.enable", "b5-0.bss_enable", "b5-1.bss_enable", "b5-3.bss_enable", "b5-4.bss_enable"})
        test::store.values[key] = "1";
    test::store.values["r5.web_maxbss"] = "4";
    for (const auto &[ifname, macs] : std::map<std::string, std::vector<int>>{
             {"b5-0", {1, 2}}, {"b5-1", {3, 4, 5, 6}}, {"b5-2", {7}}, {"b5-3", {8}}, {"b5-4", {9}}})
        driver.stations[ifname] = stations_of(macs);
    const auto list = [](const char *band, int capacity) {
        std::vector<WifiClientInfo> out(8);
        std::string found = std::to_string(wifi_get_client_lists(out.data(), band, capacity)) + ":";
        for (const auto &client : out)
            if (client.mac[0] != '\0')
                found += std::string(" ") + client.ifname + "/" + (client.mac + 15) + client.stat_d;
        return found;
    };
    EXPECT_EQ(list("5G", 8), "7: b5-0/01 b5-0/02 b5-1/03 b5-1/04 b5-1/05 b5-1/06 b5-3/08");
    EXPECT_EQ(list("5G", 3), "3: b5-0/01 b5-0/02 b5-1/03");
    EXPECT_EQ(list("5G", 2), "2: b5-0/01 b5-0/02");
    EXPECT_EQ(list("5G", 0), "0:");
    EXPECT_EQ(list("6G", 8), "0:");
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(list("2.4G", 8), "0:"); }), "wifi 2.4G or 5G is closed\n");
}

TEST_F(Clients, GiveTheNoiseOfTheStrongestThatSentAndReceived) {
    const auto station = [](uint32_t stat_a, uint32_t seconds, int noise, uint32_t stat_c) {
        return Station{1, {{12, stat_a}, {16, seconds}, {20, static_cast<uint32_t>(noise)}, {8, stat_c}}};
    };
    const auto noise = [](const std::vector<Station> &stations) {
        driver.stations["w"] = stations;
        int out = 1;
        wifi_get_noise("w", &out);
        return out;
    };
    EXPECT_EQ(noise({}), -95);
    EXPECT_EQ(noise({station(0, 5, -80, 0)}), -80);  // the only one, though silent
    EXPECT_EQ(noise({station(1, 5, -80, 10), station(1, 5, -81, 30), station(1, 5, -82, 20)}), -81);
    EXPECT_EQ(noise({station(1, 5, -80, 10), station(1, 5, -81, 10)}), -80);  // a tie keeps the earlier
    EXPECT_EQ(noise({station(1, 5, -80, 10), station(0, 5, -81, 30)}), -80);
    EXPECT_EQ(noise({station(1, 0, -80, 10)}), -95);  // just associated
    EXPECT_EQ(noise({station(1, 5, -80, 0x80000000), station(1, 5, -81, 0xffffffff)}),
              -80);  // both beyond an int: a tie
}

TEST(ClientRate, ComesFromTheLastSampleOrTheWholeConnection) {
    const auto sample = [](const char *mac, const char *ip, int seconds, uint32_t bytes_a, uint32_t bytes_b) {
        WifiClientInfo client = {};
        std::strcpy(client.mac, mac);
        std::strcpy(client.ip, ip);
        std::strcpy(client.conn_time, std::to_string(seconds).c_str());
        client.bytes_a = bytes_a;
        client.bytes_b = bytes_b;
        return client;
    };
    const WifiClientInfo before[] = {sample("m1", "1.1.1.1", 0, 9, 9), sample("m2", "1.1.1.2", 0, 100, 4294967000u),
                                     sample("m2", "1.1.1.2", 0, 0, 0)};
    const auto rates = [&](int interval, int samples, const WifiClientInfo &now) {
        char b[16], a[16];
        const int length = ap_comm_calc_client_rate(interval, &now, before, b, sizeof b, a, sizeof a, samples);
        return b + std::string(" ") + std::string(a, static_cast<size_t>(length));
    };
    const WifiClientInfo usual = sample("m2", "1.1.1.2", 100, 128000, 256000);
    EXPECT_EQ(rates(10, 0, usual), "20.00 10.00");
    EXPECT_EQ(rates(0, 3, usual), "20.00 10.00");
    EXPECT_EQ(rates(10, 3, sample("m2", "1.1.1.2", 9, 1024, 0)), "0.00 0.89");
    EXPECT_EQ(rates(10, 3, sample("m2", "1.1.1.2", 10, 10340, 100)), "0.31 8.00");  // one counter wrapped
    EXPECT_EQ(rates(10, 3, sample("m2", "1.1.1.9", 100, 128000, 256000)), "0.00 0.00");
    EXPECT_EQ(rates(10, 1, usual), "0.00 0.00");
    EXPECT_EQ(rates(10, 0, sample("m2", "1.1.1.2", 1000, 4000000000, 0)), "0.00 31250.00");
    EXPECT_EQ(rates(10, 0, sample("m2", "1.1.1.2", 0, 0, 1)), "inf nan");
    char b[4], a[3];
    EXPECT_EQ(ap_comm_calc_client_rate(10, &usual, before, b, sizeof b, a, sizeof a, 0), 5);
    EXPECT_EQ(b + std::string(" ") + a, "20. 10");
}

// All but stat_d and the reserved byte behind it; a copied text ends in its field, and zeros fill the rest.
TEST(ClientSample, IsCopiedFieldByField) {
    WifiClientInfo from[2], to[4];
    std::memset(from, 'x', sizeof from);
    std::memset(to, 'o', sizeof to);
    std::strcpy(from[1].mac, "mac");
    ap_comm_save_clients_info(from, to, 2, 1);

    std::string full, copied;
    for (const unsigned int size : {32u, 18u, 16u, 16u, 16u, 16u, 33u, 8u, 8u, 16u, 16u})
        full += std::string(size - 1, 'x') + '\0';
    copied = full.substr(0, 32) + "mac" + std::string(15, '\0') + full.substr(32 + 18);
    const std::string tail = std::string(16 + 1, 'o') + std::string(4 + 4, 'x'), untouched(220, 'o');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(to), sizeof to),
              untouched + full + tail + copied + tail + untouched);
}
