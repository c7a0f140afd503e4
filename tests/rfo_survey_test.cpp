// rfo_survey_test.cpp: complete survey runs on scripted radios: the records byte for byte, every failing step with its
// clean-up, hostile neighbour lines and measurement files, the averages, and the snapshot of the channels in use.

#include "tests/rfo_world.h"

using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

namespace {

constexpr char one[] = "02:00:00:00:00:11", two[] = "02:00:00:00:00:22", lan_mac[] = "02:00:00:00:00:01";

std::string run_channel_survey(unsigned char delay = 0) {
    const unsigned char request[2] = {0, delay};
    return test::printed_by([&] {
        EXPECT_EQ(set_ap_chan_optmz(test::keep_record, request), 0);
        test::wait_for_worker();
    });
}

std::string run_power_survey(unsigned char mode = 1) {
    const unsigned char request[2] = {mode, 0};
    return test::printed_by([&] {
        EXPECT_EQ(set_ap_power_optmz(test::keep_record, request), 0);
        test::wait_for_worker();
    });
}

template <typename Record> Record at(const std::string &bytes, size_t offset) {
    Record record;
    std::memcpy(&record, bytes.data() + offset, sizeof record);
    return record;
}

class Survey : public test::RfoTest {
protected:
    void SetUp() override {
        RfoTest::SetUp();
        test::world->measurement =
            R"({"chanlist_24g": [{"channel": 1, "ap_num": 2, "busy": 70000, "score": 9}, {"channel": 300},
            {"channel": "x", "ap_num": null}], "chanlist_5g": [{"channel": 36, "ap_num": 1, "busy": 4, "score": 5}]})";
        test::world->neighbour_lines = test::line_of(one, "aa:bb:cc:00:00:01", "AA:BB:CC:00:00:51") +
                                       test::line_of(two, "aa:bb:cc:00:00:02", "aa:bb:cc:00:00:52");
        test::world->radios[24].heard = {
            {"aa:bb:cc:00:00:09", "-20"}, {"aa:bb:cc:00:00:01", "-51"}, {"aa:bb:cc:00:00:01", "-10"}};
        test::world->radios[5].heard = {{"aa:bb:cc:00:00:51", "-60"}};
    }
};

TEST_F(Survey, ChannelRunReportsBothBandsAndAllNeighbours) {
    run_channel_survey(3);
    ASSERT_EQ(test::records.size(), 1U);
    const std::string &record = test::records[0];
    ASSERT_EQ(record.size(), 24U + 16 * (3 + 1) + 24 * 2);
    EXPECT_EQ(record.substr(0, 24), std::string(lan_mac) + std::string("\0\x03\x01\0\x02\0\0", 7));
    const unsigned char channels[] = {
        6, 0, 20, 1,  2, 0, 0, 0, 0x70, 0x11, 1, 0, 9, 0, 0, 0,  // busy 70000
        6, 0, 20, 44, 0, 0, 0, 0, 0,    0,    0, 0, 0, 0, 0, 0,  // channel 300 as one byte
        6, 0, 20, 0,  0, 0, 0, 0, 0,    0,    0, 0, 0, 0, 0, 0, 36, 40, 80, 36, 1, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0};
    EXPECT_EQ(record.substr(24, sizeof channels),
              std::string(reinterpret_cast<const char *>(channels), sizeof channels));
    const auto heard = at<NeighbourRecord>(record, 88), unheard = at<NeighbourRecord>(record, 112);
    EXPECT_STREQ(heard.identity, one);
    EXPECT_EQ(heard.rssi_24g, -51);
    EXPECT_EQ(heard.rssi_5g, -60);
    EXPECT_STREQ(unheard.identity, two);
    EXPECT_EQ(unheard.rssi_24g, 0);
    EXPECT_EQ(unheard.rssi_5g, 0);

    EXPECT_THAT(clock.waits_ms(), ElementsAre(4000, 1000)) << "1 from the MAC and 3 asked for, then the scans settle";
    EXPECT_THAT(test::world->calls, ElementsAre("destroy 98", "destroy 99", "disable", "enable",
                                                "create 99 type 17 os_wlan0.0,os_wlan1.1 1 128 []",
                                                "create 98 type 17 os_wlan0.0,os_wlan1.1 1 128 [nbAP]",
                                                "publish ugw.wifi_measure.all_chan_measure_request", "destroy 98",
                                                "destroy 99", "disable"));
    EXPECT_EQ(test::read_text("/proc/kv_wlan/private_ie/private_ie_99"), "enable");
    EXPECT_EQ(test::read_text("/proc/kv_wlan/private_ie/private_ie"), "age 98 120");
    EXPECT_NE(access(test::measure_file, F_OK), 0);
    for (const unsigned char byte : g_before_cfg) EXPECT_EQ(byte, 0);
}

TEST_F(Survey, TheOwnLineDescribesBothRadios) {
    std::string own;
    test::world->on_scan = [&] {
        if (own.empty()) own = test::read_text(test::lines_file);
    };
    test::world->radios[5].enable = 0;
    const std::string printed = run_channel_survey();
    EXPECT_EQ(
        own,
        "02:00:00:00:00:01nbAP:MAC2G=02:00:00:00:00:02;SSID2G=two;CH2G=6;MAC5G=00:00:00:00:00:00;SSID5G=;CH5G=0;\n");
    for (const char *line : {"5 not enable", "5 get ifname fail", "5G rfo_do_scan_full fail"})
        EXPECT_THAT(printed, HasSubstr(line));
}

TEST_F(Survey, FailingStepsEndTheRunOrAreBridged) {
    const struct {
        const char *what, *message;
        std::function<void()> spoil;
        size_t records, length;
    } cases[] = {
        {"no LAN MAC", "get lan ifname fail", [] { test::world->has_lan_mac = false; }, 0, 0},
        {"enable fails twice", "rfo_init err", [] { test::world->fails["enable"] = 2; }, 0, 0},
        {"enable fails once", "uwb_private_ie_enable err", [] { test::world->fails["enable"] = 1; }, 1, 136},
        {"port 99 fails twice", "create port[99] fail", [] { test::world->fails["create 99"] = 2; }, 0, 0},
        {"port 98 fails four times", "create port[98] fail", [] { test::world->fails["create 98"] = 4; }, 0, 0},
        {"port 98 fails once", "", [] { test::world->fails["create 98"] = 1; }, 1, 136},
        {"both radios off", "get ifname fail",
         [] { test::world->radios[24].enable = test::world->radios[5].enable = 0; }, 0, 0},
        {"no measurement", "open file fail", [] { test::world->measurement.clear(); }, 1, 72},
        {"no JSON", "cJSON_Parse fail", [] { test::world->measurement = "{"; }, 1, 72},
        {"2.4 GHz missing", "no chanlist_24g, maybe 2.4g is disable",
         [] { test::world->measurement = R"({"chanlist_5g": [{}]})"; }, 1, 88},
        {"5 GHz missing", "no chanlist_5g, maybe 5g is disable",
         [] { test::world->measurement = R"({"chanlist_24g": [{}]})"; }, 1, 88},
        {"2.4 GHz scan fails", "24G rfo_do_scan_full fail", [] { test::world->fails["scan"] = 1; }, 1, 136},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        c.spoil();
        EXPECT_THAT(run_channel_survey(), HasSubstr(c.message));
        ASSERT_EQ(test::records.size(), c.records);
        if (c.records != 0) {
            EXPECT_EQ(test::records[0].size(), c.length);
        }
        if (test::world->has_lan_mac) {
            const auto &calls = test::world->calls;
            EXPECT_EQ(Words(calls.end() - 3, calls.end()), (Words{"destroy 98", "destroy 99", "disable"}));
        }
    }
}

TEST_F(Survey, AMissingMeasurementIsAwaitedThirtySeconds) {
    test::world->measurement.clear();
    run_channel_survey();
    EXPECT_EQ(clock.waits_ms().size(), 30U + 2);
    EXPECT_EQ(clock.elapsed_ms(), 30000 + 1000 + 1000);
}

TEST_F(Survey, NeighbourLinesAreRejectedOneByOne) {
    const std::string long_ssid(37, 's'), mac = "aa:bb:cc:00:00:01", head = std::string(one) + "nbAP:";
    const struct {
        const char *what;
        std::string line;
        int neighbours;
        const char *message;
    } cases[] = {
        {"good", test::line_of(one, mac, mac), 1, ""},
        {"another identity behind it", test::line_of(one, mac, mac) + test::line_of(two, mac, mac), 2, ""},
        {"the same identity twice", test::line_of(one, mac, mac) + test::line_of(one, mac, mac), 1, ""},
        {"no mark", std::string(one) + "MAC2G=" + mac + ";\n", 0, ""},
        {"mark inside the identity", "02:00:00:nbAP:MAC2G=" + mac + ";MAC5G=" + mac + ";\n", 0, ""},
        {"MAC of 16", head + "MAC2G=aa:bb:cc:00:00:0;MAC5G=" + mac + ";\n", 0, "MAC2Glength(16) is incorrect."},
        {"MAC of 18", head + "MAC2G=" + mac + ";MAC5G=" + mac + "0;\n", 0, "MAC2Glength(18) is incorrect."},
        {"no MAC at all", head + "MAC2G=zz:zz:zz:zz:zz:zz;MAC5G=" + mac + ";\n", 0, ""},
        {"one MAC", head + "MAC2G=" + mac + ";\n", 0, ""},
        {"SSID of 36", head + "MAC2G=" + mac + ";SSID2G=" + long_ssid.substr(1) + ";MAC5G=" + mac + ";\n", 1, ""},
        {"SSID of 37", head + "MAC2G=" + mac + ";SSID2G=" + long_ssid + ";MAC5G=" + mac + ";\n", 1,
         "SSID2Glength(37) is incorrect."},
        {"empty SSID", head + "MAC2G=" + mac + ";SSID5G=;MAC5G=" + mac + ";\n", 1, "SSID5Glength(0) is incorrect."},
        {"channel of 5 digits", head + "MAC2G=" + mac + ";CH2G=12345;MAC5G=" + mac, 1, ""},
        {"cut at 256", std::string(300, 'x') + test::line_of(one, mac, mac), 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        test::world->neighbour_lines = c.line;
        EXPECT_THAT(run_channel_survey(), HasSubstr(c.message));
        ASSERT_EQ(test::records.size(), 1U);
        EXPECT_EQ(test::records[0][21], c.neighbours);
    }
}

TEST_F(Survey, MoreNeighboursThanTheCountCanSayAreLeftOut) {
    test::world->neighbour_lines.clear();
    for (int i = 0; i < 300; ++i) {
        char identity[18];
        std::snprintf(identity, sizeof identity, "02:00:00:00:%02x:%02x", i / 256, i % 256);
        test::world->neighbour_lines += test::line_of(identity, "aa:bb:cc:00:00:01", "aa:bb:cc:00:00:01");
    }
    run_channel_survey();
    ASSERT_EQ(test::records.size(), 1U);
    EXPECT_EQ(static_cast<unsigned char>(test::records[0][21]), 255);
    EXPECT_EQ(test::records[0].size(), 24U + 16 * 4 + 24 * 255);
}

TEST_F(Survey, PowerRunAveragesWhatItHearsAndListsNobodyElse) {
    std::vector<const char *> signals = {"-50", "-61", "-40", "-42"};
    test::world->on_scan = [&, next = size_t{0}]() mutable {
        test::world->radios[24].heard = {{"aa:bb:cc:00:00:01", signals[next++ / 2 % 4]}};
    };
    test::world->radios[24].heard = {{"aa:bb:cc:00:00:01", "-50"}};
    run_power_survey();
    ASSERT_EQ(test::records.size(), 1U);
    const std::string &record = test::records[0];
    EXPECT_EQ(record.size(), 28U + 24);
    EXPECT_EQ(record.substr(0, 28), std::string(lan_mac) + std::string("\0\x14\x08\x1a\x17\x09\x2c\0\0\0\x01", 11));
    EXPECT_STREQ(at<NeighbourRecord>(record, 28).identity, one);
    EXPECT_EQ(at<NeighbourRecord>(record, 28).rssi_5g, -60);
    EXPECT_EQ(test::world->scans, 2 + 4 + 4)
        << "the second neighbour is never heard, so both bands take all four scans";
    EXPECT_EQ(test::world->calls.back(), "create 98 type 17 os_wlan0.0,os_wlan1.1 1 128 [nbAP]") << "the ports stay up";
    EXPECT_EQ(clock.elapsed_ms(), 1000 + 1000 + 1000);
}

TEST_F(Survey, RepeatedScansStopWhenEveryNoteWasHeardOften) {
    const struct {
        size_t notes;
        int scans;
    } cases[] = {{1, 2 + 2 + 2}, {4, 2 + 2 + 2}, {5, 2 + 1 + 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.notes);
        SetUp();
        test::world->neighbour_lines.clear();
        for (auto &[band, radio] : test::world->radios) radio.heard.clear();
        for (size_t i = 0; i < c.notes; ++i) {
            const std::string digit = std::to_string(i), mac = "aa:bb:cc:00:00:0" + digit;
            test::world->neighbour_lines += test::line_of("02:00:00:00:00:1" + digit, mac, mac);
            for (auto &[band, radio] : test::world->radios) radio.heard.emplace_back(mac, "-51");
        }
        run_power_survey();
        EXPECT_EQ(test::world->scans, c.scans);
        ASSERT_EQ(test::records.size(), 1U);
        EXPECT_EQ(at<NeighbourRecord>(test::records[0], 28).rssi_24g, -51);
    }
}

TEST_F(Survey, AveragesAreTruncatedTowardsZero) {
    int scan = 0;
    test::world->neighbour_lines = test::line_of(one, "aa:bb:cc:00:00:01", "aa:bb:cc:00:00:51");
    test::world->radios[5].up = false;
    test::world->on_scan = [&] {
        test::world->radios[24].heard = {{"aa:bb:cc:00:00:01", scan++ == 0 ? "-50" : "-61"}};
    };
    run_power_survey();
    ASSERT_EQ(test::records.size(), 1U);
    EXPECT_EQ(at<NeighbourRecord>(test::records[0], 28).rssi_24g, -58) << "(-61 - 50) / 2 = -55, (-61 - 55) / 2 = -58";
}

TEST_F(Survey, ImmediatePowerRunFirstMovesToTheReferenceChannels) {
    test::world->radios[5].nettype = "an";
    test::world->radios[5].channel = 44;
    run_power_survey(0);
    const auto &calls = test::world->calls;
    EXPECT_EQ(Words(calls.begin(), calls.begin() + 7),
              (Words{"set 24.channel=6", "set 24.bandwidth=20", "publish cloud.wifi.update", "set 5.channel=36",
                     "set 5.bandwidth=40", "switch wlan1.1 36/40", "publish cloud.wifi.update"}));
    EXPECT_EQ(test::store.commits, 2);
    const unsigned char kept[6] = {20, 6, 0, 80, 44, 40};
    EXPECT_EQ(std::memcmp(g_before_cfg, kept, sizeof kept), 0) << "the channels from before the move";
}

TEST_F(Survey, TheSnapshotIsTakenOnceAndServesTwoBands) {
    EXPECT_EQ(rfo_get_all_chan_info(), 2);
    test::world->radios[24].channel = 11;
    EXPECT_EQ(rfo_get_all_chan_info(), 2);
    unsigned char out[3] = {9, 9, 9};
    EXPECT_EQ(rfo_get_before_cfg_info(24, out), 2);
    EXPECT_THAT(out, ElementsAre(20, 6, 0));
    EXPECT_EQ(rfo_clean_before_cfg_info(24), 2);
    rfo_get_all_chan_info();
    EXPECT_EQ(rfo_get_before_cfg_info(24, out), 2);
    EXPECT_THAT(out, ElementsAre(20, 11, 0));
    EXPECT_EQ(rfo_get_before_cfg_info(5, out), 2);
    EXPECT_THAT(out, ElementsAre(80, 36, 40));

    for (const int band : {6, 2, 0}) {
        int bandwidth = 7, channel = 7, extension = 7;
        const std::string printed = test::printed_by([&] {
            EXPECT_EQ(rfo_get_before_cfg_info(band, out), 1);
            EXPECT_EQ(rfo_clean_before_cfg_info(band), 1);
            EXPECT_EQ(rfo_get_chan_info(band, &bandwidth, &channel, &extension), 1);
        });
        EXPECT_EQ(printed.find("unsupport 6g") != std::string::npos, band == 6);
        EXPECT_EQ(bandwidth + channel + extension, 21);
    }
    test::world->radios[5].answers = false;
    int bandwidth = 7, channel = 7, extension = 7;
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(rfo_get_chan_info(5, &bandwidth, &channel, &extension), 1); }),
                HasSubstr("uwb_get_chan_info err!"));
    EXPECT_EQ(bandwidth + channel + extension, 21);
}

TEST_F(Survey, RefusedRequests) {
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(set_ap_chan_optmz(test::keep_record, nullptr), -1); }),
                HasSubstr("parameter fail"));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(set_ap_power_optmz(test::keep_record, nullptr), -1); }),
                HasSubstr("parameter fail"));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(rfo_create_chan_optmz_thread(nullptr, 0), -1); }),
                HasSubstr("parameter fail!"));
    const std::string power = test::printed_by([] { EXPECT_EQ(rfo_create_power_optmz_thread(nullptr, 0), -1); });
    EXPECT_EQ(power.find("parameter fail!"), std::string::npos);
    test::world->acbs_runs = true;
    run_channel_survey();
    EXPECT_THAT(test::commands, ElementsAre("killall -9 acbs"));
}

}  // namespace
