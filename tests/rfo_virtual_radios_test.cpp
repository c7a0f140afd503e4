// rfo_virtual_radios_test.cpp: the optimiser on the host platform's virtual radios: lines travel between access points
// of one world, and a whole survey runs with the real driver, configuration and measurement. Only the bus is short-cut.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "applatform/message_bus.h"
#include "apsupport/rfo.h"
#include "foundation/file_io.h"
#include "tests/rfo_workers.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tools/wifi_measure/measure.cpp"  // NOLINT(bugprone-suspicious-include)

int holymsg_publish(const char *topic, const void *, unsigned int) {
    return std::strstr(topic, "all_chan_measure_request") == nullptr || wifi_measure::measure_all() ? 0 : -1;
}

namespace {

constexpr char lines_file[] = "/proc/kv_wlan/private_ie/private_ie_98";
constexpr char control_file[] = "/proc/kv_wlan/private_ie/private_ie";

std::string access_point(int number, const std::string &position, const std::string &enabled = "true") {
    const std::string mac = "\"bssid\":\"02:00:00:00:0" + std::to_string(number);
    return R"({"name":"ap)" + std::to_string(number) + R"(","position":)" + position +
           R"(,"radios":[{"band":"2.4G","channel":6,"enabled":)" + enabled + R"(,"networks":[{"ssid":"house",)" + mac +
           R"(:24"}]},{"band":"5G","channel":36,"bandwidth":80,"enabled":)" + enabled +
           R"(,"networks":[{"ssid":"house",)" + mac + R"(:50"}]}]})";
}

std::string line_of(int number) {
    const std::string digit = std::to_string(number);
    return "02:41:50:00:0" + digit + ":00nbAP:MAC2G=02:00:00:00:0" + digit +
           ":24;SSID2G=house;CH2G=6;MAC5G=02:00:00:00:0" + digit + ":50;SSID5G=house;CH5G=36;";
}

std::vector<std::string> records;  // read when the worker is gone
void keep(const void *record, int length) {
    records.emplace_back(static_cast<const char *>(record), static_cast<size_t>(length));
}

// ap1 and ap2 are ten metres apart, ap3 is out of reach, ap4's radios are off.
struct VirtualRadios : testing::Test {
    void SetUp() override {
        std::remove("/apbox/world/state.json");
        test::write_text("/apbox/world/scenario.json",
                         R"({"access_points":[)" + access_point(1, "[0,0]") + "," + access_point(2, "[10,0]") + "," +
                             access_point(3, "[100000,0]") + "," + access_point(4, "[5,0]", "false") + "]}");
        test::write_text(lines_file, "");
        records.clear();
        be(1);
    }
    static void be(int number) { test::write_text("/apbox/name", "ap" + std::to_string(number) + "\n"); }
    static bool write(const char *path, const std::string &text) {
        const ap::UniqueFd file = ap::open_fd(path, O_WRONLY | O_CREAT | O_TRUNC);
        return ap::write_full(file.get(), text.data(), text.size());
    }
    static void open_port() {
        uint8_t request[96] = {98, 17};
        EXPECT_EQ(uwb_private_ie_switch(1), 0);
        EXPECT_EQ(uwb_private_ie_create_port(request), 0);
    }
    static void broadcast(int number) {
        be(number);
        open_port();
        EXPECT_TRUE(write(lines_file, line_of(number) + "\n"));
    }
    // What the driver's file holds for an access point after a scan.
    static std::string heard_by(int number) {
        be(number);
        test::write_text(lines_file, "");
        std::vector<uint8_t> results(124936);
        EXPECT_EQ(uwb_get_scanresults("wlan0", results.data()), 0);
        return test::read_text(lines_file);
    }
    test::FakeClock clock;
};

TEST_F(VirtualRadios, ALineReachesEveryCollectorInReachAndNobodyElse) {
    open_port();
    for (const int number : {2, 3, 4}) broadcast(number);
    EXPECT_EQ(heard_by(1), line_of(2) + "\n");
    EXPECT_EQ(heard_by(2), "") << "ap1 has a port, but broadcasts nothing yet";
    broadcast(1);
    EXPECT_EQ(test::read_text(lines_file), line_of(2) + "\n") << "the own line gives way to what was heard";
    EXPECT_EQ(heard_by(2), line_of(1) + "\n");
    EXPECT_EQ(heard_by(3), "");
    EXPECT_EQ(heard_by(4), "");
}

TEST_F(VirtualRadios, ALineIsKeptForItsAgeWhereThereIsAPort) {
    broadcast(2);
    broadcast(1);
    EXPECT_TRUE(write(control_file, "age 98 60"));
    EXPECT_EQ(heard_by(1), line_of(2) + "\n");
    EXPECT_EQ(uwb_private_ie_switch(0), 0);
    EXPECT_EQ(heard_by(1), "");
    EXPECT_EQ(heard_by(2), line_of(1) + "\n") << "kept, though its sender fell silent";
    be(1);
    EXPECT_EQ(uwb_private_ie_switch(1), 0) << "the port is still there";
    EXPECT_EQ(heard_by(1), line_of(2) + "\n");
    be(2);
    EXPECT_EQ(uwb_private_ie_destory_port(98), 0);
    clock.advance_ms(59'000);
    EXPECT_EQ(heard_by(1), line_of(2) + "\n");
    clock.advance_ms(2'000);
    EXPECT_EQ(heard_by(1), "");
}

TEST_F(VirtualRadios, AWholeSurveyReportsChannelsAndTheNeighbour) {
    broadcast(2);
    be(1);
    const unsigned char request[2] = {0, 0};
    ASSERT_EQ(set_ap_chan_optmz(keep, request), 0);
    test::wait_for_worker();
    ASSERT_EQ(records.size(), 1U);
    const std::string &record = records[0];
    ASSERT_EQ(record.size(), sizeof(ap_rf_chan_info) + (13 + 24) * sizeof(ChannelRecord) + sizeof(NeighbourRecord));

    constexpr size_t sixth_at = sizeof(ap_rf_chan_info) + 5 * sizeof(ChannelRecord);
    EXPECT_EQ(record.substr(18, 6), std::string("\x0d\x18\0\x01\0\0", 6)) << "13 and 24 channels, a neighbour";
    EXPECT_EQ(record.substr(sixth_at, 16), std::string("\x06\0\x14\x06\x01\0\0\0\x01\0\0\0\x5e\0\0\0", 16));
    EXPECT_EQ(record.substr(record.size() - 24), line_of(2).substr(0, 17) + std::string("\0\xce\xff\xc7\xff\0\0", 7))
        << "-50 and -57";
    EXPECT_NE(access(wifi_measure::result_file, F_OK), 0) << "the file is taken away";
}

}  // namespace
