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

struct Clients : testing::Test {
    void SetUp() override {
        driver = {};
        online.clear();
        online_result = 0;
        online_without_list = false;
        remove_files();
    }
    void TearDown() override { remove_files(); }

    static void remove_files() {
        for (const char *file : {"/proc/net/km_online_ip", "/proc/km/km_online_ip"}) std::remove(file);
    }
};

std::vector<std::string> texts_of(const WifiClientInfo &c) {
    return {c.ifname,   c.mac,    c.ip,    c.reserved_text, c.stat_a,    c.conn_time,
            c.hostname, c.stat_b, c.noise, c.stat_c,        c.stat_text, c.stat_d};
}

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
    driver.stations["wlan0.0"] = {{0xfe,
                                   {{8, 0xffffffff},
                                    {12, 4000000000},
                                    {16, 3600},
                                    {20, 0xffffffa1},
                                    {24, 0xfffffffb},
                                    {32, 4000000001},
                                    {40, 7},
                                    {60, 0xffffffb5}},
                                   "11ax-and-more"}};
    WifiClientInfo client;
    std::memset(&client, 0xee, sizeof client);
    EXPECT_EQ(wifi_get_interface_client_list("wlan0.0", &client, 1), 1);
    EXPECT_EQ(texts_of(client),
              (std::vector<std::string>{"os-wlan0.0", "0a:bc:00:00:00:fe", "", "", "4000000000", "3600", "", "-75",
                                        "-95", "4294967295", "11ax-and-mor", "-5"}));
    EXPECT_EQ(client.bytes_a, 4000000001u);
    EXPECT_EQ(client.bytes_b, 7u);
}

TEST_F(Clients, NeverOutgrowTheCallersOrTheDriversArray) {
    const struct {
        const char *what;
        int stations, extra, capacity, asked, result, written;
    } cases[] = {
        {"none", 0, 0, 4, 4, 0, 0},
        {"fewer than room", 3, 0, 4, 4, 3, 3},
        {"as many as room", 4, 0, 4, 4, 4, 4},
        {"one more than room", 4, 1, 4, 4, 5, 4},
        {"many more than room", 4, 90, 4, 4, 5, 4},
        {"all of the driver's", 200, 0, 128, 128, 128, 128},
        {"more than the driver's", 200, 1000, 128, 128, 128, 128},
        {"more room than the driver's", 200, 0, 200, 128, 128, 128},
        {"a negative count", 0, -5, 4, 4, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver = {};
        driver.stations["w"].resize(static_cast<size_t>(c.stations));
        driver.extra_stations = c.extra;
        std::vector<WifiClientInfo> out(202);
        EXPECT_EQ(wifi_get_interface_client_list("w", out.data(), c.capacity), c.result);
        EXPECT_EQ(driver.log, "osif stations0/" + std::to_string(c.asked) + " ");
        EXPECT_EQ(std::ranges::count_if(out, [](const auto &client) { return client.mac[0] != '\0'; }), c.written);
    }
    driver.result = -1;
    WifiClientInfo client;
    EXPECT_EQ(wifi_get_interface_client_list("w", &client, 1), 0);
}

#ifndef __SANITIZE_ADDRESS__  // which has an allocator of its own

static bool no_memory;

extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *calloc(size_t count, size_t size) {
    return no_memory && count == 128 && size == 80 ? nullptr : __libc_calloc(count, size);
}

TEST_F(Clients, AreNoneWithoutMemory) {
    WifiClientInfo client;
    no_memory = true;
    EXPECT_THAT(
        test::printed_by([&] { EXPECT_EQ(wifi_get_interface_client_list("w", &client, 1), 0); }),
        testing::MatchesRegex("\033\\[1;40;31m\\[PROD\\] [0-9]{4} wifi_get_clientlist_: calloc failed\n\033\\[0m"));
    no_memory = false;
}
#endif

TEST_F(Clients, GetTheFirstAddressOfTheirMacInAnySpelling) {
    driver.stations["w"] = {{1, {}, ""}, {2, {}, ""}, {3, {}, ""}, {1, {}, ""}};
    online = {{"0A:BC:00:00:00:02", "10.0.0.2"}, {mac_of(1), "10.0.0.1"}, {"0a:BC:00:00:00:01", "10.9.9.9"},
              {"0a:bc:00:00:00:0", "10.8.8.8"},  {"", "10.7.7.7"},        {mac_of(2) + "tail", "10.6.6.6"}};
    WifiClientInfo out[8];
    ASSERT_EQ(wifi_get_client_list("w", out, 8), 4);
    const char *expected[] = {"10.0.0.1", "10.0.0.2", "", "10.0.0.1"};
    for (int i = 0; i < 4; ++i) EXPECT_STREQ(out[i].ip, expected[i]);
}

// The same as comparing every station with every entry, for tables full of duplicates and neighbours in the index.
TEST_F(Clients, GetTheSameAddressesAsByComparingAllPairs) {
    for (unsigned int seed = 1; seed <= 20; ++seed) {
        online.clear();
        unsigned int random = seed;
        const auto next = [&](unsigned int below) { return (random = random * 1103515245 + 12345) / 65536 % below; };
        for (int i = 0; i < 512; ++i)
            online.push_back({mac_of(static_cast<int>(next(seed * 12))),
                              "10.1." + std::to_string(i / 256) + "." + std::to_string(i % 256)});
        auto &stations = driver.stations["w"];
        stations.clear();
        for (int i = 0; i < 128; ++i) stations.push_back({static_cast<uint8_t>(next(256)), {}, ""});
        WifiClientInfo out[128];
        ASSERT_EQ(wifi_get_client_list("w", out, 128), 128);
        for (const WifiClientInfo &client : out) {
            const auto found = std::ranges::find(online, client.mac, &Address::mac);
            EXPECT_EQ(client.ip, found == online.end() ? "" : found->ip);
        }
    }
}

TEST_F(Clients, KeepThe512FirstEntriesOfTheOnlineTable) {
    for (int i = 0; i < 600; ++i)
        online.push_back({mac_of(i % 256) + "toolong", "10.0.0." + std::to_string(i) + ".0.0.0.0"});
    static OnlineIpTable table;
    EXPECT_EQ(get_client_ip_mac(&table), 0);
    EXPECT_EQ(table.count, 512u);
    EXPECT_EQ(std::string(table.entries[511].mac), mac_of(511 % 256));
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

TEST_F(Clients, FallBackToTheKernelsFile) {
    const std::string first_form =
        "heading\nheading\n10.0.0.5 0A-BC-00-00-00-05 rest of line\n10.0.0.6 0a-bc-00-00-00-06 x\n";
    const std::string second_form =
        "h\nh\nh\n10.0.1.5 skipped 0A-BC-00-00-00-05 x\n10.0.1.8 skipped 0A-BC-00-00-00-08\n";
    const struct {
        const char *what, *folder;
        std::string content;
        int station;
        const char *expected;
    } cases[] = {
        {"first form, found", "/proc/net", first_form, 5, "10.0.0.5"},
        {"first form, lower case is not found", "/proc/net", first_form, 6, "10.0.0.6"},
        {"first form, last line's address", "/proc/net", first_form, 9, "10.0.0.6"},
        {"first form, headings only", "/proc/net", "1.1.1.1 0A-BC-00-00-00-05\n2\n", 5, ""},
        {"second form, found", "/proc/km", second_form, 5, "10.0.1.5"},
        {"second form, the line feed belongs to the MAC", "/proc/km", second_form + "10.0.1.9 s x\n", 8, "10.0.1.9"},
        {"second form, a cut address", "/proc/km", "h\nh\nh\n123.123.123.1234567 s 0A-BC-00-00-00-05 x\n", 5,
         "123.123.123.123"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::write_text(std::string(c.folder) + "/km_online_ip", c.content);
        driver.stations["w"] = {{static_cast<uint8_t>(c.station), {}, ""}};
        WifiClientInfo client;
        EXPECT_EQ(wifi_get_client_list("w", &client, 1), 1);
        EXPECT_STREQ(client.ip, c.expected);
        remove_files();
    }
}

TEST_F(Clients, OfABandStopAtTheCapacity) {
    test::store.values = {{"wlan24g.radio_mib_prefix", "r2"},
                          {"wlan5g.radio_mib_prefix", "r5"},
                          {"wlan5g.bss_mib_prefix", "b5-"},
                          {"r5.enable", "1"},
                          {"r5.web_maxbss", "4"},
                          {"b5-0.bss_enable", "1"},
                          {"b5-1.bss_enable", "1"},
                          {"b5-3.bss_enable", "1"}};
    driver.stations = {{"b5-0", {{1, {}, ""}, {2, {}, ""}}},
                       {"b5-1", {{3, {}, ""}, {4, {}, ""}, {5, {}, ""}, {6, {{24, 9}}, ""}}},
                       {"b5-2", {{7, {}, ""}}},
                       {"b5-3", {{8, {}, ""}}}};
    const auto list = [](const char *band, int capacity) {
        std::vector<WifiClientInfo> out(8);
        for (auto &client : out) std::strcpy(client.stat_d, "kept");
        const int count = wifi_get_client_lists(out.data(), band, capacity);
        std::string found = std::to_string(count) + ":";
        for (const auto &client : out)
            if (client.mac[0] != '\0') found += std::string(" ") + client.ifname + "/" + (client.mac + 15);
        for (const auto &client : out) EXPECT_STREQ(client.stat_d, "kept");
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
        return Station{1, {{12, stat_a}, {16, seconds}, {20, static_cast<uint32_t>(noise)}, {8, stat_c}}, ""};
    };
    const struct {
        const char *what;
        std::vector<Station> stations;
        int expected;
    } cases[] = {
        {"no station", {}, -95},
        {"only one, though silent", {station(0, 5, -80, 0)}, -80},
        {"the greatest", {station(1, 5, -80, 10), station(1, 5, -81, 30), station(1, 5, -82, 20)}, -81},
        {"a tie keeps the earlier", {station(1, 5, -80, 10), station(1, 5, -81, 10)}, -80},
        {"one that sent nothing does not count", {station(1, 5, -80, 10), station(0, 5, -81, 30)}, -80},
        {"just associated", {station(1, 0, -80, 10)}, -95},
        {"counts beyond an int are all the greatest",
         {station(1, 5, -80, 0x80000000), station(1, 5, -81, 0xffffffff)},
         -80},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        driver.stations["w"] = c.stations;
        int noise = 1;
        wifi_get_noise("w", &noise);
        EXPECT_EQ(noise, c.expected);
    }
}

namespace {

WifiClientInfo sample(const char *mac, const char *ip, const char *seconds, uint32_t bytes_a, uint32_t bytes_b) {
    WifiClientInfo client = {};
    std::strcpy(client.mac, mac);
    std::strcpy(client.ip, ip);
    std::strcpy(client.conn_time, seconds);
    client.bytes_a = bytes_a;
    client.bytes_b = bytes_b;
    return client;
}

}  // namespace

TEST(ClientRate, ComesFromTheLastSampleOrTheWholeConnection) {
    const WifiClientInfo before[] = {sample("m1", "1.1.1.1", "0", 9, 9), sample("m2", "1.1.1.2", "0", 100, 4294967000u),
                                     sample("m2", "1.1.1.2", "0", 0, 0)};
    const struct {
        const char *what;
        int interval, samples;
        WifiClientInfo now;
        const char *rate_b, *rate_a;
    } cases[] = {
        {"no sample", 10, 0, sample("m2", "1.1.1.2", "100", 128000, 256000), "20.00", "10.00"},
        {"no interval", 0, 3, sample("m2", "1.1.1.2", "100", 128000, 256000), "20.00", "10.00"},
        {"connected for less", 10, 3, sample("m2", "1.1.1.2", "9", 1024, 0), "0.00", "0.89"},
        {"connected for as long, a wrapped counter", 10, 3, sample("m2", "1.1.1.2", "10", 10340, 100), "0.31", "8.00"},
        {"another address", 10, 3, sample("m2", "1.1.1.9", "100", 128000, 256000), "0.00", "0.00"},
        {"another station", 10, 1, sample("m2", "1.1.1.2", "100", 128000, 256000), "0.00", "0.00"},
        {"just associated", 10, 0, sample("m2", "1.1.1.2", "0", 0, 1), "inf", "nan"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char b[16], a[16];
        EXPECT_EQ(ap_comm_calc_client_rate(c.interval, &c.now, before, b, sizeof b, a, sizeof a, c.samples),
                  static_cast<int>(std::strlen(c.rate_a)));
        EXPECT_STREQ(b, c.rate_b);
        EXPECT_STREQ(a, c.rate_a);
    }
    char b[4], a[3];
    EXPECT_EQ(ap_comm_calc_client_rate(10, &cases[0].now, before, b, sizeof b, a, sizeof a, 0), 5);
    EXPECT_STREQ(b, "20.");
    EXPECT_STREQ(a, "10");
}

TEST(ClientSample, CopiesFieldByFieldAndEndsEveryText) {
    WifiClientInfo from[2], to[4] = {};
    std::memset(from, 'x', sizeof from);
    std::memset(to, 'o', sizeof to);
    from[1].bytes_a = 5;
    ap_comm_save_clients_info(from, to, 2, 1);
    const std::string untouched(220, 'o');
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&to[0]), 220), untouched);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&to[3]), 220), untouched);
    const WifiClientInfo &copy = to[2];
    EXPECT_EQ(std::string(copy.ifname), std::string(31, 'x'));
    EXPECT_EQ(std::string(copy.hostname), std::string(32, 'x'));
    EXPECT_EQ(std::string(copy.stat_text), std::string(15, 'x'));
    EXPECT_EQ(std::string(copy.stat_d, sizeof copy.stat_d), std::string(16, 'o'));
    EXPECT_EQ(copy.bytes_a, 5u);
}
