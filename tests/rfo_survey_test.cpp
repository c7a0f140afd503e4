// rfo_survey_test.cpp: complete survey runs on scripted radios: the records byte for byte, every failing step with its
// clean-up, hostile neighbour lines and measurement files, the averages, and the snapshot of the channels in use.

#include "tests/rfo_world.h"

using test::Words;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char one[] = "02:00:00:00:00:11", two[] = "02:00:00:00:00:22", lan_mac[] = "02:00:00:00:00:01";
constexpr char first_mac[] = "aa:bb:cc:00:00:01";

using Entry = int (*)(rfo_callback callback, const void *request);

// Runs a survey to its end; what it printed.
std::string run(Entry start, unsigned char mode = 1, unsigned char delay = 0) {
    const unsigned char request[2] = {mode, delay};
    return test::printed_by([&] {
        EXPECT_EQ(start(test::keep_record, request), 0);
        test::wait_for_worker();
    });
}

// The only record, of a run that reports.
std::string reported_by(Entry start, unsigned char mode = 1) {
    run(start, mode);
    EXPECT_EQ(test::records.size(), 1U);
    return test::records.empty() ? "" : test::records[0];
}

class Survey : public test::RfoTest {
protected:
    void SetUp() override {
        RfoTest::SetUp();
        test::world->measurement =
            R"({"chanlist_24g": [{"channel": 1, "ap_num": 2, "busy": 70000, "score": 9}, {"channel": 300},
            {"channel": "x", "ap_num": null}], "chanlist_5g": [{"channel": 36, "ap_num": 1, "busy": 4, "score": 5}]})";
        test::world->neighbour_lines = test::line_of(one, first_mac, "AA:BB:CC:00:00:51") +
                                       test::line_of(two, "aa:bb:cc:00:00:02", "aa:bb:cc:00:00:52");
        test::world->radios[24].heard = {{"aa:bb:cc:00:00:09", "-20"}, {first_mac, "-51"}, {first_mac, "-10"}};
        test::world->radios[5].heard = {{"aa:bb:cc:00:00:51", "-60"}};
    }
};

TEST_F(Survey, ChannelRunReportsBothBandsAndAllNeighbours) {
    run(set_ap_chan_optmz, 0, 3);
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
    EXPECT_EQ(record.substr(88), one + std::string("\0\xcd\xff\xc4\xff\0\0", 7) + two + std::string(7, '\0'))
        << "-51 and -60; the other one was heard on no band";

    EXPECT_THAT(clock.waits_ms(), ElementsAre(4000, 1000)) << "1 from the MAC and 3 asked for, then the scans settle";
    EXPECT_THAT(test::world->calls, ElementsAre("destroy 98", "destroy 99", "disable", "enable",
                                                "create 99 17 1 128 os_wlan0.0,os_wlan1.1 []",
                                                "create 98 17 1 128 os_wlan0.0,os_wlan1.1 [nbAP]",
                                                "publish ugw.wifi_measure.all_chan_measure_request", "destroy 98",
                                                "destroy 99", "disable"));
    EXPECT_EQ(test::read_text("/proc/kv_wlan/private_ie/private_ie_99"), "enable");
    EXPECT_EQ(test::read_text("/proc/kv_wlan/private_ie/private_ie"), "age 98 120");
    EXPECT_NE(access(test::measure_file, F_OK), 0);
    EXPECT_THAT(g_before_cfg, testing::Each(0));
}

TEST_F(Survey, TheOwnLineDescribesBothRadiosWithinItsLength) {
    std::string own;
    test::world->on_scan = [&] {
        if (own.empty()) own = test::read_text(test::lines_file);
    };
    test::world->values["r5.enable"] = "0";
    const std::string printed = run(set_ap_chan_optmz);
    EXPECT_EQ(
        own,
        "02:00:00:00:00:01nbAP:MAC2G=02:00:00:00:00:02;SSID2G=two;CH2G=6;MAC5G=00:00:00:00:00:00;SSID5G=;CH5G=0;\n");
    for (const char *line : {"5 not enable", "5 get ifname fail", "5G rfo_do_scan_full fail"})
        EXPECT_THAT(printed, HasSubstr(line));

    own.clear();
    test::world->values["s24_0.bss_ssid"] = std::string(300, 's');
    run(set_ap_chan_optmz);
    EXPECT_EQ(own.size(), 256U);
}

TEST_F(Survey, FailingStepsEndTheRunOrAreBridged) {
    const struct {
        const char *message, *failing;
        int times;
        size_t length;  // of the record; 0: none
        int64_t waits_ms;
        const char *measurement = nullptr;
    } cases[] = {
        {"get lan ifname fail", "LAN MAC", 1, 0, 0},
        {"rfo_init err", "enable", 2, 0, 1000},
        {"uwb_private_ie_enable err", "enable", 1, 136, 3000},
        {"create port[99] fail", "create 99", 2, 0, 1000},
        {"create port[98] fail", "create 98", 4, 0, 1400},
        {"", "create 98", 1, 136, 2200},
        {"get ifname fail", "OS name", 4, 0, 1000},
        {"24G rfo_do_scan_full fail", "scan", 1, 136, 2000},
        {"neighbourAP identify err", "lines", 2, 0, 2000},
        {"open file fail", "", 0, 72, 30000 + 2000, ""},
        {"cJSON_Parse fail", "", 0, 72, 2000, "{"},
        {"no chanlist_24g, maybe 2.4g is disable", "", 0, 88, 2000, R"({"chanlist_5g": [{}]})"},
        {"no chanlist_5g, maybe 5g is disable", "", 0, 88, 2000, R"({"chanlist_24g": [{}]})"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.message) + ": " + c.failing);
        SetUp();
        test::world->fails[c.failing] = c.times;
        if (c.measurement != nullptr) test::world->measurement = c.measurement;
        const int64_t before_ms = clock.elapsed_ms();
        EXPECT_THAT(run(set_ap_chan_optmz), HasSubstr(c.message));
        EXPECT_EQ(test::records.empty() ? 0 : test::records[0].size(), c.length);
        EXPECT_EQ(clock.elapsed_ms() - before_ms, c.waits_ms);
        const auto &calls = test::world->calls;
        if (calls.empty()) continue;  // before anything was set up
        EXPECT_EQ(Words(calls.end() - 3, calls.end()), (Words{"destroy 98", "destroy 99", "disable"}));
    }
}

TEST_F(Survey, NeighbourLinesAreDroppedForAMacAndKeptWithoutAnSsid) {
    const std::string m2 = "MAC2G=aa:bb:cc:00:00:01;", m5 = "MAC5G=aa:bb:cc:00:00:01;", ssid(36, 's');
    const struct {
        std::string fields;
        int neighbours;
        const char *message;
    } cases[] = {
        {"MAC2G=aa:bb:cc:00:00:0;" + m5, 0, "MAC2Glength(16) is incorrect."},
        {m2 + "MAC5G=aa:bb:cc:00:00:010;", 0, "MAC2Glength(18) is incorrect."},
        {m2 + m5 + "SSID2G=" + ssid + ";", 1, ""},
        {m2 + m5 + "SSID2G=s" + ssid + ";", 1, "SSID2Glength(37) is incorrect."},
        {m2 + m5 + "SSID5G=;", 1, "SSID5Glength(0) is incorrect."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fields);
        SetUp();
        test::world->neighbour_lines = std::string(one) + "nbAP:" + c.fields;
        const std::string printed = run(set_ap_chan_optmz);
        EXPECT_THAT(printed, HasSubstr(c.message));
        EXPECT_EQ(printed.find("incorrect") != std::string::npos, *c.message != '\0');
        ASSERT_EQ(test::records.size(), 1U);
        EXPECT_EQ(test::records[0][21], c.neighbours);
    }
}

TEST_F(Survey, MoreNeighboursThanTheCountCanSayAreLeftOut) {
    test::world->neighbour_lines.clear();
    for (int i = 100; i < 400; ++i)
        test::world->neighbour_lines += test::line_of("02:00:00:00:00" + std::to_string(i), first_mac, first_mac);
    const std::string record = reported_by(set_ap_chan_optmz);
    EXPECT_EQ(record.size(), 24U + 16 * 4 + 24 * 255);
    EXPECT_EQ(record.at(21), '\xff');
}

// The second neighbour is never heard, so both bands take all four scans; the ports stay up.
TEST_F(Survey, ImmediatePowerRunMovesToTheReferenceChannelsAndListsWhomItHears) {
    test::world->values["r5.nettype"] = "an";
    test::world->radios[5].channel = 44;
    g_before_cfg[1] = 9;
    for (const char *setting : {"r24.curpower=17", "r24.minpower=5", "r24.power_compensate=3", "r24.web_max_power=26",
                                "r5.curpower=23", "r5.minpower=9", "r5.web_max_power=300"})
        test::world->values[std::string(setting, std::strchr(setting, '='))] = std::strchr(setting, '=') + 1;
    EXPECT_EQ(reported_by(set_ap_power_optmz, 0), std::string(lan_mac) +
                                                      std::string("\0\x14\x08\x1a\x17\x09\x2c\0\0\0\x01", 11) + one +
                                                      std::string("\0\xcd\xff\xc4\xff\0\0", 7));
    EXPECT_EQ(test::world->scans, 2 + 4 + 4);
    EXPECT_EQ(clock.elapsed_ms(), 1000 + 1000 + 1000);
    EXPECT_THAT(test::world->calls,
                ElementsAre("set r24.channel=6", "set r24.bandwidth=20", "publish cloud.wifi.update", "commit",
                            "set r5.channel=36", "set r5.bandwidth=40", "switch wlan1.1 36 40",
                            "publish cloud.wifi.update", "commit", "destroy 98", "destroy 99", "disable", "enable",
                            "create 99 17 1 128 os_wlan0.0,os_wlan1.1 []",
                            "create 98 17 1 128 os_wlan0.0,os_wlan1.1 [nbAP]"));
    EXPECT_THAT(g_before_cfg, ElementsAre(0, 9, 0, 80, 44, 40)) << "kept from before, and taken before the move";
}

TEST_F(Survey, RepeatedScansAverageAndStopWhenEveryNoteWasHeardOften) {
    const struct {
        size_t notes;
        bool up_5g;
        int scans;
        const char *rssi_24g;
    } cases[] = {
        {0, true, 2 + 1 + 1, ""},
        {1, true, 2 + 2 + 2, "\xc6\xff"},  // -50 and -61 make -55, with -61 again -58
        {4, false, 2 + 2 + 0, "\xc6\xff"},
        {5, true, 2 + 1 + 1, "\xc9\xff"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.notes);
        SetUp();
        test::world->neighbour_lines.clear();
        test::world->radios[5].up = c.up_5g;
        const auto mac_of = [](size_t note) { return "aa:bb:cc:00:00:0" + std::to_string(note); };
        for (size_t i = 0; i < c.notes; ++i)
            test::world->neighbour_lines += test::line_of("02:00:00:00:00:1" + std::to_string(i), mac_of(i), mac_of(i));
        test::world->on_scan = [&] {
            for (auto &[band, radio] : test::world->radios) radio.heard.clear();
            for (auto &[band, radio] : test::world->radios)
                for (size_t i = 0; i < c.notes; ++i)
                    radio.heard.emplace_back(mac_of(i), test::world->scans == 1 ? "-50" : "-61");
        };
        const std::string record = reported_by(set_ap_power_optmz);
        EXPECT_EQ(record.size(), 28 + 24 * c.notes);
        EXPECT_EQ(record.substr(std::min<size_t>(28 + 18, record.size()), 2), c.rssi_24g);
        EXPECT_EQ(test::world->scans, c.scans);
    }
}

TEST_F(Survey, ChannelsAndSnapshotsAreGivenPerBand) {
    int words[3] = {7, 7, 7};
    unsigned char kept[3] = {9, 9, 9};
    const auto query = [&](int band) { return rfo_get_chan_info(band, &words[0], &words[1], &words[2]); };
    const struct {
        int band, snapshot;
        const char *line;
    } cases[] = {{6, 1, "rfo_get_chan_info        : unsupport 6g\n"},
                 {2, 1, ""},
                 {24, 2, "rfo_get_chan_info        : uwb_get_chan_info err!\n"},
                 {5, 2, "5 not enable ssid idx[2] max_bss[2]\n"}};
    EXPECT_EQ(rfo_get_all_chan_info(), 2);
    test::world->radios[24].answers = false;
    test::world->values["s5_1.bss_enable"] = "0";
    for (const auto &c : cases) {
        SCOPED_TRACE(c.band);
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(query(c.band), 1); }), HasSubstr(c.line));
        EXPECT_THAT(words, testing::Each(7));
        test::printed_by([&] { EXPECT_EQ(rfo_get_before_cfg_info(c.band, kept), c.snapshot); });
        EXPECT_THAT(kept, c.snapshot == 1 ? ElementsAre(9, 9, 9)
                          : c.band == 24  ? ElementsAre(20, 6, 0)
                                          : ElementsAre(80, 36, 40));
        test::printed_by([&] { EXPECT_EQ(rfo_clean_before_cfg_info(c.band), c.snapshot); });
        EXPECT_EQ(g_before_cfg[1], c.snapshot == 1 ? 6 : 0);
    }
    EXPECT_EQ(g_before_cfg[4], 0);
}

TEST_F(Survey, RefusedRequestsStartNothing) {
    static constexpr unsigned char request[2] = {1, 0};
    static constexpr auto keep = test::keep_record;
    const struct {
        const char *line;
        int (*start)();
    } cases[] = {
        {"set_ap_chan_optmz        : parameter fail\n", [] { return set_ap_chan_optmz(keep, nullptr); }},
        {"set_ap_power_optmz       : parameter fail\n", [] { return set_ap_power_optmz(keep, nullptr); }},
        {"rfo_create_chan_optmz_thr: parameter fail!\n", [] { return set_ap_chan_optmz(nullptr, request); }},
        {"rfo_create_power_optmz_th: parameter fail\n", [] { return set_ap_power_optmz(nullptr, request); }},
        {"Create chan_optmz_thread is fail.\n", [] { return set_ap_chan_optmz(keep, request); }},
        {"Create power_optmz_thread is fail.\n", [] { return set_ap_power_optmz(keep, request); }},
    };
    test::workers_are = test::Workers::refused;
    for (const auto &c : cases) EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(c.start(), -1); }), HasSubstr(c.line));

    test::workers_are = test::Workers::usual;
    EXPECT_THAT(test::commands, testing::IsEmpty());
    test::world->acbs_runs = true;
    run(set_ap_chan_optmz);
    EXPECT_THAT(test::commands, ElementsAre("killall -9 acbs"));
}

}  // namespace
