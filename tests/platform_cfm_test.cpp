// platform_cfm_test.cpp: the cfm command: what it prints, its exit status, and what an import takes in.

#include <sys/wait.h>

#include "tests/support/store_world.h"

namespace {

class Cfm : public test::StoreWorld {
protected:
    // Runs `cfm ARGUMENTS` as the box finds it; its exit status and what it printed, on either stream.
    static std::pair<int, std::string> cfm(const std::string &arguments) {
        const int status = std::system(("{ cfm " + arguments + "; } >/tmp/printed 2>&1").c_str());
        return {WEXITSTATUS(status), test::read_text("/tmp/printed")};
    }
};

TEST_F(Cfm, DoesWhatItSaysWithTheRightStatus) {
    const struct {
        const char *arguments;
        std::pair<int, std::string> result;
    } cases[] = {{"set lan.ip 192.168.0.1", {0, ""}},
                 {"set url.a 'http://x=y'", {0, ""}},
                 {"set note --json", {0, ""}},
                 {"get lan.ip", {0, "192.168.0.1\n"}},
                 {"show", {0, "lan.ip=192.168.0.1\nnote=--json\n"}},
                 {"urlshow", {0, "url.a=http://x=y\n"}},
                 {"--factory show", {0, ""}},
                 {"show --json", {0, "{\n\t\"lan.ip\":\t\"192.168.0.1\",\n\t\"note\":\t\"--json\"\n}\n"}},
                 {"urlshow /tmp/shown && cat /tmp/shown", {0, "url.a=http://x=y\n"}},
                 {"urlshow /dev/stdout", {0, "url.a=http://x=y\n"}},
                 {"show /tmp/none/shown", {1, "cfm: /tmp/none/shown: No such file or directory\n"}},
                 {"show >/dev/full", {1, "cfm: standard output: No space left on device\n"}},
                 {"commit", {0, ""}},
                 {"unset note", {0, ""}},
                 {"unset note", {1, "cfm: \"note\" is not set\n"}},
                 {"get note", {1, "cfm: \"note\" is not set\n"}},
                 {"set 'a=b' c", {1, "cfm: the key holds \"=\"\n"}}};
    for (const auto &c : cases) EXPECT_EQ(cfm(c.arguments), c.result) << c.arguments;
    for (const char *wrong : {"", "get", "get a b", "commit now", "nonsense"}) EXPECT_EQ(cfm(wrong).first, 2) << wrong;
    for (const char *help : {"--help", "import --help"}) EXPECT_TRUE(cfm(help).second.starts_with("usage: cfm "));
    restart();
    EXPECT_EQ(cfm("get note").second, "--json\n");  // as committed
}

TEST_F(Cfm, ImportsAllOrNothingOrWhatIsWellFormed) {
    const std::string mixed = "#comment\n\na=1\nno equals sign\n=no key\na=2\n";
    const std::string named = "/tmp/in:4: it has no \"=\"\n/tmp/in:5: the key is empty\n";
    const std::string refused = named + "cfm: nothing was imported\n", taken = named + "2 lines imported, 2 left out\n";
    const struct {
        const char *options;
        std::string content;
        std::pair<int, std::string> result;
        const char *values;
    } cases[] = {{"", "a=1\nb=\n", {0, "2 lines imported, 0 left out\n"}, "a=1\nb=\nold=1\n"},
                 {"--replace", "a=1\r\n", {0, "1 lines imported, 0 left out\n"}, "a=1\n"},
                 {"", mixed, {1, refused}, "old=1\n"},
                 {"--replace", mixed, {1, refused}, "old=1\n"},
                 {"--skip-malformed", mixed, {0, taken}, "a=2\nold=1\n"},
                 {"--replace --skip-malformed", mixed, {0, taken}, "a=2\n"},
                 {"--replace", "#\n", {1, "cfm: /tmp/in holds no values\n"}, "old=1\n"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.options + c.content);
        SetUp();
        cfm("set old 1");
        test::write_text("/tmp/in", c.content);
        EXPECT_EQ(cfm(std::string("import /tmp/in ") + c.options), c.result);
        EXPECT_EQ(cfm("show").second, c.values);
    }
    EXPECT_EQ(cfm("import /tmp").second, "cfm: /tmp: Is a directory\n");
}

}  // namespace
