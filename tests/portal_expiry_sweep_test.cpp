// The expiry sweep: when it runs, whom it kicks, and in which batches.

#include <ctime>

#include "tests/portal_world.h"
#include "tests/support/fake_clock.h"

namespace {

using test::Bytes;

// 2024-1-1 0:0 UTC and later; each sweep lies far enough behind the one before.
int64_t now_s = 1704067200;
int64_t later() { return now_s += 100'000; }

std::string date_of(int64_t seconds) {
    char text[32];
    const auto time_s = static_cast<time_t>(seconds);
    struct tm local;
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", localtime_r(&time_s, &local));
    return text;
}

struct Sweeper {
    test::FrameLink link;
    portal_kick_batch batch = {};

    Sweeper() {
        batch.head = {7, 99, static_cast<uint32_t>(link.near.get()), 0x1234, {192, 168, 0, 1}, {2, 1, 1, 1, 1, 1}};
        std::memset(batch.macs, 0xEE, sizeof batch.macs);
    }
    // The MACs of each frame that went out.
    std::vector<Bytes> run() {
        tpi_web_user_timeout(&batch);
        std::vector<Bytes> batches;
        for (Bytes frame; !(frame = test::received_by(link.far.get())).empty();)
            batches.emplace_back(frame.begin() + 100, frame.end());
        return batches;
    }
};

Bytes macs_from_to(unsigned int first, unsigned int last) {  // the newest device comes first
    Bytes macs;
    for (unsigned int i = first; i + 1 > last; --i) {
        const uint8_t mac[] = {2, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        macs.insert(macs.end(), std::begin(mac), std::end(mac));
        if (i == 0) break;
    }
    return macs;
}

TEST(ExpirySweep, KicksInBatchesOfHundredAndSeventy) {
    const struct {
        unsigned int devices;
        std::vector<size_t> batches;
        uint32_t left;  // in the batch afterwards
    } cases[] = {{0, {}, 0}, {1, {1}, 1}, {169, {169}, 169}, {170, {170}, 0}, {171, {170, 1}, 1}, {340, {170, 170}, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.devices);
        const int64_t expiry = later() / 60 * 60;
        {
            const test::FakeClock before(expiry);
            ASSERT_EQ(test::add({.name = "crowd", .shared = 1, .expiry_date = date_of(expiry)}), 0);
            for (unsigned int i = 0; i < c.devices; ++i) ASSERT_EQ(test::log_in("crowd", test::mac_number(i)), 15);
            Sweeper early;
            EXPECT_TRUE(early.run().empty());  // not earlier than now
            EXPECT_EQ(test::state_of("crowd"), c.devices == 0 ? 0 : 1);
        }
        const test::FakeClock after(expiry + 61);
        Sweeper sweeper;
        const auto batches = sweeper.run();
        ASSERT_EQ(batches.size(), c.batches.size());
        unsigned int next = c.devices - 1;
        for (size_t i = 0; i < batches.size(); ++i) {
            const auto size = static_cast<unsigned int>(c.batches[i]);
            EXPECT_TRUE(batches[i] == macs_from_to(next, next + 1 - size));
            next -= size;
        }
        EXPECT_EQ(sweeper.batch.head.count, c.left);
        EXPECT_EQ(test::state_of("crowd"), 2);
        EXPECT_EQ(test::log_in("crowd", test::mac_number(0)), 13);
        EXPECT_EQ(test::log_out("crowd", test::mac_number(0)), 255);
        EXPECT_EQ(test::remove("crowd"), 0);
    }
}

TEST(ExpirySweep, RunsWhenTheClockMovedByMoreThanAMinuteEitherWay) {
    const struct {
        const char *what;
        int64_t step_s;
        bool sweeps;
    } cases[] = {{"at once again", 0, false},
                 {"a minute on", 60, false},
                 {"and a second", 61, true},
                 {"a minute back", -60, false},
                 {"and a second back", -61, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const int64_t start = later() / 60 * 60;
        {
            const test::FakeClock clock(start);
            Sweeper().run();
        }
        {
            const test::FakeClock clock(start - 3600);
            ASSERT_EQ(test::add({.name = "late", .shared = 1, .expiry_date = date_of(start - 1800)}), 0);
            ASSERT_EQ(test::log_in("late", test::mac_number(1)), 15);
        }
        const test::FakeClock clock(start + c.step_s);
        EXPECT_EQ(Sweeper().run().size(), c.sweeps ? 1U : 0U);
        EXPECT_EQ(test::state_of("late"), c.sweeps ? 2 : 1);
        EXPECT_EQ(test::remove("late"), 0);
    }
}

TEST(ExpirySweep, WalksEveryBucketAndSparesWhoIsNotDue) {
    const int64_t start = later() / 60 * 60;
    const struct {
        const char *name;
        int64_t expiry_s;  // 0: none
        int state;
    } accounts[] = {{"Alice", start, 2}, {"zoe", start, 2},       {"-dash", start, 2}, {".dot", start, 2},
                    {"zack", start, 2},  {"Abel", start + 60, 1}, {"Adam", 0, 1},      {"7up", start + 3600, 1}};
    {
        const test::FakeClock before(start);
        for (const auto &a : accounts) {
            ASSERT_EQ(
                test::add({.name = a.name, .shared = 1, .expiry_date = a.expiry_s == 0 ? "" : date_of(a.expiry_s)}), 0);
            ASSERT_EQ(test::log_in(a.name, test::mac_number(5)), 15);
        }
    }
    const test::FakeClock after(start + 60);
    Sweeper sweeper;
    const auto batches = sweeper.run();
    ASSERT_EQ(batches.size(), 1U);
    EXPECT_EQ(batches[0].size(), size_t{5} * 6);
    EXPECT_EQ(test::hex({batches[0].begin(), batches[0].begin() + 6}), "020000000005");
    EXPECT_EQ(sweeper.batch.head.type, 7U);
    EXPECT_EQ(sweeper.batch.macs[5][0], 0);  // the rest of the batch is empty
    for (const auto &a : accounts) {
        SCOPED_TRACE(a.name);
        EXPECT_EQ(test::state_of(a.name), a.state);
        EXPECT_EQ(test::remove(a.name), 0);
    }
}

}  // namespace
