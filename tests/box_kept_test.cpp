// What a restart and a power cut leave of the kept folders, for every way of writing to them.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/capture.h"
#include "tests/support/outside_box.h"

namespace {

using namespace test;

class Kept : public testing::TestWithParam<As> {};

// Each script starts with /cfg/old ("old") on flash, and ends with the power. What is found afterwards is every file
// below /cfg with its content.
struct Case {
    const char *what, *script, *left;
} const power_cuts[] = {
    {"nothing was synced", "echo new > /cfg/new; echo changed > /cfg/old", "old=old"},
    {"the bytes, not the name", "echo new > /cfg/new; sync /cfg/new", "old=old"},
    {"the name, not the bytes", "echo new > /cfg/new; sync /cfg", "new= old=old"},
    {"both", "echo new > /cfg/new; sync /cfg/new /cfg", "new=new old=old"},
    {"bytes by fdatasync", "echo new > /cfg/new; sync -d /cfg/new; sync /cfg", "new=new old=old"},
    {"everything", "echo new > /cfg/new; mkdir /cfg/d; echo e > /cfg/d/e; sync", "d/e=e new=new old=old"},
    {"the file system", "echo new > /cfg/new; sync -f /cfg", "new=new old=old"},
    {"bytes of a file that is there", "echo changed > /cfg/old; sync /cfg/old", "old=changed"},
    {"grown after the sync", "echo 1 > /cfg/old; sync /cfg/old; echo 2 >> /cfg/old", "old=1"},
    {"rename, folder not synced", "mv /cfg/old /cfg/new", "old=old"},
    {"rename, folder synced", "mv /cfg/old /cfg/new; sync /cfg", "new=old"},
    {"replaced, folder not synced", "echo n > /cfg/n; sync /cfg/n; mv /cfg/n /cfg/old", "old=old"},
    {"replaced, folder synced", "echo n > /cfg/n; sync /cfg/n; mv /cfg/n /cfg/old; sync /cfg", "old=n"},
    {"replaced, bytes not synced", "echo n > /cfg/n; mv /cfg/n /cfg/old; sync /cfg", "old="},
    {"a link to the one before it", "ln /cfg/old /cfg/b; echo n > /cfg/n; sync /cfg/n; mv /cfg/n /cfg/old; sync /cfg",
     "b=old old=n"},
    {"two names, one file", "ln /cfg/old /cfg/b; sync /cfg; echo n > /cfg/b; sync /cfg/old", "b=n old=n"},
    {"two names exchanged for one", "ln /cfg/old /cfg/b; sync /cfg; mv /cfg/old /cfg/b; rm -f /cfg/old; sync /cfg",
     "b=old"},
    {"two files exchanged",
     "echo n > /cfg/n; sync; mv /cfg/n /cfg/x; mv /cfg/old /cfg/n; mv /cfg/x /cfg/old; sync /cfg", "n=old old=n"},
    {"removed, folder not synced", "rm /cfg/old", "old=old"},
    {"removed, folder synced", "rm /cfg/old; sync /cfg", ""},
    {"removed and made anew", "rm /cfg/old; echo again > /cfg/old; sync /cfg/old /cfg", "old=again"},
    {"a new folder, not synced", "mkdir /cfg/d; echo e > /cfg/d/e; sync /cfg/d/e /cfg/d", "old=old"},
    {"a new folder, then the one above", "mkdir /cfg/d; echo e > /cfg/d/e; sync /cfg/d/e /cfg/d /cfg", "d/e=e old=old"},
    {"only the one above", "mkdir /cfg/d; echo e > /cfg/d/e; sync /cfg/d/e /cfg", "old=old"},
    {"moved down, only the new folder synced", "mkdir /cfg/d; sync; mv /cfg/old /cfg/d/old; sync /cfg/d",
     "d/old=old old=old"},
    {"moved down, only the old folder synced", "mkdir /cfg/d; sync; mv /cfg/old /cfg/d/old; sync /cfg", ""},
    {"moved down, old then new", "mkdir /cfg/d; sync; mv /cfg/old /cfg/d/old; sync /cfg /cfg/d", "d/old=old"},
    {"a folder renamed", "mkdir /cfg/d; echo e > /cfg/d/e; sync; mv /cfg/d /cfg/f; sync /cfg", "f/e=e old=old"},
    {"a folder renamed, not synced", "mkdir /cfg/d; echo e > /cfg/d/e; sync; mv /cfg/d /cfg/f", "d/e=e old=old"},
    {"a folder removed", "mkdir /cfg/d; echo e > /cfg/d/e; sync; rm -r /cfg/d; sync /cfg", "old=old"},
    {"a file in place of a folder", "mkdir /cfg/d; sync; rmdir /cfg/d; echo d > /cfg/d; sync /cfg/d /cfg",
     "d=d old=old"},
    {"a symbolic link", "ln -s old /cfg/s; sync /cfg", "old=old s=old"},
    {"a pipe is not kept", "mkfifo /cfg/p; sync", "old=old"},
    {"a removed file that is still open", "exec 5<>/cfg/old; rm /cfg/old; sync /cfg; echo x >&5; sync /proc/self/fd/5",
     ""},
};

constexpr const char *show_files =
    "cd /cfg; find . -type f -o -type l | sort | while read -r f; do echo \"${f#./}=$(cat \"$f\")\"; done | xargs";

TEST_P(Kept, APowerCutLeavesWhatWasSyncedAndNothingElse) {
    // One box: each start of it shows what the case before has left, and does the next one.
    std::string script = "n=$(cat /apbox/boot); case $n in\n", expected;
    int boot = 0;
    std::string show;
    for (const Case &c : power_cuts) {
        script += std::to_string(++boot) + ") " + show + "rm -rf /cfg/*; echo old > /cfg/old; sync; " + c.script +
                  "; kill -PWR 1; sleep 5;;\n";
        show = "echo \"" + std::string(c.what) + ": $(" + show_files + ")\"; ";
        expected += std::string(c.what) + ": " + c.left + "\n";
    }
    script += "*) " + show + ";;\n";
    script += "esac";
    EXPECT_EQ(script_in_box(script, GetParam()).output, expected);
}

TEST_P(Kept, AnOrderlyRestartKeepsEverythingThereAndNothingElsewhere) {
    const std::string script =
        "case $(cat /apbox/boot) in 1) for d in /cfg /mnt /var /tmp /etc /run /apbox/flash /apbox/world "
        "/dev/shm /root /webroot; do echo kept > $d/file; done; "
        "iptables -t nat -N gone; ip route add 10.9.0.0/16 dev br0 table staticroute; kill 1; sleep 9;;\n"
        "*) ls /cfg/file /mnt/file /var/file /tmp/file /etc/file /run/file /apbox/flash/file "
        "/apbox/world/file /dev/shm/file /root/file /webroot/file 2>/dev/null | xargs; "
        "ip route ls table staticroute; iptables -t nat -S | grep -c gone;; esac";
    EXPECT_EQ(script_in_box(script, GetParam()).output, "/apbox/flash/file /apbox/world/file /cfg/file /mnt/file\n"
                                                        "Error: ipv4: FIB table does not exist.\nDump terminated\n0\n");
}

TEST_P(Kept, AFolderOnTheMachineKeepsThemBeyondTheBox) {
    const TemporaryFolder folder(GetParam());
    const auto with_it = [&](const std::string &script) {
        return script_in_box(script, GetParam(), {"--keep", folder.path()}).output;
    };
    EXPECT_EQ(with_it("echo a > /cfg/a; chmod 640 /cfg/a; ln /cfg/a /cfg/b; ln -s a /cfg/s; echo f > /apbox/flash/f"),
              "");
    EXPECT_EQ(read_text(folder.path() + "/cfg/a"), "a\n");
    EXPECT_EQ(with_it("cat /cfg/s /apbox/flash/f; stat -c '%a %h' /cfg/b"), "a\nf\n640 2\n");
    EXPECT_EQ(
        with_it("[ $(cat /apbox/boot) = 2 ] && exit; echo new > /cfg/a; rm /cfg/b; sync /cfg/a; kill -PWR 1; sleep 9"),
        "");
    EXPECT_EQ(with_it("cat /cfg/a /cfg/b"), "new\nnew\n");
}

TEST_P(Kept, TwoBoxesDoNotKeepInOneFolder) {
    const TemporaryFolder folder(GetParam());
    const std::vector<std::string> keep = {"--keep", folder.path()};
    Program first({apbox_program(), "run", "--keep", folder.path(), "--", "sh", "-c", "echo up; sleep 30"}, GetParam());
    ASSERT_TRUE(first.prints("up"));
    const Outcome second = script_in_box("echo up", GetParam(), keep);
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.output, "apbox: " + folder.path() + " is in use by another box\n");
}

TEST_P(Kept, AProgramHearsThatTheFolderIsFullAndTheOldBytesStay) {
    const TemporaryFolder folder(GetParam());
    const std::string script =
        "case $(cat /apbox/boot) in 1) echo old > /cfg/f; sync; "
        "dd if=/dev/zero of=/cfg/f bs=64k count=8 conv=fsync 2>&1 | grep -o 'No space left on device'; "
        "echo small > /cfg/g; sync /cfg/g; kill -PWR 1; sleep 9;; *) cat /cfg/f; ls /cfg;; esac";
    const std::string outside = "mount -t tmpfs -o size=128k none " + folder.path() + " && exec " + apbox_program() +
                                " run --keep " + folder.path() + " -- sh -c \"$0\"";
    std::vector<std::string> words = {"/usr/bin/unshare", "-m", "sh", "-c", outside, script};
    if (geteuid() != 0 || GetParam() == As::ordinary_user) words.insert(words.begin() + 1, "-r");
    EXPECT_EQ(Program(words, GetParam()).wait().output, "No space left on device\nold\nf\nlog\n");
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, Kept, testing::ValuesIn(test::callers()),
                         [](const auto &caller) { return std::string(test::name_of(caller.param)); });

int main(int argc, char **argv) { return test::main_outside_box(argc, argv); }
