// platform_commands_test.cpp: commands, small files, address arithmetic, character sets, processes, the platform's log and
// the messages to other services.

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

#include "applatform/commands.h"
#include "applatform/flash.h"
#include "applatform/interfaces.h"
#include "applatform/system.h"
#include "foundation/owned.h"
#include "tests/support/capture.h"

namespace {

using test::read_text;
using test::write_text;

TEST(Commands, RunAndGiveTheWaitStatus) {
    EXPECT_EQ(doSystemCmd("exit %d", 3), 3 << 8);
    const std::string long_word(5000, 'x');
    EXPECT_EQ(doSystemCmd("test %s = %s", long_word.c_str(), long_word.c_str()), 0);
}

TEST(SmallFiles, AreTruncatedOrAppendedTo) {
    constexpr const char *path = "/tmp/small";
    EXPECT_EQ(do_file_cmd(path, 0, "%s=%d\n", "a", 1), 0);
    EXPECT_EQ(do_file_cmd(path, 1, "b"), 0);
    EXPECT_EQ(read_text(path), "a=1\nb");
    EXPECT_EQ(do_file_cmd(path, 0, "c"), 0);
    EXPECT_EQ(read_text(path), "c");
    EXPECT_EQ(do_file_cmd("/tmp/none/small", 1, "c"), -1);
    EXPECT_EQ(do_file_cmd("/dev/full", 1, "c"), -1);
    EXPECT_EQ(do_file_cmd(path, 2, "d"), -1);
    EXPECT_EQ(read_text(path), "c");
    EXPECT_EQ(file_check_exist_or_not(path) + file_check_exist_or_not("/tmp/none") + file_check_exist_or_not(nullptr), 1);
}

TEST(IniFiles, GiveTheFirstValueOfAWholeKey) {
    write_text("/tmp/wan.ini", "# ip=9\nipx=8\n ip = 10.0.0.5 \r\nip=2\nempty=\nlong=" + std::string(300, 'x') + "\nlast=1");
    const struct {
        const char *key;
        int result;
        std::string value;
    } cases[] = {{"ip", 0, "10.0.0.5"}, {"empty", 0, ""}, {"long", 0, std::string(255, 'x')}, {"last", 0, "1"},
                 {"i", -1, "kept"},     {"", -1, "kept"}, {"IP", -1, "kept"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key);
        char value[256] = "kept";
        EXPECT_EQ(file_get_value_from_ini("/tmp/wan.ini", c.key, value), c.result);
        EXPECT_EQ(value, c.value);
    }
    char value[256];
    EXPECT_EQ(file_get_value_from_ini("/tmp/none.ini", "ip", value), -1);
    EXPECT_EQ(file_get_value_from_ini("/tmp", "ip", value), -1);
}

TEST(Texts, AreTrimmedInPlace) {
    for (const auto &[text, trimmed] : {std::pair("  a b\t\n", "a b"), {"", ""}, {" \t ", ""}, {"a", "a"}}) {
        char buffer[16];
        std::strcpy(buffer, text);
        EXPECT_STREQ(string_str_trim(buffer), trimmed);
    }
    EXPECT_EQ(string_str_trim(nullptr), nullptr);
}

TEST(Addresses, AreChecked) {
    for (const char *valid : {"0.0.0.0", "192.168.0.1", "255.255.255.255"}) EXPECT_EQ(is_invalid_ip(valid), 0) << valid;
    for (const char *invalid : {"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "1.2.3.4.5", "a.b.c.d", "::1"})
        EXPECT_NE(is_invalid_ip(invalid), 0) << invalid;
    EXPECT_NE(is_invalid_ip(nullptr), 0);
}

TEST(Addresses, StepByASubnetOrAHost) {
    const struct {
        const char *ip, *mask;
        int flag, result;
        const char *out;
    } cases[] = {
        {"192.168.0.1", "255.255.255.0", 0, 0, "192.168.1.1"},
        {"10.0.0.5", "255.0.0.0", 0, 0, "11.0.0.5"},
        {"10.255.255.255", "255.255.255.255", 0, 0, "11.0.0.0"},
        {"223.255.254.9", "255.255.255.0", 0, 0, "223.255.255.9"},
        {"223.255.255.9", "255.255.255.0", 0, -1, "kept"},
        {"1.2.3.4", "0.0.0.0", 0, -1, "kept"},
        {"1.2.3.4", "255.0.255.0", 0, -1, "kept"},
        {"1.2.3", "255.0.0.0", 0, -1, "kept"},
        {"192.168.0.253", "255.255.255.0", 1, 0, "192.168.0.254"},
        {"192.168.0.254", "255.255.255.0", 1, -1, "kept"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ip);
        char out[16] = "kept";
        EXPECT_EQ(ifaddrs_ip_increase(c.ip, c.mask, out, c.flag), c.result);
        EXPECT_STREQ(out, c.out);
    }
}

TEST(Addresses, OverlapByTheWiderMask) {
    EXPECT_NE(check_ip_is_same_net("192.168.0.1", "255.255.255.0", "192.168.0.200", "255.255.255.0"), 0);
    EXPECT_NE(check_ip_is_same_net("10.1.1.1", "255.255.255.0", "10.0.0.5", "255.0.0.0"), 0);
    EXPECT_EQ(check_ip_is_same_net("192.168.0.1", "255.255.255.0", "192.168.1.1", "255.255.255.0"), 0);
    EXPECT_EQ(check_ip_is_same_net("192.168.0.1", "", "192.168.0.1", "255.255.255.0"), 0);
}

TEST(Addresses, EthernetTextIsReadWholeOrNotAtAll) {
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    for (const char *bad : {"", "02:00:5e:00:00", "02:00:5e:00:00:01:", "02:00:5e:00:00:0g", "02-00-5e-00-00-01", ":0:1:2:3:4"})
        EXPECT_EQ(ifaddrs_ethaddr_aton(bad, mac), -1) << bad;
    EXPECT_EQ(mac[0] + mac[5], 18);
    EXPECT_EQ(ifaddrs_ethaddr_aton("02:0:5E:ab:00:f1", mac), 0);
    EXPECT_EQ(std::memcmp(mac, "\x02\x00\x5e\xab\x00\xf1", 6), 0);
}

TEST(Checksum, IsTheStandardOne) {
    EXPECT_EQ(crc32(0, reinterpret_cast<const unsigned char *>("123456789"), 9), 0xCBF43926ul);
    EXPECT_EQ(crc32(0, nullptr, 0), 0ul);
}

TEST(CharacterSets, AreToldApart) {
    const struct {
        const char *text;
        int format;
    } cases[] = {{"", 0},        {"plain", 0},      {"\xC4\xE3\xBA\xC3", 1}, {"\xE4\xBD\xA0\xE5\xA5\xBD", 2},
                 {"a\xC3\xA9", 2}, {"\xC3", 1},     {"\xC0\xAF", 1},         {"\xED\xA0\x80", 1},
                 {"\xF0\x9F\x93\xB6", 2}, {"\xF4\x90\x80\x80", 1}, {"\xE0\x80\x80", 1}};
    for (const auto &c : cases) EXPECT_EQ(system_get_code_format(c.text), c.format) << c.text;
}

TEST(CharacterSets, AreConvertedWholeOrNotAtAll) {
    constexpr const char *utf8 = "\xE4\xBD\xA0 ok", *gb2312 = "\xC4\xE3 ok";
    const struct {
        const char *text, *target;
        unsigned int size;
        int result;
        const char *out;
    } cases[] = {
        {utf8, "gb2312", 6, 0, gb2312},   {utf8, "gb2312", 5, -1, "kept"},       {gb2312, "utf8", 7, 0, utf8},
        {gb2312, "utf-8", 6, -1, "kept"}, {utf8, "UTF8", 32, 0, utf8},           {"plain", "gb2312", 6, 0, "plain"},
        {utf8, "latin1", 32, -1, "kept"}, {"\xF0\x9F\x93\xB6", "gb2312", 32, -1, "kept"}, {"\xC4", "utf8", 32, -1, "kept"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        char out[32] = "kept";
        EXPECT_EQ(system_convert_code_format(c.text, c.target, out, c.size), c.result);
        EXPECT_STREQ(out, c.out);
    }
}

pid_t start_process(const std::string &name, bool ignores_termination) {
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_NAME, name.c_str());
    if (ignores_termination) std::signal(SIGTERM, SIG_IGN);
    for (;;) pause();
}

TEST(Processes, AreFoundAndStoppedByTheirNames) {
    for (const bool stubborn : {false, true}) {
        SCOPED_TRACE(stubborn);
        const pid_t child = start_process("dhcpcd_wan9 (x)", stubborn);
        while (proc_check_app("dhcpcd_wan9 (x)") == 0) usleep(1000);
        EXPECT_NE(monitor_check_exist("dhcpcd_wan9 (x)"), 0);
        EXPECT_EQ(monitor_check_exist("dhcpcd_wan9"), 0);
        EXPECT_EQ(monitor_stop("dhcpcd_wan9 (x)"), 0);
        EXPECT_EQ(proc_check_app("dhcpcd_wan9 (x)"), 0);  // though nobody has waited for it yet
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WTERMSIG(status), stubborn ? SIGKILL : SIGTERM);
    }
    EXPECT_NE(proc_check_app("platform_commands_test"), 0);  // by its first argument: the command name is cut
    EXPECT_EQ(monitor_stop("platform_commands_test"), 0);    // but never the caller itself
    EXPECT_EQ(monitor_stop("nobody"), 0);
    EXPECT_EQ(proc_check_app("") + proc_check_app(nullptr), 0);
    EXPECT_GT(system_get_uptime(), 0u);
}

TEST(Log, HasOneLineAListCanReadForEachCall) {
    std::filesystem::remove("/var/logs.txt");
    log_debug_print("function", 7, 2, "common_so", "two\nlines %d", 1);
    log_debug_print("function", 7, 6, "common_so", "function entry!");
    log_debug_print(nullptr, 7, 5, nullptr, "%s", std::string(1000, 'x').c_str());
    const std::string text = read_text("/var/logs.txt");
    char time[32], level[32], module[32], message[256];
    ASSERT_EQ(std::sscanf(text.c_str(), "%31[^[] [%31[^]] %*[^[][%31[^]]]: %255[^\n]", time, level, module, message), 4);
    EXPECT_STREQ(level, "error");
    EXPECT_STREQ(module, "common_so");
    EXPECT_STREQ(message, "function(7): two lines 1");
    EXPECT_EQ(std::ranges::count(text, '\n'), 2);
    EXPECT_EQ(text.size() - text.find('\n') - 1, 255u);
}

TEST(Log, StartsOverAtItsLimitAndIsKeptInAnArchive) {
    write_text("/var/logs.txt", std::string(200 * 1024 - 1, 'x') + "\n");
    log_debug_print("f", 1, 2, "m", "newest");
    EXPECT_EQ(std::filesystem::file_size("/var/logs.txt.0"), 200u * 1024);
    EXPECT_LT(std::filesystem::file_size("/var/logs.txt"), 100u);
    write_text("/var/debug.cfm.log", "an error\n");
    log_file_sync_to_flash();
    EXPECT_EQ(std::system("cd /tmp && tar xzf /cfg/log/log.tar.gz && cmp logs.txt /var/logs.txt && "
                          "cmp logs.txt.0 /var/logs.txt.0 && cmp debug.cfm.log /var/debug.cfm.log"), 0);
    EXPECT_FALSE(std::filesystem::exists("/cfg/log/log.tar.gz.next"));
}

ap::UniqueFd listening(int type, const char *path) {
    std::filesystem::remove(path);
    ap::UniqueFd service(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address = {AF_UNIX, {}};
    std::strcpy(address.sun_path, path);
    EXPECT_EQ(bind(service.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return service;
}

TEST(Messages, FailWhenNobodyListens) {
    std::filesystem::remove("/var/socket/api");
    std::filesystem::remove("/var/socket/user_info");
    void *answer = nullptr;
    const int before = test::open_descriptors();
    EXPECT_EQ(ap_comm_send_msg_to_api(19, "op=9"), -1);
    EXPECT_EQ(send_msg_to_user_info("request", &answer, 8), -1);
    EXPECT_EQ(answer, nullptr);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(Messages, ReachTheServiceAndBringItsAnswer) {
    const ap::UniqueFd api = listening(SOCK_DGRAM, "/var/socket/api");
    EXPECT_EQ(ap_comm_send_msg_to_api(19, "op=9"), 0);
    struct {
        int32_t message;
        char text[60];
    } received = {};
    EXPECT_EQ(recv(api.get(), &received, sizeof received, 0), 4 + 5);
    EXPECT_EQ(received.message, 19);
    EXPECT_STREQ(received.text, "op=9");

    const ap::UniqueFd users = listening(SOCK_SEQPACKET, "/var/socket/user_info");
    listen(users.get(), 1);
    std::thread service([&] {
        for (const size_t length : {size_t{12}, size_t{0}}) {
            const ap::UniqueFd client(accept(users.get(), nullptr, nullptr));
            char request[64];
            EXPECT_EQ(recv(client.get(), request, sizeof request, 0), 40);
            if (length != 0) send(client.get(), request, length, 0);
        }
    });
    const std::string request = "hello" + std::string(35, 'r');
    void *answer = nullptr;
    EXPECT_EQ(send_msg_to_user_info(request.data(), &answer, 40), 0);
    EXPECT_EQ(std::memcmp(answer, ("hello" + std::string(7, 'r') + std::string(29, '\0')).data(), 41), 0);
    std::free(answer);
    EXPECT_EQ(send_msg_to_user_info(request.data(), &answer, 40), -1);  // closed without an answer
    service.join();
}

}  // namespace
