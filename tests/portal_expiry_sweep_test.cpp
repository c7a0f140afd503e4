// The expiry sweep: when it runs, whom it kicks, and in which batches.

#include <ctime>

#include "tests/portal_world.h"
#include "tests/support/fake_clock.h"

namespace {

using test::Bytes;

// A whole minute, 2024-1-1 0:0 UTC and later, far enough behind the sweep before.
int64_t later() {
    static int64_t now_s = 1704067200;
    return now_s += 86'400;
}

std::string date_of(int64_t seconds) {
    char text[32];
    const auto time_s = static_cast<time_t>(seconds);
    struct tm local;
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", localtime_r(&time_s, &local));
    return text;
}

void add_with_devices(const std::string &name, const std::string &expiry_date, unsigned int devices) {
    ASSERT_EQ(test::add({.name = name, .shared = 1, .expiry_date = expiry_date}), 0);
    for (unsigned int i = 0; i < devices; ++i) ASSERT_EQ(test::log_in(name, test::mac_number(i)), 15);
}

struct Sweeper {
    test::FrameLink link;
    portal_kick_batch batch = {};
    Bytes macs;  // of all frames

    // Sweeps at that time; the MACs' number in each frame.
    std::vector<size_t> run(int64_t now_s) {
        const test::FakeClock clock(now_s);
        batch.head = {7, 99, link.socket(), 0x1234, {192, 168, 0, 1}, {2, 1, 1, 1, 1, 1}};
        std::memset(batch.macs, 0xEE, sizeof batch.macs);
        tpi_web_user_timeout(&batch);
        std::vector<size_t> sizes;
        for (Bytes frame; !(frame = link.next_frame()).empty(); sizes.push_back((frame.size() - 100) / 6))
            macs.insert(macs.end(), frame.begin() + 100, frame.end());
        return sizes;
    }
};

TEST(ExpirySweep, KicksInBatchesOfHundredAndSeventy) {
    const std::pair<unsigned int, std::vector<size_t>> cases[] = {{0, {}},      {1, {1}},        {169, {169}},
                                                                  {170, {170}}, {171, {170, 1}}, {340, {170, 170}}};
    for (const auto &[devices, batches] : cases) {
        SCOPED_TRACE(devices);
        const int64_t expiry = later();
        {
            const test::FakeClock before(expiry);
            add_with_devices("crowd", date_of(expiry), devices);
        }
        Sweeper sweeper;
        EXPECT_TRUE(sweeper.run(expiry).empty());  // not earlier than now
        EXPECT_EQ(test::state_of("crowd"), devices == 0 ? 0 : 1);
        EXPECT_EQ(sweeper.run(expiry + 61), batches);
        ASSERT_EQ(sweeper.macs.size(), size_t{6} * devices);
        for (unsigned int i = 0; i < devices; ++i) {  // the newest comes first
            const unsigned int number = devices - 1 - i;
            const uint8_t mac[] = {2, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
            EXPECT_EQ(std::memcmp(&sweeper.macs[size_t{6} * i], mac, sizeof mac), 0) << i;
        }
        EXPECT_EQ(sweeper.batch.head.count, devices % 170);
        EXPECT_EQ(sweeper.batch.macs[devices % 170][0], 0);  // the rest of the batch is empty
        EXPECT_EQ(test::state_of("crowd"), 2);
        EXPECT_EQ(test::log_in("crowd", test::mac_number(0)), 13);
        EXPECT_EQ(test::log_out("crowd", test::mac_number(0)), 255);
        EXPECT_EQ(test::remove("crowd"), 0);
    }
}

TEST(ExpirySweep, RunsWhenTheClockMovedByMoreThanAMinuteEitherWay) {
    for (const int64_t step_s : {0, 60, 61, -60, -61}) {
        SCOPED_TRACE(step_s);
        const int64_t start = later();
        Sweeper sweeper;
        sweeper.run(start);
        {
            const test::FakeClock before(start - 3600);
            add_with_devices("late", date_of(start - 1800), 1);
        }
        const bool sweeps = std::abs(step_s) > 60;
        EXPECT_EQ(sweeper.run(start + step_s).size(), sweeps ? 1U : 0U);
        EXPECT_EQ(test::state_of("late"), sweeps ? 2 : 1);
        EXPECT_EQ(test::remove("late"), 0);
    }
}

TEST(ExpirySweep, WalksEveryBucketAndSparesWhoIsNotDue) {
    const int64_t start = later();
    const struct {
        const char *name;
        int64_t expiry_s;  // 0: none
        int state;
    } accounts[] = {{"Alice", start, 2}, {"zoe", start, 2},       {"-dash", start, 2}, {".dot", start, 2},
                    {"zack", start, 2},  {"Abel", start + 60, 1}, {"Adam", 0, 1},      {"7up", start + 3600, 1}};
    {
        const test::FakeClock before(start);
        for (const auto &a : accounts) add_with_devices(a.name, a.expiry_s == 0 ? "" : date_of(a.expiry_s), 1);
    }
    EXPECT_EQ(Sweeper().run(start + 60), std::vector<size_t>{5});
    for (const auto &a : accounts) {
        SCOPED_TRACE(a.name);
        EXPECT_EQ(test::state_of(a.name), a.state);
        EXPECT_EQ(test::remove(a.name), 0);
    }
}

}  // namespace
