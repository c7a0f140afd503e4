// Boxes come and go: exit statuses, signals, names, networks, restarts, leftovers, and what is said when none can be
// had.

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

#include "tests/support/capture.h"
#include "tests/support/outside_box.h"

namespace {

using namespace test;
namespace fs = std::filesystem;

class Box : public testing::TestWithParam<As> {
protected:
    ~Box() override { apbox({"stop", "--network", network}, GetParam()); }

    Outcome call(const std::vector<std::string> &words) const { return apbox(words, GetParam()); }
    Outcome script(const std::string &text, const std::vector<std::string> &options = {}) const {
        return script_in_box(text, GetParam(), options);
    }
    Outcome start(const std::string &name, std::vector<std::string> more = {}) const {
        std::vector<std::string> words = {"start", name, "--network", network};
        words.insert(words.end(), more.begin(), more.end());
        return call(words);
    }
    Outcome enter(const std::string &name, const std::string &text) const {
        return call({"enter", name, "--", "sh", "-c", text});
    }

    // No other test has boxes of these names at the same time.
    const std::string network = "test" + std::to_string(getpid()), one = network + "-1", two = network + "-2";
};

TEST_P(Box, EndsAsItsCommandDoes) {
    const struct {
        const char *what, *script;
        int status;
    } cases[] = {
        {"success", "true", 0},
        {"a status", "exit 5", 5},
        {"the highest status", "exit 255", 255},
        {"a signal", "kill -TERM $$", 128 + SIGTERM},
        {"a hard signal", "kill -KILL $$", 128 + SIGKILL},
        {"halt", "halt; sleep 5", 128 + SIGTERM},
        {"poweroff", "trap 'exit 9' TERM; poweroff; sleep 0.1 & wait", 9},
        {"a process is left behind", "sleep 100 & exit 3", 3},
        {"one that obeys no signal", "trap '' TERM; sleep 100 & exit 4", 4},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(script(c.script).status, c.status);
    }
    EXPECT_EQ(call({"run", "--", "/no/such/program"}).status, 127);
    EXPECT_EQ(call({"run", "--", "/etc"}).status, 126);
}

TEST_P(Box, RefusesWrongUseWithOneLine) {
    for (const char *line :
         {"", "jump", "run", "run --", "run true", "enter", "run --no", "run --name", "start bad/name", "start a b",
          "list x", "stop -- x", "run --clock 0 -- true", "run --clock ten -- true", "run --address 1.2.3 -- true",
          "run --network nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn -- true"}) {
        SCOPED_TRACE(line);
        std::istringstream words(line);
        const Outcome outcome = call({std::istream_iterator<std::string>(words), {}});
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << outcome.output;
    }
    EXPECT_EQ(call({"help"}).status, 0);
}

TEST_P(Box, PassesSignalsOnToItsCommand) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, SIGQUIT}) {
        SCOPED_TRACE(number);
        const std::string text =
            "trap 'echo got; exit 6' " + std::to_string(number) + "; echo ready; while :; do sleep 0.05; done";
        std::vector<std::string> words = run_script(text);
        words.insert(words.begin(), apbox_program());
        Program program(words, GetParam());
        ASSERT_TRUE(program.prints("ready"));
        program.signal(number);
        EXPECT_EQ(program.wait().status, 6);
    }
}

TEST_P(Box, IsADeviceInside) {
    const struct {
        const char *what, *script, *output;
    } cases[] = {
        {"the mark", "ls /.apbox", "/.apbox\n"},
        {"root", "id -u", "0\n"},
        {"echo understands -e", "echo -e 'a\\nb'", "a\nb\n"},
        {"ip is the real one", "ip -V | cut -c1-10", "ip utility\n"},
        {"ip from a script file", "echo 'ip -V | cut -c1-10; echo $0 $1; exit 3' > /tmp/s; sh /tmp/s arg; echo $?",
         "ip utility\n/tmp/s arg\n3\n"},
        {"shell options and arguments", "sh -ec 'echo $0 $#; false; echo no' zero one; echo $?", "zero 1\n1\n"},
        {"busybox commands", "for c in awk route ifconfig free killall insmod; do readlink $(which $c); done | sort -u",
         "/usr/bin/busybox\n"},
        {"routing tables", "ip route add 10.0.0.0/8 dev eth1 table staticroute; ip route ls table staticroute",
         "10.0.0.0/8 dev eth1 scope link \n"},
        {"interfaces", "ls /sys/class/net | xargs", "br0 eth0 eth1 eth2 eth3 eth4 lo\n"},
        {"the address", "ip -4 -o addr show br0 | awk '{ print $4 }'", "192.168.0.1/24\n"},
        {"tables of the device", "head -n 1 /proc/mtd; cat /sys/class/mtd/mtd4/flags; readlink /dev/root",
         "dev:    size   erasesize  name\n0xc00\nmtdblock5\n"},
        {"a private kernel setting", "f=/proc/sys/net/netfilter/nf_conntrack_expect_max; echo 32768 > $f; cat $f",
         "32768\n"},
        {"a file of its own in /proc", "echo x > /proc/net/km_online_ip; cat /proc/net/km_online_ip", "x\n"},
        {"its own processes", "cat /proc/self/comm /proc/1/comm; [ -e /proc/$$/exe ] && echo own", "cat\napbox\nown\n"},
        {"process numbers beyond the first links",
         "i=0; while [ $i -lt 1500 ]; do i=$((i + 1)); : | :; done; sleep 0.2; "
         "sh -c 'cat /proc/$$/comm'",
         "cat\n"},
        {"hardly any uptime", "awk '$1 > 60' /proc/uptime", ""},
        {"settings", "[ -s /webroot_ro/default.cfg ] && cat /etc/prodversion.cfg", "V3.0.1.18(5151)\n"},
        {"the first start", "cat /apbox/boot; ls /apbox/name", "1\n"},
    };
    EXPECT_EQ(script("echo ${PATH%%:*}/apbox").output, apbox_program() + "\n") << "where cfm and the other tools are";
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(script(std::string("exec 2>/dev/null; ") + c.script).output, c.output);
    }
}

TEST_P(Box, TakesFoldersOfItsUser) {
    const TemporaryFolder folder(GetParam());
    fs::create_directories(folder.path() + "/tree/etc");
    write_text(folder.path() + "/tree/etc/prodversion.cfg", "other\n");
    write_text(folder.path() + "/tree/proc/watchdog_cmd", "mine\n");
    write_text(folder.path() + "/bin/cfm", "#!/bin/sh\necho emulated\n");
    fs::permissions(folder.path() + "/bin/cfm", fs::perms(0755));
    write_text(folder.path() + "/scene", "{}\n");
    const Outcome outcome = script("cfm; cat /etc/prodversion.cfg /proc/watchdog_cmd /apbox/scenario.json; "
                                   "ip -4 -o addr show br0 | awk '{ print $4 }'",
                                   {"--bin", folder.path() + "/bin", "--tree", folder.path() + "/tree", "--scenario",
                                    folder.path() + "/scene", "--address", "10.1.2.3"});
    EXPECT_EQ(outcome.output, "emulated\nother\nmine\n{}\n10.1.2.3/24\n");
}

TEST_P(Box, StartsInTheBackgroundAndIsEntered) {
    EXPECT_EQ(start(one, {"--", "sh", "-c", "echo booted > /var/init"}).output, one + "\n");
    EXPECT_EQ(enter(one, "until [ -s /var/init ]; do sleep 0.02; done; cat /var/init /apbox/name; exit 4").output,
              "booted\n" + one + "\n");
    EXPECT_EQ(enter(one, "exit 4").status, 4);
    EXPECT_EQ(enter(one, "kill -9 $$").status, 128 + SIGKILL);
    EXPECT_EQ(start(one).output, "apbox: a box named " + one + " is up already\n");
    EXPECT_EQ(enter(two, "true").output, "apbox: no box named " + two + " is up\n");
    EXPECT_NE(call({"list", "--json"})
                  .output.find("{\"name\": \"" + one + "\", \"network\": \"" + network +
                               "\", \"address\": \"192.168.0.1\", \"state\": \"up\", \"boots\": 1"),
              std::string::npos);
    EXPECT_EQ(call({"stop", one}).status, 0);
    EXPECT_EQ(call({"list"}).output.find(one), std::string::npos);
}

TEST_P(Box, RestartsAsItsInitAsksAndCountsItsStarts) {
    const std::string booted = "until [ -e /var/done ]; do sleep 0.02; done; ";
    start(one, {"--", "sh", "-c", "cat /apbox/boot >> /cfg/boots; touch /var/$(cat /apbox/boot) /var/done"});
    EXPECT_EQ(enter(one, booted + "sync; reboot; sleep 5").status, 128 + SIGTERM);
    EXPECT_EQ(enter(one, booted + "cat /cfg/boots; ls /var | grep -c '^[0-9]'").output, "1\n2\n1\n");
    EXPECT_EQ(enter(one, "sync; echo lost > /cfg/lost").status, 0);
    EXPECT_EQ(call({"power-cut", one}).status, 0);
    EXPECT_EQ(enter(one, booted + "cat /apbox/boot /cfg/boots /cfg/lost 2>/dev/null").output, "3\n1\n2\n3\n");
    EXPECT_EQ(call({"power-cut", one, "--off"}).status, 0);
    EXPECT_EQ(enter(one, "true").status, 1);
}

TEST_P(Box, SharesANetworkAndAWorldWithItsNeighbours) {
    ASSERT_EQ(start(one).status, 0);
    ASSERT_EQ(start(two).status, 0);
    EXPECT_EQ(enter(two, "ping -c 1 -W 2 192.168.0.1 > /dev/null").status, 0);
    EXPECT_EQ(enter(one, "echo seen > /apbox/world/file").status, 0);
    EXPECT_EQ(enter(two, "cat /apbox/world/file; ls /var/run/bus.socket").output, "seen\n/var/run/bus.socket\n");
    EXPECT_EQ(enter(one, "ip link | grep -o '02:41:50:..:..:00' | sort -u").output, "02:41:50:00:01:00\n");
    EXPECT_EQ(script("ping -c 1 -W 1 192.168.0.2 > /dev/null").status, 1) << "a box that is on no network";
    // Layer 2 reaches the neighbour on the WAN side too; the first box may go without taking the network along.
    EXPECT_EQ(call({"stop", one}).status, 0);
    EXPECT_EQ(start(one).status, 0);
    EXPECT_EQ(enter(one, "ip addr add 10.9.0.1/24 dev eth1; ip -4 -o addr show br0 | awk '{ print $4 }'").output,
              "192.168.0.1/24\n");
    EXPECT_EQ(enter(two, "ip addr add 10.9.0.2/24 dev eth1; ping -c 1 -W 2 10.9.0.1 > /dev/null").status, 0);
    EXPECT_EQ(call({"stop", "--network", network}).status, 0);
    EXPECT_EQ(start(one).status, 0);
    EXPECT_EQ(enter(one, "ls /apbox/world/file").status, 1) << "a new world";
}

TEST_P(Box, StartedTwiceAtOnceOneGetsTheName) {
    const std::vector<std::string> words = {apbox_program(),     "run", "--name", one, "--", "sh", "-c",
                                            "echo mine; sleep 1"};
    Program first(words, GetParam()), second(words, GetParam());
    const Outcome outcomes[] = {first.wait(), second.wait()};
    EXPECT_EQ(outcomes[0].status + outcomes[1].status, 1) << outcomes[0].output << outcomes[1].output;
}

TEST_P(Box, KilledInTheMiddleItLeavesNothing) {
    Program program(
        {apbox_program(), "run", "--name", one, "--", "sh", "-c", "sleep 1000 & echo $(cat /apbox/name); wait"},
        GetParam());
    ASSERT_TRUE(program.prints(one));
    const std::string before = call({"list"}).output;
    EXPECT_NE(before.find(one), std::string::npos);
    program.signal(SIGKILL);
    program.wait();  // the processes in the box held the pipe; now they are gone
    EXPECT_EQ(call({"list"}).output.find(one), std::string::npos);
    EXPECT_EQ(script("cat /apbox/name", {"--name", one}).output, one + "\n");
}

TEST_P(Box, GivesUpOnACommandThatRestartsTheDeviceForEver) {
    const Outcome outcome = script("cat /apbox/boot; kill -PWR 1; sleep 5", {"--restarts", "2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "1\n2\n3\napbox: the command restarts the device again and again; --restarts allows it 2 times\n");
}

TEST(Machine, WithoutNamespacesOneLineSaysWhyAndHow) {
    // A namespace in which nobody may make another, entered without the right to do without.
    const std::string forbid = "echo 0 > /proc/sys/user/max_user_namespaces; exec setpriv --inh-caps=-sys_admin "
                               "--bounding-set=-sys_admin " +
                               apbox_program() + " run -- true";
    Program program({"/usr/bin/unshare", "-U", "-r", "sh", "-c", forbid}, As::caller);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.status, 77);
    EXPECT_EQ(outcome.output, "apbox: this machine allows no box: user namespaces are limited to 0; as root, `sysctl "
                              "user.max_user_namespaces=15000` changes that\n");
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, Box, testing::ValuesIn(test::callers()),
                         [](const auto &caller) { return std::string(test::name_of(caller.param)); });

int main(int argc, char **argv) { return test::main_outside_box(argc, argv); }
