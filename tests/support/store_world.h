// store_world.h: what the tests of the configuration store share: a fresh device, restarts, and checks in new
// processes, since a process keeps the store that it opened.
#pragma once

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "platform/host/working_set.h"
#include "tests/support/capture.h"

namespace test {

// Runs `check` in a forked child. True when it came back there without a failed expectation.
inline bool passes_in_new_process(const std::function<void()> &check) {
    return run_in_child([&] {
               check();
               std::fflush(stdout);
               if (testing::Test::HasFailure()) _exit(1);
           }) == 0;
}
#define EXPECT_IN_NEW_PROCESS(...) EXPECT_TRUE(test::passes_in_new_process([&] { __VA_ARGS__; }))

// The values as the lines of a configuration file.
inline std::string values_of(ap::host::WorkingSet &store = ap::host::config_store()) {
    std::string lines;
    EXPECT_TRUE(store.visit([&](auto key, auto value) { ap::host::append_line(lines, key, value); }));
    return lines;
}

inline std::string value_of(const char *key, const std::string &missing = "missing") {
    char value[ap::host::longest_value + 1];
    return ap::host::config_store().get(key, value) ? value : missing;
}

inline void empty_folder(const std::string &folder) {
    std::filesystem::create_directories(folder);
    for (const auto &entry : std::filesystem::directory_iterator(folder)) std::filesystem::remove_all(entry.path());
}

class StoreWorld : public testing::Test {
protected:
    void SetUp() override {
        for (const char *folder : {"/var/run", "/cfg", "/webroot", "/webroot_ro"}) empty_folder(folder);
        std::filesystem::remove("/var/logs.txt");
    }
    static void restart() { empty_folder("/var/run"); }
};

}  // namespace test
