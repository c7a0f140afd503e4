// platform_store_test.cpp: the working set: what is refused, where a fresh one starts from, replacing it, full file
// systems, and several processes at it, among them forked and killed ones.

#include <csignal>
#include <cstring>
#include <sys/mount.h>
#include <sys/wait.h>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

namespace {

using test::read_text;
using test::value_of;
using test::values_of;
using test::write_text;

class Store : public test::StoreWorld {};

std::string image_of(const char *value) {
    ap::host::ImageWriter writer(0);
    writer.add("from", value);
    return writer.take();
}

TEST_F(Store, RefusesWhatALineOfAFileCannotHold) {
    const std::string k511(511, 'k'), k512(512, 'k'), v2307(2307, 'v'), v2308(2308, 'v');
    const ap::host::Entries stored = {
        {"lan.ip", "192.168.0.1"}, {"empty", ""},      {"a", "b=c"},           {"a#", "#v"},
        {k511, "longest key"},     {"longest", v2307}, {"a 3", " \t\xC3\xA9 "}};
    const ap::host::Entries refused = {
        {"", "v"},           {"a=b", "c"},  {k512, "v"},   {"too long", v2308},   {"=filled", "the store's own"},
        {"#a", "a comment"}, {"a\nb", "v"}, {"a\rb", "v"}, {"line feed", "b\nc"}, {"return", "b\r"}};
    const auto expect_missing = [](const std::string &key) {
        char untouched[] = "untouched";
        EXPECT_EQ(UnSetValue(key.c_str()) + GetValue(key.c_str(), untouched), 0) << key;
        EXPECT_STREQ(untouched, "untouched");
    };
    EXPECT_IN_NEW_PROCESS({
        for (const auto &[key, value] : stored) {
            EXPECT_EQ(SetValue(key.c_str(), value.c_str()), 1) << key;
            EXPECT_EQ(value_of(key.c_str()), value);
            EXPECT_EQ(UnSetValue(key.c_str()), 1) << key;
            expect_missing(key);
        }
        for (const auto &[key, value] : refused) {
            EXPECT_EQ(SetValue(key.c_str(), value.c_str()), 0) << key;
            expect_missing(key);
        }
    });
    EXPECT_EQ(GetValue(nullptr, nullptr) + SetValue(nullptr, "v") + SetValue("a", nullptr) + UnSetValue(nullptr), 0);
}

TEST_F(Store, StartsFromTheFirstSourceThatIsWhole) {
    const std::string whole = image_of("committed"), before = image_of("before"), factory = "from=factory\n";
    std::string flipped = whole;
    flipped.back() ^= 2;
    const struct {
        std::string committed, before, factory;
        const char *from, *logged;
    } cases[] = {{whole, before, factory, "committed", "1 values of /cfg/cfm.cfg"},
                 {flipped, before, factory, "before", "/cfg/cfm.cfg is damaged"},
                 {whole.substr(0, whole.size() - 1), before, "", "before", "values of /cfg/cfm.cfg.before"},
                 {"\n", flipped, factory, "factory", "of /webroot_ro/default.cfg"},
                 {"", "", "#x\r\n\nbad\nfrom=x\nfrom=factory\r\n", "factory", "/webroot_ro/default.cfg:3: it has no"},
                 {"", "", "", "missing", "starts empty"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.logged);
        SetUp();
        if (!c.committed.empty()) write_text("/cfg/cfm.cfg", c.committed);
        if (!c.before.empty()) write_text("/cfg/cfm.cfg.before", c.before);
        if (!c.factory.empty()) write_text("/webroot_ro/default.cfg", c.factory);
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(value_of("from"), c.from));
        EXPECT_NE(read_text("/var/logs.txt").find(c.logged), std::string::npos) << read_text("/var/logs.txt");
        EXPECT_IN_NEW_PROCESS(SetValue("from", ""); EXPECT_EQ(UnSetValue("from"), 1));
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), ""));  // loaded once, not at each opening
    }
}

TEST_F(Store, IsReplacedWholeOrNotAtAll) {
    const std::string long_line = "a=1\nk=" + std::string(2308, 'v') + "\n";
    const struct {
        int (*replace)();
        std::string first, second;  // the factory file alone, or the two uploaded ones
        int result;
        const char *values;
    } cases[] = {{RestoreValue, "a=1\n\n#c\nb=2\na=3\n", "", 1, "a=3\nb=2\n"},
                 {RestoreValue, "a=1\nbad\n", "", 1, "a=1\n"},
                 {RestoreValue, "#nothing\n", "", 0, "old=1\n"},
                 {RestoreValue, "", "", 0, "old=1\n"},
                 {UploadValue, "a=1\nb=\n", "url.x=y=z\na=2", 1, "a=2\nb=\nurl.x=y=z\n"},
                 {UploadValue, "a=1\r\n", "#\r\n", 1, "a=1\n"},
                 {UploadValue, "a=1\nbad\n", "url.x=1\n", 0, "old=1\n"},
                 {UploadValue, "a=1\n", "=1\n", 0, "old=1\n"},
                 {UploadValue, long_line, "#\n", 0, "old=1\n"},
                 {UploadValue, "a=1\n", "", 0, "old=1\n"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first + c.second);
        SetUp();
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("old", "1"), 1));
        const std::string folder = c.replace == RestoreValue ? "/webroot_ro" : "/webroot";
        if (!c.first.empty()) write_text(folder + "/default.cfg", c.first);
        if (!c.second.empty()) write_text(folder + "/default_url.cfg", c.second);
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(c.replace(), c.result));
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), c.values));
    }
}

TEST_F(Store, FactoryStoreIsOneOfItsOwnAndLastsOverARestart) {
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(ApmibSetValue("mac", "02") + SetValue("other", "1") + ApmibCommitCfm(), 3));
    restart();
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(ap::host::factory_store()), "mac=02\n"); EXPECT_EQ(values_of(), ""));
}

TEST_F(Store, OthersSeeAWriteAtOnceAcrossForksAndCommandsInheritNothing) {
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(SetValue("key", "before the fork"), 1);
        EXPECT_EQ(value_of("key"), "before the fork");
        EXPECT_EQ(std::system("! ls -l /proc/self/fd 2>/dev/null | grep -q cfm"), 0);
        EXPECT_IN_NEW_PROCESS({
            EXPECT_EQ(SetValue("key", "from the child"), 1);
            EXPECT_IN_NEW_PROCESS(EXPECT_EQ(value_of("key"), "from the child"); SetValue("key", "from a grandchild"));
            EXPECT_EQ(value_of("key"), "from a grandchild");
        });
        EXPECT_EQ(value_of("key"), "from a grandchild");
        EXPECT_EQ(SetValue("key", "still writable"), 1);
    });
}

TEST_F(Store, IsFilledOnceByProcessesThatStartTogether) {
    std::string lines;
    for (int i = 1000; i < 1300; ++i) lines += "key" + std::to_string(i) + "=1\n";
    write_text("/webroot_ro/default.cfg", lines);
    for (int i = 1000; i < 1008; ++i)
        if (fork() == 0) _exit(UnSetValue(("key" + std::to_string(i)).c_str()) == 1 ? 0 : 1);
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);  // it saw its own key, so the set was full
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), lines.substr(lines.find("key1008"))));  // none of them came back
}

TEST_F(Store, GoesOnWhenReadersAndWritersAreKilled) {
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("turn", "0"), 1));
    for (int round = 0; round < 30; ++round) {
        pid_t children[3];
        for (pid_t &child : children) {
            child = fork();
            if (child != 0) continue;
            for (size_t i = 0;; ++i) {
                const std::string key = "k" + std::to_string(i % 50);
                SetValue(key.c_str(), std::string(i % 2000, 'x').c_str());
                value_of(key.c_str());
            }
        }
        usleep(static_cast<useconds_t>(2000 + round * 700 % 5000));
        for (const pid_t child : children) kill(child, SIGKILL);
        while (wait(nullptr) > 0) {}
        EXPECT_IN_NEW_PROCESS({
            alarm(20);  // a lock that a killed process left would hang here
            EXPECT_EQ(SetValue("turn", std::to_string(round).c_str()), 1);
            EXPECT_EQ(value_of("turn"), std::to_string(round));
        });
    }
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(SetValue("key", "value"), 1);
        const auto die_reading = [] { ap::host::config_store().visit([](auto, auto) { raise(SIGKILL); }); };
        EXPECT_EQ(WTERMSIG(test::run_in_child(die_reading)), SIGKILL);
        for (int i = 0; i < 8000; ++i) SetValue("key", std::to_string(i).append(2000, 'x').c_str());
    });
    EXPECT_LT(std::filesystem::file_size("/var/run/cfm.db"), ap::host::working_set_limit / 2) << "the dead hold pages";
}

// Fills the file system of a folder to the last block but for `blocks_left`.
void fill(const std::string &folder, size_t blocks_left) {
    const auto blocks = static_cast<size_t>(std::filesystem::space(folder).available / 4096);
    if (blocks > blocks_left) write_text(folder + "/filler", std::string((blocks - blocks_left) * 4096, 'x'));
}

TEST_F(Store, SaysNoOnAFullFileSystemAndRecovers) {
    const struct {
        const char *folder, *size;
        size_t most_blocks;
    } cases[] = {{"/var/run", "size=256k", 24}, {"/cfg", "size=64k", 4}};
    write_text("/webroot_ro/default.cfg", "lan.ip=192.168.0.1\n");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.folder);
        ASSERT_EQ(mount("none", c.folder, "tmpfs", 0, c.size), 0) << strerror(errno);
        int results = 0;  // bit 0: refused; bit 1: done
        for (size_t blocks_left = 0; blocks_left < c.most_blocks; ++blocks_left) {
            SCOPED_TRACE(blocks_left);
            test::empty_folder("/cfg");
            restart();
            EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("a", "old") + CommitCfm(), 2));
            restart();
            fill(c.folder, blocks_left);
            const int status =
                test::run_in_child([] { _exit(SetValue("a", std::string(2000, 'x').c_str()) && CommitCfm()); });
            ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
            results |= 1 << WEXITSTATUS(status);
            std::filesystem::remove(std::string(c.folder) + "/filler");
            restart();
            EXPECT_IN_NEW_PROCESS({
                EXPECT_EQ(value_of("a").size(), WEXITSTATUS(status) ? 2000u : 3u);
                EXPECT_EQ(value_of("lan.ip"), "192.168.0.1");
                EXPECT_EQ(SetValue("a", "new") + CommitCfm(), 2);
            });
        }
        EXPECT_EQ(results, 3);
        umount2(c.folder, MNT_DETACH);
    }
}

}  // namespace
