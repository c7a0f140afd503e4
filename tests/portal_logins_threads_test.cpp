// The portal's tables under many threads: no log-in is lost, none is counted twice.

#include <atomic>

#include "tests/portal_world.h"
#include "tests/support/capture.h"

namespace {

constexpr unsigned int thread_count = 8, rounds = 200;

template <typename Action> void in_threads(Action action) {
    std::vector<std::thread> threads;
    test::printed_by([&] {
        for (unsigned int i = 0; i < thread_count; ++i) threads.emplace_back([=] { action(i); });
        for (auto &thread : threads) thread.join();
    });
}

TEST(LogIns, ComeFromManyThreads) {
    ASSERT_EQ(test::add({.name = "all", .shared = 1}), 0);
    const test::FrameLink link;
    in_threads([&](unsigned int thread) {
        portal_kick_batch batch = {};
        batch.head.socket = link.socket();
        const std::string own = "own" + std::to_string(thread);
        for (unsigned int i = 0; i < rounds; ++i) {
            EXPECT_EQ(test::log_in("all", test::mac_number(thread * rounds + i)), 15);
            EXPECT_EQ(test::add({.name = own, .shared = 1}), 0);
            EXPECT_EQ(test::log_in(own, test::mac_number(i)), 15);
            EXPECT_EQ(test::remove(own), 0);
            if (i % 50 == 0) tpi_web_user_timeout(&batch);
        }
    });
    std::atomic<unsigned int> gone{0};
    in_threads([&](unsigned int thread) {
        for (unsigned int i = 0; i < rounds; ++i)
            gone += test::log_out("all", test::mac_number((thread + 1) % thread_count * rounds + i)) == 0 ? 1 : 0;
    });
    EXPECT_EQ(gone, thread_count * rounds);
    EXPECT_EQ(test::state_of("all"), 0);
    EXPECT_EQ(test::remove("all"), 0);
}

TEST(ListsAndPhones, AreReplacedWhileTheyAreRead) {
    in_threads([](unsigned int thread) {
        portal_white_list white = {20, {}};
        portal_black_list black = {150, 0, {}};
        for (auto &mac : white.macs) test::fill_field(mac, test::mac_number(thread));
        for (auto &phone : black.phones) phone = thread;
        portal_phone_request request = {};
        request.phone = thread_count;
        for (unsigned int i = 0; i < rounds; ++i) {
            EXPECT_EQ(tpi_init_white_mac_list(&white) + tpi_ap_portal_init_black_list(&black), 0);
            EXPECT_EQ(tpi_check_white_mac("02:00:00:00:FF:FF"), 0);
            EXPECT_EQ(tpi_check_black_list(&request), 19);
            EXPECT_EQ(tpi_ap_portal_add_phone_list(&request) + tpi_phone_username_timeout(), 0);
            EXPECT_EQ(tpi_ap_portal_check_phone(&request), 255);
        }
    });
}

}  // namespace
