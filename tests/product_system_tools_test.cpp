// product_system_tools_test.cpp: watchdog, service stop, configuration transfer, restore, default values, GPIO
// polarity.

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <regex>
#include <sys/stat.h>

#include "applatform/interfaces.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

static int upload_result = 1, uploads;
static std::string existing_file;
static struct {
    int get_result, locked, set_result, unlock_result;
    const char *folder;
    Words calls;
} gpio;

extern "C" {
int UploadValue(void) { return ++uploads, upload_result; }
int RestoreValue(void) { return test::commands.emplace_back("restore"), 1; }
void log_file_sync_to_flash(void) { test::commands.emplace_back("sync logs"); }
int kill(pid_t pid, int signal) noexcept {
    return test::commands.push_back("kill " + std::to_string(pid) + (signal == SIGTERM ? " TERM" : " ?")), 0;
}
int file_check_exist_or_not(const char *path) { return existing_file == path ? 1 : 0; }
unsigned int system_get_uptime(void) { return 4711; }
int iof_gpio_lock_get(int, int *locked) { return *locked = gpio.locked, gpio.get_result; }
int iof_gpio_lock_set(int, int locked) {
    gpio.calls.push_back(locked != 0 ? "lock" : "unlock");
    return locked != 0 ? gpio.set_result : gpio.unlock_result;
}
const char *iof_gpio_dir_get(int) { return gpio.folder; }
}

namespace {

class SystemTools : public testing::Test {
protected:
    void SetUp() override {
        test::store = {};
        test::commands.clear();
        test::command_result = 0;
        gpio = {};
        existing_file.clear();
        upload_result = 1;
        uploads = 0;
        remove_watchdogs();
    }
    static void remove_watchdogs() {
        for (const char *path : {"/proc/watchdog", "/proc/watchdog_cmd"}) unlink(path);
    }
};

TEST_F(SystemTools, TheFirstWatchdogThatExistsIsDriven) {
    test::command_result = 256;
    EXPECT_EQ(systool_enable_watchdog(), -1);
    EXPECT_EQ(systool_disable_watchdog(), -1);
    EXPECT_EQ(systool_feed_watchdog(), -1);
    EXPECT_THAT(test::commands, IsEmpty());

    test::write_text("/proc/watchdog_cmd", "");
    if (access("/proc/watchdog_cmd", F_OK) != 0) GTEST_SKIP() << "this box has no folder /proc of its own";
    EXPECT_EQ(systool_enable_watchdog(), 256);
    EXPECT_EQ(systool_disable_watchdog(), 256);
    EXPECT_EQ(systool_feed_watchdog(), 256);
    EXPECT_THAT(test::commands,
                ElementsAre("echo enable 1 interval 30 > /proc/watchdog_cmd", "echo 1 > /proc/watchdog_kick",
                            "echo 1 > /proc/watchdog_kick", "echo enable 0 interval 0 > /proc/watchdog_cmd",
                            "echo 1 > /proc/watchdog_kick"));

    test::commands.clear();
    test::write_text("/proc/watchdog", "");
    systool_enable_watchdog();
    systool_disable_watchdog();
    systool_feed_watchdog();
    EXPECT_THAT(test::commands,
                ElementsAre("echo enable > /proc/watchdog", "echo 60 > /proc/watchdog", "echo 60 > /proc/watchdog",
                            "echo disable > /proc/watchdog", "echo 60 > /proc/watchdog"));
}

Words stops(const std::string &names) {
    Words all;
    const std::regex word("\\S+");
    for (std::sregex_iterator it(names.begin(), names.end(), word), end; it != end; ++it)
        all.push_back("stop " + it->str());
    return all;
}

TEST_F(SystemTools, ServicesStopInTheirWholeOrder) {
    const struct {
        int type;
        const char *managed, *group;
    } cases[] = {
        {0, "", "yondar yondar_ctl vantri vantri_ctl iot_mqtt ap"},
        {1, "", "httpd vantri vantri_ctl iot_mqtt ap"},
        {2, "1", "httpd yondar yondar_ctl iot_mqtt"},
        {3, "0", "httpd yondar yondar_ctl vantri vantri_ctl ap"},
        {4, "", ""},
        {-1, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        test::commands.clear();
        test::store.values["srv.hx4100_manage"] = c.managed;
        const std::string printed = test::printed_by([&] { systool_kill_all_process(c.type); });
        const std::string invalid = "invalid type:" + std::to_string(c.type);
        EXPECT_EQ(printed.find(invalid) != std::string::npos, *c.group == '\0');

        Words expected = stops("steerd msgagent smartdhcps");
        const auto add = [&](const Words &more) { expected.insert(expected.end(), more.begin(), more.end()); };
        add({"/sbin/wifi_rmmod.sh"});
        add(stops(
            "netctrl arprecive sta_report ap sntp multiWAN dhcps dhcpcd_wisp dhcpcd_lan dhcpcd_ac pppd_wisp "
            "dhcpcd_wan1 pppd_wan1 dnrd dnrd-wisp miniupnpd snmpd telnetd wserver hostapd wpa_supplicant logserver "
            "logdebug acbs steerd dhcpcd wifi_measure uhttpd ssdpd ntdd qos"));
        if (std::string(c.managed) == "1") add(stops("ac_distinguish exetsrv"));
        add({"differ_config disable_wdt"});
        add(stops("netcheck smartdhcps user_info lldpd"));
        add(stops(c.group));
        add({"ifconfig br0 down"});
        add(stops("msgd cfmd"));
        EXPECT_EQ(test::commands, expected);
    }
}

TEST_F(SystemTools, ADownloadIsPreparedAsAFileWithAMarker) {
    const test::FakeClock clock;
    char path[13];
    EXPECT_EQ(systool_file_handle(0, path, 0), 0);
    EXPECT_STREQ(path, "/etc/tmp.cfg");
    EXPECT_THAT(test::commands,
                ElementsAre("cfm show /etc/tmp.cfg", "echo -e \"\\n##the public configure end##\\n\" >> /etc/tmp.cfg",
                            "cfm urlshow /etc/tmp_url.cfg", "cat /etc/tmp_url.cfg >> /etc/tmp.cfg"));
    EXPECT_THAT(clock.waits_ms(), ElementsAre(1000));
}

TEST_F(SystemTools, AnUploadIsSplitAtItsFirstMarker) {
    const std::string
        marker = "##the public configure end##",
        kept = "yd.manage.en=1\nyd.manage.mode=\n"
               "yd.manage.status=\nyd.cloud.id=c-7\nyd.project.id=\nyd.msgreport=\nyd.bind_status=\nAP_UUID=u-1\n";
    test::store.values = {{"yd.manage.en", "1"}, {"yd.cloud.id", "c-7"}, {"AP_UUID", "u-1"}};
    const struct {
        const char *what;
        std::string text, defaults, url;
    } cases[] = {
        {"with the marker", "a=1\n" + marker + "\nurl.a=2\n", "a=1\n", "\nurl.a=2\n"},
        {"without it", "a=1\n", "", ""},
        {"empty", "", "", ""},
        {"twice", "a=1\n" + marker + "b" + marker + "c", "a=1\n", "b" + marker + "c"},
        {"cut marker", "a=1\n" + marker.substr(0, 27), "", ""},
        {"CR LF", "a=1\r\n" + marker + "\r\nu=2\r\n", "a=1\r\n", "\r\nu=2\r\n"},
        {"a byte 0", std::string("a\0b", 3) + marker, std::string("a\0b", 3), ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        uploads = 0;
        std::vector<char> text(c.text.begin(), c.text.end());
        EXPECT_EQ(
            systool_file_handle(2, text.empty() ? const_cast<char *>("") : text.data(), static_cast<int>(text.size())),
            0);
        EXPECT_EQ(test::read_text("/webroot/default.cfg"), c.defaults + kept);
        EXPECT_EQ(test::read_text("/webroot/default_url.cfg"), c.url);
        EXPECT_EQ(uploads, 1);
    }
    upload_result = 0;
    EXPECT_EQ(systool_file_handle(2, const_cast<char *>("a"), 1), 0) << "a refused upload is only logged";
}

TEST_F(SystemTools, AnUploadThatCannotBeWrittenIsNotTakenIn) {
    std::filesystem::remove("/webroot/default_url.cfg");
    std::filesystem::create_directory("/webroot/default_url.cfg");
    EXPECT_EQ(systool_file_handle(2, const_cast<char *>("a"), 1), -1);
    std::filesystem::remove("/webroot/default_url.cfg");

    std::filesystem::remove("/webroot/default.cfg");
    ASSERT_EQ(symlink("/dev/full", "/webroot/default.cfg"), 0);
    EXPECT_EQ(systool_file_handle(2, const_cast<char *>("a"), 1), -1);
    std::filesystem::remove("/webroot/default.cfg");

    for (const int type : {1, 3, -1}) EXPECT_EQ(systool_file_handle(type, const_cast<char *>("a"), 1), -1);
    EXPECT_EQ(systool_file_handle(0, nullptr, 0), -1);
    EXPECT_EQ(systool_file_handle(2, nullptr, 0), -1);
    EXPECT_EQ(uploads, 0);
}

TEST_F(SystemTools, RestoreAndRebootTakeTheirSteps) {
    const test::FakeClock clock;
    test::write_text("/var/own.log", "x");
    test::store.values = {{"syslogs.system.path", "/var/own.log"}};
    const std::string printed = test::printed_by([] { systool_restore_reboot(); });
    EXPECT_THAT(test::commands,
                ElementsAre("rm -rf /cfg/log/log.tar.gz", "stop netcheck", "restore", "sync logs", "kill 1 TERM"));
    EXPECT_FALSE(std::filesystem::exists("/var/own.log"));
    EXPECT_EQ(test::store.values["set_default"], "1");
    EXPECT_EQ(test::store.commits, 1);
    EXPECT_THAT(clock.waits_ms(), ElementsAre(2000, 3000));
    const std::regex lines(
        "\033\\[1;40;33m\\[PROD\\] \\d{4} systool_restore_rebo: restoring and rebooting \\.\\.\\.\n\033\\[0m"
        "\033\\[1;40;33m\\[PROD\\] \\d{4} systool_reboot      : rebooting \\.\\.\\.\n\033\\[0m");
    EXPECT_TRUE(std::regex_match(printed, lines)) << printed;
}

TEST_F(SystemTools, TheFirstLineOfACommandIsCutAtItsEnd) {
    const std::string long_line(200, 'y');
    const struct {
        std::string command;
        int result;
        std::string out;
    } cases[] = {
        {"echo one; echo two", 0, "one"},
        {"printf 'a\\rb\\n'", 0, "a"},
        {"echo", 0, ""},
        {"true", 1, ""},
        {"printf " + long_line, 0, long_line.substr(0, 127)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.command);
        char out[130] = {};
        EXPECT_EQ(systool_get_value_with_popen(c.command.c_str(), out), c.result);
        EXPECT_EQ(out, c.out);
    }
    char out[4] = "zzz";
    EXPECT_EQ(systool_get_value_with_popen("echo a", out), 0);
    EXPECT_STREQ(out, "azz") << "no terminator is written";
    EXPECT_EQ(systool_get_value_with_popen(nullptr, out), 1);
}

TEST_F(SystemTools, DefaultValuesAreFoundBySubstring) {
    std::filesystem::create_directories("/webroot_ro");
    test::write_text("/webroot_ro/default.cfg", "old.lan.ip=1.1.1.1\nlan.ip=2.2.2.2\nweb.port=8080=x\nhostile'key=7\n");
    const struct {
        std::string key, out;
        int number;
    } cases[] = {
        {"lan.ip", "1.1.1.1", 1},       {"web.port", "8080", 8080}, {"missing", "", 0},
        {"hostile'key", "7", 7},        {"x; echo =5", "", 0},      {"-V", "", 0},
        {std::string(100, 'k'), "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        char out[130] = {};
        EXPECT_EQ(systool_get_value_in_default_cfg(c.key.c_str(), out), 0);
        EXPECT_EQ(out, c.out);
        EXPECT_EQ(systool_get_int_value_in_default_cfg(c.key.c_str()), c.number);
    }
}

TEST_F(SystemTools, TheDeviceDescribesItself) {
    char built[17];
    EXPECT_EQ(get_compile_date_time(built), 1);
    EXPECT_TRUE(std::regex_match(built, std::regex("20\\d\\d (0[1-9]|1[0-2]) [0-3]\\d [0-2]\\d [0-5]\\d"))) << built;

    const std::string long_text(100, 'h');
    test::store.values = {{"sys.hostname", long_text},        {"sys.vendor", "Kivra"},   {"sys.targets", "AP-1"},
                          {"sys.hwver", "V1.0-revision-123"}, {"led.signal.index", "0"}, {"sys.mode", "2"}};
    device_info info;
    EXPECT_EQ(get_device_info(nullptr, &info), 0);
    EXPECT_EQ(info.host_name, long_text.substr(0, 63));
    EXPECT_STREQ(info.vendor, "Kivra");
    EXPECT_STREQ(info.model, "AP-1");
    EXPECT_STREQ(info.hardware_version, "V1.0-revision-1");
    EXPECT_STREQ(info.software_version, "V3.0.1.18(5151)");
    EXPECT_STREQ(info.build_time, built);
    EXPECT_EQ(info.uptime, 4711U);

    EXPECT_EQ(signal_led_type(0), 1);
    EXPECT_EQ(signal_led_type(1), 0);
    EXPECT_EQ(get_sys_mode(), 2);
    test::store.values.clear();
    EXPECT_EQ(signal_led_type(0), 0) << "an index that is not set is no index 0";
    EXPECT_EQ(get_sys_mode(), 3);
}

TEST_F(SystemTools, GpioPolarityFailsStepByStepWithItsLock) {
    const std::string base = "/sys/devices/virtual/misc/ugw_gpio/gpio_base/";
    const struct {
        const char *what;
        int line, value, get_result, locked, set_result;
        const char *folder;
        int unlock_result, result;
        Words calls;
    } cases[] = {
        {"before the first", -1, 1, 0, 0, 0, "gpio8", 0, -22, {}},
        {"behind the low ones", 11, 1, 0, 0, 0, "gpio8", 0, -22, {}},
        {"before the high ones", 31, 1, 0, 0, 0, "gpio8", 0, -22, {}},
        {"behind the last", 38, 1, 0, 0, 0, "gpio8", 0, -22, {}},
        {"other value", 8, 2, 0, 0, 0, "gpio8", 0, -22, {}},
        {"negative value", 8, -1, 0, 0, 0, "gpio8", 0, -22, {}},
        {"no lock", 8, 1, -7, 0, 0, "gpio8", 0, -7, {}},
        {"locked", 8, 1, 0, 1, 0, "gpio8", 0, -16, {}},
        {"lock refused", 8, 1, 0, 0, -3, "gpio8", 0, -3, {"lock"}},
        {"unknown folder", 8, 1, 0, 0, 0, nullptr, 0, -22, {"lock"}},
        {"no such file", 8, 1, 0, 0, 0, "missing", 0, -2, {"lock", "unlock"}},
        {"unlock fails behind it", 8, 1, 0, 0, 0, "missing", -9, -9, {"lock", "unlock"}},
        {"first", 0, 0, 0, 0, 0, "gpio8", 0, 0, {"lock", "unlock"}},
        {"last low", 10, 1, 0, 0, 0, "gpio8", 0, 0, {"lock", "unlock"}},
        {"first high", 32, 1, 0, 0, 0, "gpio8", 0, 0, {"lock", "unlock"}},
        {"last", 37, 1, 0, 0, 0, "gpio8", 0, 0, {"lock", "unlock"}},
        {"unlock fails", 37, 1, 0, 0, 0, "gpio8", -9, -9, {"lock", "unlock"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        gpio = {c.get_result, c.locked, c.set_result, c.unlock_result, c.folder, {}};
        const int before = test::open_descriptors();
        EXPECT_EQ(iof_gpio_set_active_low(c.line, c.value), c.result);
        EXPECT_EQ(gpio.calls, c.calls);
        EXPECT_EQ(test::open_descriptors(), before);
        if (c.result == 0) {
            EXPECT_EQ(test::read_text(base + "gpio8/active_low").substr(0, 2),
                      std::string(c.value == 1 ? "1\0" : "0\0", 2));
        }
    }
    EXPECT_EQ(test::printed_by([] {
                  iof_gpio_set_active_low(11, 0);
                  iof_gpio_set_active_low(8, 7);
              }),
              "Gpio id[11] invalid\nstart invalid [7]\n");
}

TEST_F(SystemTools, StormControlNeedsTheKernelsFile) {
    EXPECT_EQ(storm_ctl_enable(0, "eth0"), 0);
    existing_file = "/sys/class/net/br0/brif/eth0/in_multicast_limit";
    test::command_result = 3;
    EXPECT_EQ(storm_ctl_enable(0, "eth0"), 3);
    EXPECT_EQ(storm_ctl_enable(1, "eth0"), 0);
    EXPECT_EQ(storm_ctl_enable(0, "../eth0"), 0);
    EXPECT_EQ(storm_ctl_enable(0, nullptr), 0);
    EXPECT_THAT(test::commands, ElementsAre("echo 1 > /sys/class/net/br0/brif/eth0/in_multicast_limit ",
                                            "echo 300 > /sys/class/net/br0/brif/eth0/in_multicast_limit_threshold"));
    existing_file = "/sys/class/net/br0/brif/a;b/in_multicast_limit";
    storm_ctl_enable(0, "a;b");
    EXPECT_EQ(test::commands.back(), "echo 300 > '/sys/class/net/br0/brif/a;b/in_multicast_limit_threshold'");
}

}  // namespace
