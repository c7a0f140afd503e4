// platform_store_test.cpp: the working set: what is refused, where a fresh one starts from, replacing it, and several
// processes at it, among them forked and killed ones.

#include <csignal>
#include <cstring>
#include <sys/wait.h>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

namespace {

using test::values_of;
using test::write_text;

constexpr size_t value_size = ap::host::longest_value + 1;

struct Value {
    char text[value_size + 1] = {};
    int found;
    explicit Value(const char *key) : found(GetValue(key, text)) {}
};
std::string value_of(const char *key) { return Value(key).text; }

std::string image_of(const ap::host::Entries &entries) {
    ap::host::ImageWriter writer(0);
    for (const auto &[key, value] : entries) writer.add(key, value);
    return writer.take();
}
std::string damaged(std::string image) { return image.back() ^= 2, image; }

class Store : public test::StoreWorld {};

TEST_F(Store, RefusesWhatALineOfAFileCannotHold) {
    const std::string key_511(511, 'k'), key_512(512, 'k'), value_2307(2307, 'v'), value_2308(2308, 'v');
    const struct {
        const char *what;
        std::string key, value;
        int stored;
    } cases[] = {
        {"plain", "lan.ip", "192.168.0.1", 1},
        {"empty value", "lan.name", "", 1},
        {"longest key", key_511, "v", 1},
        {"key too long by one", key_512, "v", 0},
        {"longest value", "long", value_2307, 1},
        {"value too long by one", "long2", value_2308, 0},
        {"empty key", "", "v", 0},
        {"equals sign in the key", "a=b", "v", 0},
        {"the store's own key", "=filled", "v", 0},
        {"equals sign in the value", "a", "b=c", 1},
        {"key that reads as a comment", "#a", "v", 0},
        {"number sign inside", "a#", "#v", 1},
        {"line feed in the key", "a\nb", "v", 0},
        {"carriage return in the key", "a\rb", "v", 0},
        {"line feed in the value", "a1", "b\nc", 0},
        {"carriage return in the value", "a2", "b\r", 0},
        {"blanks and bytes above 127", "a 3", " \t\xC3\xA9 ", 1},
    };
    EXPECT_IN_NEW_PROCESS(for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Value before(c.key.c_str());
        EXPECT_EQ(before.found, 0);
        EXPECT_EQ(SetValue(c.key.c_str(), c.value.c_str()), c.stored);
        Value after(c.key.c_str());
        EXPECT_EQ(after.found, c.stored);
        EXPECT_EQ(after.text, c.stored ? c.value : std::string());
        EXPECT_EQ(UnSetValue(c.key.c_str()), c.stored);
        EXPECT_EQ(UnSetValue(c.key.c_str()), 0);
    });
    EXPECT_IN_NEW_PROCESS({
        char untouched[] = "untouched";
        EXPECT_EQ(GetValue("missing", untouched) + GetValue(nullptr, untouched) + GetValue("a", nullptr), 0);
        EXPECT_EQ(SetValue(nullptr, "v") + SetValue("a", nullptr) + UnSetValue(nullptr), 0);
        EXPECT_STREQ(untouched, "untouched");
    });
}

TEST_F(Store, StartsFromTheFirstSourceThatIsWhole) {
    const std::string committed = image_of({{"from", "committed"}}), before = image_of({{"from", "before"}});
    const struct {
        const char *what;
        std::string committed, before, factory;
        const char *from, *logged;
    } cases[] = {
        {"all there", committed, before, "from=factory\n", "committed", "1 values of /cfg/cfm.cfg"},
        {"flipped bit", damaged(committed), before, "from=factory\n", "before", "/cfg/cfm.cfg is damaged"},
        {"cut short", committed.substr(0, committed.size() - 1), before, "", "before", "values of /cfg/cfm.cfg.before"},
        {"empty file", "\n", before, "", "before", "values of /cfg/cfm.cfg.before"},
        {"both damaged", damaged(committed), damaged(before), "from=factory\n", "factory", "of /webroot_ro/default.cfg"},
        {"first start", "", "", "#x\r\n\nbad\nfrom=x\nfrom=factory\r\n", "factory", "/webroot_ro/default.cfg:3: it has no"},
        {"nothing anywhere", "", "", "", "", "starts empty"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        if (!c.committed.empty()) write_text("/cfg/cfm.cfg", c.committed);
        if (!c.before.empty()) write_text("/cfg/cfm.cfg.before", c.before);
        if (!c.factory.empty()) write_text("/webroot_ro/default.cfg", c.factory);
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(value_of("from"), c.from));
        EXPECT_NE(test::read_text("/var/logs.txt").find(c.logged), std::string::npos) << test::read_text("/var/logs.txt");
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("from", "") + UnSetValue("from"), 2));
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), ""));  // loaded once, not at each opening
    }
}

TEST_F(Store, IsReplacedWholeOrNotAtAll) {
    constexpr const char *upload = "/webroot/default.cfg", *urls = "/webroot/default_url.cfg";
    constexpr const char *factory = "/webroot_ro/default.cfg";
    const std::string long_line = "k=" + std::string(2308, 'v') + "\n";
    const struct {
        const char *what;
        int (*replace)();
        std::string factory_text, upload_text, url_text;
        int result;
        const char *values;
    } cases[] = {
        {"factory values", RestoreValue, "a=1\n\n#c\nb=2\na=3\n", "", "", 1, "a=3\nb=2\n"},
        {"malformed factory line", RestoreValue, "a=1\nbad\n", "", "", 1, "a=1\n"},
        {"no factory values", RestoreValue, "#nothing\n", "", "", 0, "old=1\n"},
        {"no factory file", RestoreValue, "", "", "", 0, "old=1\n"},
        {"both files, the last of a key wins", UploadValue, "", "a=1\nb=\n", "url.x=y=z\na=2", 1, "a=2\nb=\nurl.x=y=z\n"},
        {"line feeds of another system", UploadValue, "", "a=1\r\n", "#\r\n", 1, "a=1\n"},
        {"malformed line", UploadValue, "", "a=1\nbad\n", "url.x=1\n", 0, "old=1\n"},
        {"line with an empty key", UploadValue, "", "a=1\n", "=1\n", 0, "old=1\n"},
        {"value too long by one", UploadValue, "", "a=1\n" + long_line, "#\n", 0, "old=1\n"},
        {"second file missing", UploadValue, "", "a=1\n", "", 0, "old=1\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("old", "1"), 1));
        if (!c.factory_text.empty()) write_text(factory, c.factory_text);
        if (!c.upload_text.empty()) write_text(upload, c.upload_text);
        if (!c.url_text.empty()) write_text(urls, c.url_text);
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(c.replace(), c.result));
        EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), c.values));
    }
    std::filesystem::remove(factory);
    std::filesystem::create_directory(factory);
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(RestoreValue(), 0));
}

TEST_F(Store, FactoryStoreIsOneOfItsOwnAndLastsOverARestart) {
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(ApmibSetValue("mac", "02:00:5e:00:00:01"), 1);
        EXPECT_EQ(SetValue("other", "1"), 1);
        EXPECT_EQ(ApmibCommitCfm(), 1);
    });
    restart();
    EXPECT_IN_NEW_PROCESS({
        char mac[value_size] = {};
        EXPECT_EQ(ApmibGetValue("mac", mac), 1);
        EXPECT_STREQ(mac, "02:00:5e:00:00:01");
        EXPECT_EQ(Value("mac").found + Value("other").found, 0);
    });
}

TEST_F(Store, OthersSeeAWriteAtOnceAcrossForks) {
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(SetValue("key", "before the fork"), 1);
        EXPECT_EQ(value_of("key"), "before the fork");
        for (const std::string turn : {"first", "second"}) {
            EXPECT_IN_NEW_PROCESS({
                EXPECT_EQ(SetValue("key", turn.c_str()), 1);
                EXPECT_IN_NEW_PROCESS(EXPECT_EQ(value_of("key"), turn); SetValue("key", "from a grandchild"));
                EXPECT_EQ(value_of("key"), "from a grandchild");
            });
            EXPECT_EQ(value_of("key"), "from a grandchild");
        }
        EXPECT_EQ(SetValue("key", "still writable"), 1);
    });
}

TEST_F(Store, IsFilledOnceByProcessesThatStartTogether) {
    std::string factory;
    for (int i = 0; i < 300; ++i) factory += "key" + std::to_string(1000 + i) + "=1\n";
    write_text("/webroot_ro/default.cfg", factory);
    std::vector<pid_t> children;
    for (int i = 0; i < 8; ++i) {
        children.push_back(fork());
        if (children.back() == 0) _exit(UnSetValue(("key" + std::to_string(1000 + i)).c_str()) == 1 ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);  // it saw its own key, so the set was full
    }
    factory.erase(0, 8 * std::strlen("key1000=1\n"));
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(values_of(), factory));  // what was removed never came back
}

TEST_F(Store, GoesOnWhenReadersAndWritersAreKilled) {
    constexpr int rounds = 30, steps_before_kill_us = 700;
    EXPECT_IN_NEW_PROCESS(EXPECT_EQ(SetValue("turn", "0"), 1));
    for (int round = 0; round < rounds; ++round) {
        pid_t children[3];
        for (pid_t &child : children) {
            child = fork();
            if (child != 0) continue;
            for (int i = 0;; ++i) {
                const std::string key = "k" + std::to_string(i % 50), value(static_cast<size_t>(i % 2000), 'x');
                SetValue(key.c_str(), value.c_str());
                Value read(key.c_str());
            }
        }
        usleep(static_cast<useconds_t>(2000 + round * steps_before_kill_us % 5000));
        for (const pid_t child : children) kill(child, SIGKILL);
        for (const pid_t child : children) waitpid(child, nullptr, 0);
        EXPECT_IN_NEW_PROCESS({
            alarm(20);  // a lock that a killed process left would hang here
            EXPECT_EQ(SetValue("turn", std::to_string(round).c_str()), 1);
            EXPECT_EQ(value_of("turn"), std::to_string(round));
        });
    }
    EXPECT_LT(std::filesystem::file_size("/var/run/cfm.db"), ap::host::working_set_limit / 2);  // the dead hold no pages back
}

TEST_F(Store, SaysNoOnAFullRunTimeFolderAndRecovers) {
    write_text("/webroot_ro/default.cfg", "lan.ip=192.168.0.1\n");
    const test::SmallFileSystem small("/var/run", "256k");
    int refused = 0, stored = 0;
    for (size_t blocks_left = 0; blocks_left < 24; ++blocks_left) {
        SCOPED_TRACE(blocks_left);
        test::empty_folder("/var/run");
        small.fill(blocks_left);
        const int status = test::run_in_child([] { _exit(SetValue("a", std::string(2000, 'x').c_str()) == 1 ? 10 : 11); });
        ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
        ++(WEXITSTATUS(status) == 10 ? stored : refused);
        small.release();
        EXPECT_IN_NEW_PROCESS({
            EXPECT_EQ(Value("a").found, WEXITSTATUS(status) == 10 ? 1 : 0);
            EXPECT_EQ(value_of("lan.ip"), "192.168.0.1");
            EXPECT_EQ(SetValue("b", "1"), 1);
        });
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(stored, 0);
}

TEST_F(Store, CommandsInheritNoDescriptor) {
    EXPECT_IN_NEW_PROCESS({
        EXPECT_EQ(SetValue("a", "1"), 1);
        EXPECT_EQ(std::system("! ls -l /proc/self/fd | grep -q cfm"), 0);
    });
}

}  // namespace
