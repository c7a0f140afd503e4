// store_world.h: what the tests of the configuration store share: a fresh device, restarts, and checks in new processes,
// since a process keeps the store that it opened.
#pragma once

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "platform/host/working_set.h"
#include "tests/support/capture.h"

namespace test {

inline void empty_folder(const std::string &folder) {
    std::filesystem::create_directories(folder);
    for (const auto &entry : std::filesystem::directory_iterator(folder)) std::filesystem::remove_all(entry.path());
}

// Runs `check` in a forked child. True when it came back there without a failed expectation.
inline bool passes_in_new_process(const std::function<void()> &check) {
    return run_in_child([&] {
               check();
               std::fflush(stdout);
               if (testing::Test::HasFailure()) _exit(1);
           }) == 0;
}
#define EXPECT_IN_NEW_PROCESS(...) EXPECT_TRUE(test::passes_in_new_process([&] { __VA_ARGS__; }))

// The values as the lines of a configuration file; only in a process of its own.
inline std::string values_of(ap::host::WorkingSet &store = ap::host::config_store()) {
    std::string lines;
    EXPECT_TRUE(store.visit([&](auto key, auto value) { ap::host::append_line(lines, key, value); }));
    return lines;
}

class StoreWorld : public testing::Test {
protected:
    void SetUp() override {
        for (const char *folder : {"/var/run", "/cfg", "/webroot", "/webroot_ro"}) empty_folder(folder);
        std::filesystem::remove("/var/logs.txt");
    }
    static void restart() { empty_folder("/var/run"); }
};

// A small file system in memory over a folder, until the end of the scope.
class SmallFileSystem {
public:
    SmallFileSystem(const char *folder, const std::string &size) : folder_(folder) {
        EXPECT_EQ(mount("none", folder, "tmpfs", 0, ("size=" + size).c_str()), 0) << strerror(errno);
    }
    ~SmallFileSystem() { umount2(folder_.c_str(), MNT_DETACH); }
    SmallFileSystem(const SmallFileSystem &) = delete;
    SmallFileSystem &operator=(const SmallFileSystem &) = delete;

    // Fills it to the last block but for `blocks_left`; `release` gives all of it back.
    void fill(size_t blocks_left) const {
        std::string block(4096, 'x');
        FILE *file = std::fopen(filler().c_str(), "w");
        std::setvbuf(file, nullptr, _IONBF, 0);
        while (std::fwrite(block.data(), 1, block.size(), file) == block.size()) {}
        const long whole = std::ftell(file) / 4096 - static_cast<long>(blocks_left);
        EXPECT_EQ(ftruncate(fileno(file), std::max(whole, 0L) * 4096), 0);
        std::fclose(file);
    }
    void release() const { std::filesystem::remove(filler()); }

private:
    std::string filler() const { return folder_ + "/filler"; }
    std::string folder_;
};

}  // namespace test
