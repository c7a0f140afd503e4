// tools_apctl_test.cpp: apctl on a device: what its verbs print, change, and answer to the shell.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>

#include "tests/support/capture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Ran {
    int status;
    std::string printed;  // on either stream
};

Ran sh(const std::string &command) {
    const int status = std::system(("{ " + command + "; } >/tmp/printed 2>&1 </dev/null").c_str());
    return {WEXITSTATUS(status), test::read_text("/tmp/printed")};
}

std::vector<std::string> verbs() {
    std::istringstream overview(sh("apctl --help | sed -n 's/^  \\([a-z-]*\\)  .*/\\1/p'").printed);
    return {std::istream_iterator<std::string>(overview), {}};
}

TEST(Apctl, EveryVerbHelpsAndRefusesWrongUse) {
    ASSERT_GE(verbs().size(), 19U);
    for (const std::string &verb : verbs()) {
        const Ran help = sh("apctl " + verb + " --help"), wrong = sh("apctl " + verb + " no such words at all");
        EXPECT_EQ(help.status, 0) << verb;
        EXPECT_THAT(help.printed, StartsWith("usage: apctl " + verb));
        EXPECT_EQ(wrong.status, 2) << verb;
        EXPECT_THAT(wrong.printed, HasSubstr("Try `apctl " + verb + " --help`."));
    }
    EXPECT_EQ(sh("apctl").status, 2);
    EXPECT_EQ(sh("apctl nonsense").status, 2);
}

// One device from row to row: each command's exit status, and a piece of what it prints.
TEST(Apctl, WorksOnADevice) {
    const struct {
        const char *command;
        int status;
        const char *printed;
    } rows[] = {
        {"apctl device init", 0, "matched product: KV-AP620!"},
        {"apctl device info --json", 0, "\"model\":\t\"KV-AP620\""},
        {"apctl device profile none", 1, ""},
        {"apctl config set a.b=1 c.d=2 a.b=1 --commit", 0, "2 changed, 1 unchanged\ncommitted\n"},
        {"apctl config set a.b=1 --commit", 0, "0 changed, 1 unchanged\nnothing to commit\n"},
        {"apctl config get a.b none --json", 1, "\"a.b\":\t\"1\",\n\t\"none\":\tnull"},
        {"apctl config set =1", 2, "\"=1\" is no KEY=VALUE"},
        {"apctl config list a.b", 0, "a.b=1\n"},
        {"apctl backup /tmp/kept", 0, "bytes in /tmp/kept"},
        {"apctl config unset a.b none", 0, "1 changed, 1 unchanged"},
        {"apctl config get a.b", 1, "\"a.b\" is not set"},
        {"apctl restore /tmp/kept && apctl config get a.b", 0, "\n1\n"},
        {"apctl restore /tmp/none", 1, "/tmp/none cannot be read"},
        {"apctl log set door T && apctl log show door --json", 0, "\"door\":\t5"},
        {"apctl log set door X", 2, "apctl log: "},
        {"apctl log set door off && apctl log show door", 1, "\"door\" has no level"},
        {"apctl log errors door", 1, "there is no \"/var/debug.door.log\""},
        {"apctl wan status", 0, "203.0.113.10  255.255.255.0  203.0.113.1"},
        {"apctl routes --json", 0, "\"interface\":\t\"br0\""},
        {"apctl lan conflicts 192.168.10.7/25", 1, "192.168.10.7/25 is taken; free is 192.168.11.1"},
        {"apctl lan conflicts 192.168.1.0/24", 0, "192.168.1.0/24 is free\n"},
        {"apctl lan move 10.9.8.1/24 --dry-run && apctl config get lan.ip", 0, "\n192.168.0.1\n"},
        {"apctl lan move 10.9.8.1/24 >/tmp/moved && apctl config get dhcps.Staticip1", 0, "10.9.8.20;02:00:5e"},
        {"apctl lan client 02:00:00:00:00:99", 1, "no neighbour has the MAC"},
        {"apctl wifi info", 0, "2.4G  wlan0  up  channel 6, 20 MHz"},
        {"apctl wifi set 2.4G:0 bss_ssid Caf\xc3\xa9 && apctl wifi set 2.4G:0 bss_ssid", 0, "bss_ssid=Caf\xc3\xa9\n"},
        {"apctl wifi set 2.4G:0 bss_ssid \xe6\x97\xa0\xe7\xba\xbf && apctl wifi info", 0,
         "\xe6\x97\xa0\xe7\xba\xbf      wlan0.0"},
        {"apctl wifi switch wlan0 11 && apctl wifi info", 0, "2.4G  wlan0  up  channel 11, 20 MHz"},
        {"apctl wifi switch wlan0 eleven", 2, "apctl wifi: "},
        {"apctl wifi clients --json", 0, "\"interface\":\t\"wlan1.0\""},
        {"apctl rfo power 10 11", 0, "2.4G: power 10\n5G: power 11\n"},
        {"apctl castfilter off", 0, ""},
        {"apctl identify 02:00:00:00:00:99", 1, "unknown\n"},
        {"apctl upnp", 1, "/var/upnpmap cannot be read"},
        {"apctl syslog --json", 0, "default.cfg"},
        {"apctl portal users", 1, "the portal daemon does not answer"},
        {"apctl msg ask unix:none hello", 1, "no answer from unix:none"},
        {"(apctl msg listen unix:here --answer pong --count 1 & while ! [ -e /var/socket/here ]; do usleep 9999; done; "
         "apctl msg ask unix:here ping; wait)",
         0, "pong\n"},
        {"echo firmware >/tmp/payload && apctl image make /tmp/payload /tmp/image --product 0x1799", 0, "0x00001799"},
        {"apctl image info /tmp/image --json", 0, "\"product"},
        {"apctl image check /tmp/image", 0, "upgrade   passed"},
        {"printf x | dd of=/tmp/image bs=1 seek=90 conv=notrunc && apctl image check /tmp/image", 1,
         "checksum  failed"},
        {"apctl image flash /tmp/image", 1, "refused"},
        {"apctl image banks --init", 0, "running, boots next"},
    };
    for (const auto &row : rows) {
        const Ran ran = sh(row.command);
        EXPECT_EQ(ran.status, row.status) << row.command << '\n' << ran.printed;
        EXPECT_THAT(ran.printed, HasSubstr(row.printed)) << row.command;
    }
}

}  // namespace
