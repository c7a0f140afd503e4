// platform_cfm_test.cpp: the cfm command: what it prints, its exit status, and what an import takes in.

#include <sys/wait.h>

#include "applatform/config_store.h"
#include "tests/support/store_world.h"

namespace {

class Cfm : public test::StoreWorld {
protected:
    struct Result {
        int status;
        std::string output;
    };
    // Runs `cfm ARGUMENTS`; what it printed, on either stream.
    static Result cfm(const std::string &arguments) {
        const auto tests = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        const std::string program = (tests.parent_path() / "bin" / "cfm").string();
        const std::string command = "{ " + program + " " + arguments + "; } >/tmp/printed 2>&1";
        const int status = std::system(command.c_str());
        return {WEXITSTATUS(status), test::read_text("/tmp/printed")};
    }
};

TEST_F(Cfm, DoesWhatItSaysWithTheRightStatus) {
    const struct {
        const char *arguments;
        int status;
        const char *output;
    } cases[] = {
        {"set lan.ip 192.168.0.1", 0, ""},
        {"set url.a 'http://x=y'", 0, ""},
        {"set note --json", 0, ""},
        {"get lan.ip", 0, "192.168.0.1\n"},
        {"show", 0, "lan.ip=192.168.0.1\nnote=--json\n"},
        {"urlshow", 0, "url.a=http://x=y\n"},
        {"--factory show", 0, ""},
        {"show --json", 0, "{\n\t\"lan.ip\":\t\"192.168.0.1\",\n\t\"note\":\t\"--json\"\n}\n"},
        {"show /tmp/shown && cat /tmp/shown", 0, "lan.ip=192.168.0.1\nnote=--json\n"},
        {"show /dev/stdout", 0, "lan.ip=192.168.0.1\nnote=--json\n"},
        {"show /tmp/none/shown", 1, "cfm: /tmp/none/shown: No such file or directory\n"},
        {"show >/dev/full", 1, "cfm: standard output: No space left on device\n"},
        {"commit", 0, ""},
        {"unset note", 0, ""},
        {"unset note", 1, "cfm: \"note\" is not set\n"},
        {"get note", 1, "cfm: \"note\" is not set\n"},
        {"set 'a=b' c", 1, "cfm: the key holds \"=\"\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments);
        const Result result = cfm(c.arguments);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.output, c.output);
    }
    for (const char *wrong : {"", "get", "get a b", "commit now", "nonsense"}) EXPECT_EQ(cfm(wrong).status, 2) << wrong;
    for (const char *help : {"--help", "import --help"}) {
        EXPECT_EQ(cfm(help).status, 0);
        EXPECT_TRUE(cfm(help).output.starts_with("usage: cfm "));
    }
    restart();
    EXPECT_EQ(cfm("get note").output, "--json\n");  // as committed
}

TEST_F(Cfm, ImportsAllOrNothingOrWhatIsWellFormed) {
    const std::string mixed = "#comment\n\na=1\nno equals sign\n=no key\na=2\n";
    const std::string named = "/tmp/in:4: it has no \"=\"\n/tmp/in:5: the key is empty\n";
    const struct {
        const char *options;
        std::string content;
        int status;
        std::string output;
        const char *values;
    } cases[] = {
        {"", "a=1\nb=\n", 0, "2 lines imported, 0 left out\n", "a=1\nb=\nold=1\n"},
        {"--replace", "a=1\r\n", 0, "1 lines imported, 0 left out\n", "a=1\n"},
        {"", mixed, 1, named + "cfm: nothing was imported\n", "old=1\n"},
        {"--replace", mixed, 1, named + "cfm: nothing was imported\n", "old=1\n"},
        {"--skip-malformed", mixed, 0, named + "2 lines imported, 2 left out\n", "a=2\nold=1\n"},
        {"--replace --skip-malformed", mixed, 0, named + "2 lines imported, 2 left out\n", "a=2\n"},
        {"--replace", "#\n", 1, "cfm: /tmp/in holds no values\n", "old=1\n"},
        {"--replace /tmp/none", "", 2, "usage", "old=1\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.options + c.content);
        SetUp();
        cfm("set old 1");
        test::write_text("/tmp/in", c.content);
        const Result result = cfm(std::string("import /tmp/in ") + c.options);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.output.substr(0, c.output.size()), c.output);
        EXPECT_EQ(cfm("show").output, c.values);
    }
    EXPECT_EQ(cfm("import /tmp").output, "cfm: /tmp: Is a directory\n");
}

}  // namespace
