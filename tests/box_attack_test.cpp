// A program in the box does its worst, by every way that the library has out of its process; nothing outside changes.

#include <csignal>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/capture.h"
#include "tests/support/outside_box.h"

namespace {

using namespace test;
namespace fs = std::filesystem;

// Files that the library, its commands and its platform write to, and some that nothing may write to.
constexpr const char *written_files =
    "/etc/passwd /etc/tmp.cfg /etc/tmp_url.cfg /etc/policy.cfg /etc/policy_bak.cfg /etc/lan.cfg /etc/lan.ini "
    "/etc/lan_wan_port /etc/wan1.ini /etc/wan42.ini /etc/ipv6_wan1.ini /etc/profile.json /etc/prodversion.cfg "
    "/etc/init_gpio.sh /etc/wm_config/all_chan_measure.json /var/debug.x.log /var/logs.txt /var/static_route "
    "/var/upnpmap /var/type_identify.json /var/sta_encode_ssid_cache /var/run/id.shm /var/run/shm.prod.debug.info "
    "/var/run/cfm.db /var/socket/x /tmp/ap_portal.socket /tmp/attack /run/attack /cfg/policy.cfg /cfg/cfm.cfg "
    "/cfg/log/log.tar.gz /mnt/s_brcmnand/mac_web_x /webroot/default.cfg /webroot/default_url.cfg "
    "/webroot/images/push_images/x /webroot_ro/default.cfg /dev/castfilter /dev/mtd0 /dev/shm/attack /proc/mtd "
    "/proc/watchdog /proc/watchdog_cmd /proc/watchdog_kick /proc/km/km_online_ip /proc/net/km_online_ip "
    "/proc/kv_wlan/private_ie/private_ie /proc/kv_wlan/private_ie/private_ie_98 "
    "/proc/sys/net/netfilter/nf_conntrack_expect_max /sys/class/mtd/mtd0/flags "
    "/sys/class/net/br0/brif/eth0/in_multicast_limit "
    "/sys/devices/virtual/misc/ugw_gpio/gpio_base/gpio0/active_low /lib/modules/ap_portal.ko /sbin/wifi_rmmod.sh "
    "/root/attack /home/attack /attack";

// Each is a command in the box, with the machine's process number of a victim in $1 and the checkout in $2.
struct Attack {
    const char *what, *command;
    bool works;  // in the box, which is its own business
} const attacks[] = {
    {"write a program", "echo x > /usr/bin/attack", false},
    {"write the list of libraries", "echo x > /etc/ld.so.cache", false},
    {"write the checkout", "echo x > $2/attack", false},
    {"make the system writable", "mount -o remount,rw /usr && touch /usr/attack", false},
    {"make the checkout writable", "mount -o remount,rw,bind $2", false},
    {"uncover the system", "umount -l /usr", false},
    {"make settings writable", "mount -o remount,rw,bind /apbox/proc/sys && echo 1 > /proc/sys/kernel/panic", false},
    {"mount in the box", "mount -t tmpfs none /tmp && umount /tmp", true},
    {"mount a disk", "mknod /tmp/disk b 254 0 && mount /tmp/disk /mnt", false},
    {"reach a disk", "mknod /dev/disk b 254 0 && cat /dev/disk | head -c 1 | grep -q .", false},
    {"reach the memory", "mknod /dev/mem2 c 1 1 && head -c 1 /dev/mem2", false},
    {"load a module", "insmod /lib/modules/ap_portal.ko", false},
    {"load auth", "insmod /lib/modules/auth.ko", false},
    {"unload a module", "rmmod ext4", false},
    {"set the clock", "date -s 2001-01-01; [ $(date +%Y) = 2001 ]", false},
    {"set the hardware clock", "hwclock -w", false},
    {"restart the machine", "busybox reboot -f", false},
    {"restart it by its key", "echo b > /apbox/proc/sysrq-trigger", false},
    {"a kernel setting", "echo 1 > /proc/sys/kernel/panic", false},
    {"a network setting", "echo 1 > /proc/sys/net/ipv4/ip_forward", false},
    {"a device setting", "echo 0 > /sys/class/net/lo/tx_queue_len", false},
    {"clear the log of the kernel", "dmesg -c", false},
    {"reach into process 1 of the machine", "ls /proc/1/root/boot/grub", false},
    {"signal a process outside", "kill -9 $1", false},
    {"kill process 1", "kill -9 1; kill -STOP 1; kill -HUP 1; sleep 0.1; ls", true},
    {"rename the host", "hostname attacked", true},
    {"cut the network", "ip link set lo down; ip addr flush dev br0; iptables -t nat -N attack", true},
    {"reach the network", "ip route add default via 192.168.0.254; ping -c 1 -W 1 1.1.1.1", false},
    {"reach a socket by its name", "busybox nc -w 1 127.0.0.1 22", false},
    {"take all room", "dd if=/dev/zero of=/tmp/big bs=1M", false},
    {"remove everything", "rm -rf /etc /var /cfg /mnt /webroot /home /root /boot /opt /srv /usr /lib", false},
};

// The machine, as far as the attacks could change it: each file's absence, or its time and content, and some lists.
std::vector<std::string> look_at_machine() {
    std::vector<std::string> facts;
    std::istringstream files(written_files);
    for (std::string file; files >> file;) {
        std::error_code error;
        const auto time = fs::last_write_time(file, error).time_since_epoch().count();
        const bool is_kernels = file.starts_with("/proc/") || file.starts_with("/sys/");
        facts.push_back(file + ": " + (error ? "absent" : std::to_string(is_kernels ? 0 : time) + read_text(file)));
    }
    for (const char *command : {"hostname", "cat /proc/sys/kernel/panic /proc/sys/net/ipv4/ip_forward /proc/modules",
                                "ls -la /dev /usr /usr/bin", "ls -A / /cfg /webroot /boot /home /srv",
                                "cat /proc/mounts", "ip -o addr | grep -v valid_lft"})
        facts.push_back(Program({"/bin/sh", "-c", command}, As::caller).wait().output);
    return facts;
}

// A sleeping process and a shared segment with the box's own key.
class Victims {
public:
    Victims() : process_(fork()) {
        if (process_ == 0) {
            for (;;) pause();
        }
        segment_ = shmget(key, 64, IPC_CREAT | 0666);
    }
    ~Victims() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        shmctl(segment_, IPC_RMID, nullptr);
    }
    static constexpr key_t key = 0x41500001;
    pid_t process() const { return process_; }
    bool are_well() const {
        shmid_ds info{};
        return waitpid(process_, nullptr, WNOHANG) == 0 && shmctl(segment_, IPC_STAT, &info) == 0;
    }

private:
    pid_t process_;
    int segment_;
};

class Attacked : public testing::TestWithParam<As> {};

TEST_P(Attacked, NothingOutsideChanges) {
    const fs::path checkout = fs::path(apbox_program()).parent_path();
    const Victims victims;
    std::string expected, script = std::string("for f in ") + written_files +
                                   "; do echo attack > $f; done; exec 2>/dev/null; set -- " +
                                   std::to_string(victims.process()) + " " + checkout.string() + ";\n";
    for (const Attack &attack : attacks) {
        script += std::string("(") + attack.command + ") >/dev/null && echo '" + attack.what + ": works' || echo '" +
                  attack.what + ": refused'\n";
        expected += std::string(attack.what) + (attack.works ? ": works\n" : ": refused\n");
    }
    const auto before = look_at_machine();
    const time_t started = std::time(nullptr);
    const Outcome outcome = script_in_box(script, GetParam());
    EXPECT_EQ(outcome.output, expected);
    const auto after = look_at_machine();
    for (size_t i = 0; i < before.size(); ++i) EXPECT_EQ(after[i], before[i]);
    EXPECT_LT(std::time(nullptr) - started, 60) << "the clock was set";
    EXPECT_TRUE(victims.are_well());
}

TEST_P(Attacked, SegmentsAndQueuesAreTheBoxesOwn) {
    const Victims victims;
    const std::string segments =
        "grep -c " + std::to_string(Victims::key) + " /proc/sysvipc/shm; ls /dev/mqueue /dev/shm";
    EXPECT_EQ(script_in_box(segments, GetParam()).output, "0\n/dev/mqueue:\n\n/dev/shm:\n");
    EXPECT_TRUE(victims.are_well());
}

TEST_P(Attacked, OnlyAFolderThatWasNamedIsWritableAndOneThatWasShownIsNot) {
    const TemporaryFolder writable(GetParam()), shown(GetParam()), hidden(GetParam());
    const std::string script = "for d in " + writable.path() + " " + shown.path() + " " + hidden.path() +
                               "; do echo x > $d/file && echo ok; done 2>/dev/null; ls -d " + hidden.path();
    const Outcome outcome = script_in_box(script, GetParam(), {"--writable", writable.path(), "--show", shown.path()});
    EXPECT_EQ(outcome.output, "ok\nls: " + hidden.path() + ": No such file or directory\n");
    EXPECT_EQ(read_text(writable.path() + "/file"), "x\n");
    EXPECT_FALSE(fs::exists(shown.path() + "/file"));
}

TEST_P(Attacked, RightsOverTheMachineAreGoneForGood) {
    // Of the effective and the bounding set: modules (16), raw I/O (17), restart (22), clock (25), device nodes (27).
    const Outcome outcome =
        script_in_box("awk '/^Cap(Eff|Bnd)/ { print substr($2, 9) }' /proc/self/status", GetParam());
    char *rest = nullptr;
    const unsigned long effective = std::strtoul(outcome.output.c_str(), &rest, 16);
    const unsigned long bounding = std::strtoul(rest, nullptr, 16);
    for (const int right : {16, 17, 22, 25, 27}) EXPECT_EQ((effective | bounding) >> right & 1, 0U) << right;
    EXPECT_EQ(effective >> 21 & 1, 1U) << "mounting in the box";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, Attacked, testing::ValuesIn(test::callers()),
                         [](const auto &caller) { return std::string(test::name_of(caller.param)); });

int main(int argc, char **argv) { return test::main_outside_box(argc, argv); }
