// product_system_tools_test.cpp: watchdog, service stop, configuration transfer, restore, default values, GPIO
// polarity.

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <regex>

#include "applatform/interfaces.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

using test::commands;
using testing::ElementsAre;
using testing::EndsWith;

static int upload_result;
static std::string existing_file;
static struct {
    int get_result, locked, set_result, unlock_result;
    const char *folder;
} gpio;

extern "C" {
int UploadValue(void) { return commands.emplace_back("upload"), upload_result; }
int RestoreValue(void) { return test::store.values.clear(), commands.emplace_back("restore"), 1; }
void log_file_sync_to_flash(void) { commands.emplace_back("sync logs"); }
int kill(pid_t pid, int signal) noexcept {
    return commands.push_back("kill " + std::to_string(pid) + (signal == SIGTERM ? " TERM" : " ?")), 0;
}
int file_check_exist_or_not(const char *path) { return existing_file == path ? 1 : 0; }
unsigned int system_get_uptime(void) { return 4711; }
int iof_gpio_lock_get(int, int *locked) { return *locked = gpio.locked, gpio.get_result; }
int iof_gpio_lock_set(int, int locked) {
    commands.emplace_back(locked != 0 ? "lock" : "unlock");
    return locked != 0 ? gpio.set_result : gpio.unlock_result;
}
const char *iof_gpio_dir_get(int) { return gpio.folder; }
}

namespace {

class SystemTools : public testing::Test {
protected:
    void SetUp() override {
        test::store = {};
        commands.clear();
        test::command_result = 0;
        upload_result = 1;
    }
    // What was done since the last call: services that were stopped by their names, anything else in brackets.
    static std::string done() {
        std::string text;
        for (const std::string &command : std::exchange(commands, {}))
            text += command.starts_with("stop ") ? command.substr(5) + " " : "[" + command + "] ";
        return text;
    }
};

TEST_F(SystemTools, TheFirstWatchdogThatExistsIsDriven) {
    test::command_result = 256;
    const auto drive = [](int expected) {
        for (const auto action : {systool_enable_watchdog, systool_disable_watchdog, systool_feed_watchdog})
            EXPECT_EQ(action(), expected);
        return done();
    };
    for (const char *path : {"/proc/watchdog", "/proc/watchdog_cmd"}) std::filesystem::remove(path);
    EXPECT_EQ(drive(-1), "");
    test::write_text("/proc/watchdog_cmd", "");
    EXPECT_EQ(drive(256), "[echo enable 1 interval 30 > /proc/watchdog_cmd] [echo 1 > /proc/watchdog_kick] "
                          "[echo 1 > /proc/watchdog_kick] [echo enable 0 interval 0 > /proc/watchdog_cmd] "
                          "[echo 1 > /proc/watchdog_kick] ");
    test::write_text("/proc/watchdog", "");
    EXPECT_EQ(drive(256), "[echo enable > /proc/watchdog] [echo 60 > /proc/watchdog] [echo 60 > /proc/watchdog] "
                          "[echo disable > /proc/watchdog] [echo 60 > /proc/watchdog] ");
}

TEST_F(SystemTools, ServicesStopInTheirWholeOrder) {
    test::write_text("/proc/watchdog", "");
    const struct {
        int type;
        std::string managed, group;
    } cases[] = {
        {0, "", "yondar yondar_ctl vantri vantri_ctl iot_mqtt ap "},
        {1, "", "httpd vantri vantri_ctl iot_mqtt ap "},
        {2, "1", "httpd yondar yondar_ctl iot_mqtt "},
        {3, "0", "httpd yondar yondar_ctl vantri vantri_ctl ap "},
        {4, "", ""},
        {-1, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        test::store.values["srv.hx4100_manage"] = c.managed;
        const std::string printed = test::printed_by([&] { systool_kill_all_process(c.type); });
        EXPECT_EQ(printed, c.group.empty() ? "invalid type:" + std::to_string(c.type) : "");
        const std::string managed = c.managed == "1" ? "ac_distinguish exetsrv " : "";
        EXPECT_EQ(done(), "steerd msgagent smartdhcps [/sbin/wifi_rmmod.sh] netctrl arprecive sta_report ap sntp "
                          "multiWAN dhcps dhcpcd_wisp dhcpcd_lan dhcpcd_ac pppd_wisp dhcpcd_wan1 pppd_wan1 dnrd "
                          "dnrd-wisp miniupnpd snmpd telnetd wserver hostapd wpa_supplicant logserver logdebug acbs "
                          "steerd dhcpcd wifi_measure uhttpd ssdpd ntdd qos " +
                              managed +
                              "[echo 60 > /proc/watchdog] [echo disable > /proc/watchdog] [differ_config disable_wdt] "
                              "netcheck smartdhcps user_info lldpd " +
                              c.group + "[ifconfig br0 down] msgd cfmd ");
    }
}

TEST_F(SystemTools, ADownloadIsPreparedAsAFileWithAMarker) {
    const test::FakeClock clock;
    char path[13];
    EXPECT_EQ(systool_file_handle(0, path, 0), 0);
    EXPECT_STREQ(path, "/etc/tmp.cfg");
    EXPECT_EQ(done(), "[cfm show /etc/tmp.cfg] [echo -e \"\\n##the public configure end##\\n\" >> /etc/tmp.cfg] "
                      "[cfm urlshow /etc/tmp_url.cfg] [cat /etc/tmp_url.cfg >> /etc/tmp.cfg] ");
    EXPECT_THAT(clock.waits_ms(), ElementsAre(1000));
}

TEST_F(SystemTools, AnUploadIsSplitAtItsFirstMarker) {
    const std::string marker = "##the public configure end##";
    test::store.values = {{"yd.manage.en", "1"}, {"yd.cloud.id", "c-7"}, {"AP_UUID", "u-1"}};
    const struct {
        std::string text, defaults, url;
    } cases[] = {
        {"a=1\n" + marker + "\nurl.a=2\n", "a=1\n", "\nurl.a=2\n"},
        {"a=1\n", "", ""},
        {"", "", ""},
        {"a=1\n" + marker + "b" + marker + "c", "a=1\n", "b" + marker + "c"},
        {"a=1\n" + marker.substr(0, 27), "", ""},
        {"a=1\r\n" + marker + "\r\nu=2\r\n", "a=1\r\n", "\r\nu=2\r\n"},
        {"a=1\n" + marker + "\nu=2" + '\0', "a=1\n", "\nu=2"},  // its terminator is no part of it
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const std::unique_ptr<char[]> text(new char[c.text.size()]);
        std::copy(c.text.begin(), c.text.end(), text.get());
        EXPECT_EQ(systool_file_handle(2, text.get(), static_cast<int>(c.text.size())), 0);
        EXPECT_EQ(test::read_text("/webroot/default.cfg"),
                  c.defaults + "yd.manage.en=1\nyd.manage.mode=\nyd.manage.status=\nyd.cloud.id=c-7\n"
                               "yd.project.id=\nyd.msgreport=\nyd.bind_status=\nAP_UUID=u-1\n");
        EXPECT_EQ(test::read_text("/webroot/default_url.cfg"), c.url);
        EXPECT_EQ(done(), "[upload] ");
    }
}

TEST_F(SystemTools, AnUploadThatCannotBeWrittenIsNotTakenInAndARefusedOneIsOnlyLogged) {
    char text[] = "a";
    upload_result = 0;
    EXPECT_EQ(systool_file_handle(2, text, 1), 0);
    EXPECT_EQ(done(), "[upload] ");
    const std::string defaults = "/webroot/default.cfg", url_defaults = "/webroot/default_url.cfg";
    for (const auto &[file, target] : {std::pair(defaults, "/"), {url_defaults, "/"}, {defaults, "/dev/full"}}) {
        std::filesystem::remove(file);
        std::filesystem::create_symlink(target, file);
        EXPECT_EQ(systool_file_handle(2, text, 1), -1) << file << " is " << target;
        std::filesystem::remove(file);
    }
    for (const int type : {1, 3, -1}) EXPECT_EQ(systool_file_handle(type, text, 1), -1);
    for (const int type : {0, 2}) EXPECT_EQ(systool_file_handle(type, nullptr, 0), -1);
    EXPECT_EQ(systool_file_handle(2, text, -1), -1);
    EXPECT_EQ(done(), "");
}

TEST_F(SystemTools, RestoreAndRebootTakeTheirSteps) {
    const test::FakeClock clock;
    test::write_text("/var/own.log", "x");
    test::store.values = {{"syslogs.system.path", "/var/own.log"}};
    const std::string printed = test::printed_by([] { systool_restore_reboot(); });
    EXPECT_EQ(done(), "[rm -rf /cfg/log/log.tar.gz] netcheck [restore] [sync logs] [kill 1 TERM] ");
    EXPECT_FALSE(std::filesystem::exists("/var/own.log"));
    EXPECT_THAT(test::store.values, ElementsAre(std::pair("set_default", "1")));
    EXPECT_EQ(test::store.commits, 1);
    EXPECT_THAT(clock.waits_ms(), ElementsAre(2000, 3000));
    const std::regex lines(
        "\033\\[1;40;33m\\[PROD\\] \\d{4} systool_restore_rebo: restoring and rebooting \\.\\.\\.\n\033\\[0m"
        "\033\\[1;40;33m\\[PROD\\] \\d{4} systool_reboot      : rebooting \\.\\.\\.\n\033\\[0m");
    EXPECT_TRUE(std::regex_match(printed, lines)) << printed;
}

TEST_F(SystemTools, TheFirstLineOfACommandIsCutAtItsEnd) {
    const auto first_line = [](const std::string &command) {
        std::string out(129, '|');  // whose rest stays: no terminator is written
        const int result = systool_get_value_with_popen(command.c_str(), out.data());
        return std::to_string(result) + " " + out.substr(0, out.find('|'));
    };
    const std::string y127(127, 'y');
    EXPECT_EQ(first_line("echo one; echo two"), "0 one");
    EXPECT_EQ(first_line("printf 'a\\rb\\n'"), "0 a");
    EXPECT_EQ(first_line("echo"), "0 ");
    EXPECT_EQ(first_line("true"), "1 ");
    EXPECT_EQ(first_line("printf " + y127 + "z"), "0 " + y127);
    EXPECT_EQ(systool_get_value_with_popen(nullptr, nullptr), 1);
}

TEST_F(SystemTools, DefaultValuesAreFoundBySubstring) {
    test::write_text("/webroot_ro/default.cfg", "old.lan.ip=1.1\nlan.ip=2.2\nweb.port=8080=x\nhostile'key=7\n");
    const std::string long_key(100, 'k');
    const std::pair<const char *, const char *> cases[] = {
        // the text and the number
        {"lan.ip", "1.1 1"},  {"web.port", "8080 8080"}, {"missing", " 0"},       {"hostile'key", "7 7"},
        {"x; echo =5", " 0"}, {"-elan", " 0"},           {long_key.c_str(), " 0"}};
    for (const auto &[key, expected] : cases) {
        char out[130] = {};
        EXPECT_EQ(systool_get_value_in_default_cfg(key, out), 0);
        EXPECT_EQ(out + (" " + std::to_string(systool_get_int_value_in_default_cfg(key))), expected) << key;
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
    EXPECT_EQ(std::string(info.vendor) + "|" + info.model + "|" + info.hardware_version + "|" + info.software_version,
              "Kivra|AP-1|V1.0-revision-1|V3.0.1.18(5151)");
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
    const auto set = [](int line, int value) {
        const int before = test::open_descriptors();
        int result = 1;
        const std::string printed = test::printed_by([&] { result = iof_gpio_set_active_low(line, value); });
        EXPECT_EQ(test::open_descriptors(), before);
        return printed + done() + std::to_string(result);
    };
    gpio = {0, 0, 0, 0, "gpio8"};
    for (const int line : {0, 10, 32, 37}) {
        EXPECT_EQ(set(line, line % 2), "[lock] [unlock] 0");
        EXPECT_EQ(test::read_text(base + "gpio8/active_low").substr(0, 2),
                  std::string(line % 2 != 0 ? "1\0" : "0\0", 2));
    }
    for (const int line : {-1, 11, 31, 38})
        EXPECT_EQ(set(line, 1), "Gpio id[" + std::to_string(line) + "] invalid\n-22");
    for (const int value : {-1, 2}) EXPECT_EQ(set(8, value), "start invalid [" + std::to_string(value) + "]\n-22");

    const struct {
        decltype(gpio) platform;
        std::string expected;
    } cases[] = {
        {{-7, 0, 0, 0, "gpio8"}, "get lock fail-7"},
        {{0, 1, 0, 0, "gpio8"}, "-16"},
        {{0, 0, -3, 0, "gpio8"}, "[lock] -3"},
        {{0, 0, 0, 0, nullptr}, "NO find gpio catalog_name gpio_id:8\n[lock] -22"},
        {{0, 0, 0, 0, "missing"}, "Fail to open " + base + "/missing/active_low\n[lock] [unlock] -2"},
        {{0, 0, 0, 0, "../../../../../../tmp"}, "Fail to set start[1]\n[lock] [unlock] -5"},
        {{0, 0, 0, -9, "missing"}, "Fail to open " + base + "/missing/active_low\n[lock] [unlock] -9"},
        {{0, 0, 0, -9, "gpio8"}, "[lock] [unlock] -9"},
    };
    std::filesystem::create_symlink("/dev/full", "/tmp/active_low");
    for (const auto &c : cases) {
        gpio = c.platform;
        EXPECT_EQ(set(8, 1), c.expected);
    }
}

TEST_F(SystemTools, StormControlNeedsTheKernelsFile) {
    test::command_result = 3;
    existing_file = "/sys/class/net/br0/brif/eth0/in_multicast_limit";
    EXPECT_EQ(storm_ctl_enable(0, "eth0"), 3);
    EXPECT_EQ(done(), "[echo 1 > /sys/class/net/br0/brif/eth0/in_multicast_limit ] "
                      "[echo 300 > /sys/class/net/br0/brif/eth0/in_multicast_limit_threshold] ");
    EXPECT_EQ(storm_ctl_enable(1, "eth0"), 0);
    for (const char *port : {"../eth0", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(storm_ctl_enable(0, port), 0);
    EXPECT_EQ(done(), "");
    existing_file = "/sys/class/net/br0/brif/a;b/in_multicast_limit";
    storm_ctl_enable(0, "a;b");
    EXPECT_THAT(done(), EndsWith("[echo 300 > '/sys/class/net/br0/brif/a;b/in_multicast_limit_threshold'] "));
}

}  // namespace
