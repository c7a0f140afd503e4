// wireless_keys_threads_test.cpp: many threads that use a prefix for the first time at once all see the whole of it,
// and many threads share the world of the virtual radios.

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "applatform/interfaces.h"
#include "apsupport/wireless.h"
#include "tests/support/scripted_store.h"

namespace {

template <typename Action> void in_threads(int count, Action action) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) threads.emplace_back(action, i);
    for (auto &thread : threads) thread.join();
}

}  // namespace

TEST(PrefixThreads, AllSeeTheWholePrefix) {
    const std::string prefix(60, 'p');
    for (const char *band : {"wlan24g", "wlan5g"})
        for (const char *part : {".bss_mib_prefix", ".radio_mib_prefix", ".extra_mib_prefix"})
            test::store.values[std::string(band) + part] = prefix;
    test::store.values["wlan.mib_prefix_flag"] = "1";
    std::string seen[8];
    in_threads(8, [&](int thread) {
        for (const unsigned int kind : {2u, 3u, 4u, 5u, 6u, 7u, 12u, 13u, 14u, 15u, 16u, 17u}) {
            char out[64] = {};
            get_mib_prefix(out, kind, 1);
            seen[thread] += std::string(out) + ",";
        }
    });
    for (const std::string &text : seen) EXPECT_EQ(text, seen[0]);
    EXPECT_EQ(seen[0].substr(0, 60 + 2 + 60 + 3), prefix + "_," + prefix + "1_,");
}

TEST(WorldThreads, LoseNoChange) {
    in_threads(4, [](int thread) {
        for (int i = 0; i < 20; ++i) EXPECT_EQ(iof_gpio_lock_set(20 * thread + i, 1), 0);
    });
    for (int line = 0; line < 4 * 20; ++line) {
        int locked = 0;
        EXPECT_EQ(iof_gpio_lock_get(line, &locked), 0);
        EXPECT_EQ(locked, 1) << line;
    }
}
