// platform_commands_test.cpp: commands, small files, address arithmetic, character sets, processes, the platform's log
// and the messages to other services.

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

TEST(Commands, GiveTheWaitStatusAndWriteSmallFiles) {
    EXPECT_EQ(doSystemCmd("exit %d", 3), 3 << 8);
    EXPECT_EQ(doSystemCmd("test 5000 = $(printf %s | wc -c)", std::string(5000, 'x').c_str()), 0);
    EXPECT_EQ(do_file_cmd("/tmp/small", 0, "%s=%d\n", "a", 1) + do_file_cmd("/tmp/small", 1, "b"), 0);
    EXPECT_EQ(read_text("/tmp/small"), "a=1\nb");
    EXPECT_EQ(do_file_cmd("/tmp/small", 0, "c"), 0);
    for (const char *path : {"/tmp/none/small", "/dev/full", "/tmp"}) EXPECT_EQ(do_file_cmd(path, 1, "d"), -1);
    EXPECT_EQ(do_file_cmd("/tmp/small", 2, "d"), -1);
    EXPECT_EQ(read_text("/tmp/small"), "c");
    EXPECT_EQ(file_check_exist_or_not("/tmp/small") + file_check_exist_or_not("/tmp/none"), 1);
}

TEST(IniFiles, GiveTheFirstValueOfAWholeKey) {
    write_text("/tmp/ini",
               "# ip=9\nipx=8\n ip = 10.0.0.5 \r\nip=2\nempty=\nlong=" + std::string(300, 'x') + "\nlast=1");
    const struct {
        const char *path, *key;
        int result;
        std::string value;
    } cases[] = {{"/tmp/ini", "ip", 0, "10.0.0.5"}, {"/tmp/ini", "empty", 0, ""},
                 {"/tmp/ini", "last", 0, "1"},      {"/tmp/ini", "long", 0, std::string(255, 'x')},
                 {"/tmp/ini", "i", -1, "kept"},     {"/tmp/ini", "IP", -1, "kept"},
                 {"/tmp/none", "ip", -1, "kept"},   {"/tmp", "ip", -1, "kept"}};
    for (const auto &c : cases) {
        char value[256] = "kept";
        EXPECT_EQ(file_get_value_from_ini(c.path, c.key, value), c.result) << c.key;
        EXPECT_EQ(value, c.value);
    }
    for (const auto &[text, trimmed] : {std::pair("  a b\t\n", "a b"), {"", ""}, {" \t ", ""}, {"a", "a"}}) {
        char buffer[16];
        std::strcpy(buffer, text);
        EXPECT_STREQ(string_str_trim(buffer), trimmed);
    }
}

TEST(Addresses, AreCheckedSteppedAndCompared) {
    for (const char *valid : {"0.0.0.0", "255.255.255.255"}) EXPECT_EQ(is_invalid_ip(valid), 0) << valid;
    for (const char *bad : {"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "::1"}) EXPECT_NE(is_invalid_ip(bad), 0) << bad;
    const struct {
        const char *ip, *mask;
        int flag;
        const char *next;  // null: refused
    } steps[] = {{"192.168.0.1", "255.255.255.0", 0, "192.168.1.1"},
                 {"10.0.0.5", "255.0.0.0", 0, "11.0.0.5"},
                 {"223.255.254.9", "255.255.255.0", 0, "223.255.255.9"},
                 {"223.255.255.9", "255.255.255.0", 0, nullptr},
                 {"10.255.255.255", "255.255.255.255", 0, "11.0.0.0"},
                 {"1.2.3.4", "0.0.0.0", 0, nullptr},
                 {"1.2.3.4", "255.0.255.0", 0, nullptr},
                 {"1.2.3", "255.0.0.0", 0, nullptr},
                 {"192.168.0.253", "255.255.255.0", 1, "192.168.0.254"},
                 {"192.168.0.254", "255.255.255.0", 1, nullptr}};
    for (const auto &s : steps) {
        char out[16] = "kept";
        EXPECT_EQ(ifaddrs_ip_increase(s.ip, s.mask, out, s.flag), s.next ? 0 : -1) << s.ip;
        EXPECT_STREQ(out, s.next ? s.next : "kept");
    }
    EXPECT_NE(check_ip_is_same_net("10.1.1.1", "255.255.255.0", "10.0.0.5", "255.0.0.0"), 0);
    EXPECT_EQ(check_ip_is_same_net("192.168.0.1", "255.255.255.0", "192.168.1.1", "255.255.255.0"), 0);
    EXPECT_EQ(check_ip_is_same_net("192.168.0.1", "", "192.168.0.1", "255.255.255.0"), 0);

    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    for (const char *bad : {"", "02:00:5e:00:00", "02:00:5e:00:00:01:", "02:00:5e:00:00:0g", "02-00-5e-00-00-01"})
        EXPECT_EQ(ifaddrs_ethaddr_aton(bad, mac), -1) << bad;
    EXPECT_EQ(mac[0], 9);
    EXPECT_EQ(ifaddrs_ethaddr_aton("02:0:5E:ab:00:f1", mac), 0);
    EXPECT_EQ(std::memcmp(mac, "\x02\x00\x5e\xab\x00\xf1", 6), 0);
    EXPECT_EQ(crc32(0, reinterpret_cast<const unsigned char *>("123456789"), 9), 0xCBF43926ul);
}

TEST(CharacterSets, AreToldApartAndConvertedWholeOrNotAtAll) {
    constexpr const char *utf8 = "\xE4\xBD\xA0 ok", *gb2312 = "\xC4\xE3 ok", *signal = "\xF0\x9F\x93\xB6";
    for (const char *text : {"", "plain"}) EXPECT_EQ(system_get_code_format(text), 0) << text;
    for (const char *text : {gb2312, "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE0\x80\x80"})
        EXPECT_EQ(system_get_code_format(text), 1) << text;
    for (const char *text : {utf8, "a\xC3\xA9", signal}) EXPECT_EQ(system_get_code_format(text), 2) << text;
    const struct {
        const char *text, *target;
        unsigned int size;
        const char *converted;  // null: refused
    } cases[] = {{utf8, "gb2312", 6, gb2312},   {utf8, "gb2312", 5, nullptr},    {gb2312, "utf8", 7, utf8},
                 {gb2312, "utf-8", 6, nullptr}, {utf8, "UTF8", 32, utf8},        {"plain", "gb2312", 6, "plain"},
                 {utf8, "latin1", 32, nullptr}, {signal, "gb2312", 32, nullptr}, {"\xC4", "utf8", 32, nullptr}};
    for (const auto &c : cases) {
        char out[32] = "kept";
        EXPECT_EQ(system_convert_code_format(c.text, c.target, out, c.size), c.converted ? 0 : -1) << c.text;
        EXPECT_STREQ(out, c.converted ? c.converted : "kept");
    }
}

TEST(Processes, AreFoundAndStoppedByTheirNames) {
    for (const bool stubborn : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            std::signal(SIGTERM, stubborn ? SIG_IGN : SIG_DFL);
            prctl(PR_SET_NAME, "dhcpcd_wan9 (x)");
            for (;;) pause();
        }
        while (proc_check_app("dhcpcd_wan9 (x)") == 0) usleep(1000);
        EXPECT_EQ(monitor_check_exist("dhcpcd_wan9"), 0);
        EXPECT_EQ(monitor_stop("dhcpcd_wan9 (x)"), 0);
        EXPECT_EQ(monitor_check_exist("dhcpcd_wan9 (x)"), 0);  // though nobody has waited for it yet
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WTERMSIG(status), stubborn ? SIGKILL : SIGTERM);
    }
    EXPECT_NE(proc_check_app("platform_commands_test"), 0);  // by its first argument: the command name is cut
    EXPECT_EQ(monitor_stop("platform_commands_test") + monitor_stop("nobody"), 0);  // but never the caller itself
    EXPECT_GT(system_get_uptime(), 0u);
}

TEST(Log, HasLinesThatAListCanReadAndIsKeptInAnArchive) {
    write_text("/var/logs.txt", std::string(200 * 1024 - 1, 'x') + "\n");
    log_debug_print("function", 7, 2, "common_so", "two\nlines %d", 1);
    log_debug_print("function", 7, 6, "common_so", "function entry!");
    log_debug_print(nullptr, 7, 5, nullptr, "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(std::filesystem::file_size("/var/logs.txt.0"), 200u * 1024);
    const std::string text = read_text("/var/logs.txt");
    char time[32], level[32], module[32], message[256];
    ASSERT_EQ(std::sscanf(text.c_str(), "%31[^[] [%31[^]] %*[^[][%31[^]]]: %255[^\n]", time, level, module, message),
              4);
    EXPECT_EQ(std::string(level) + "|" + module + "|" + message, "error|common_so|function(7): two lines 1");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    EXPECT_EQ(text.size() - text.find('\n') - 1, 255u);

    write_text("/var/debug.cfm.log", "an error\n");
    log_file_sync_to_flash();
    EXPECT_EQ(std::system("cd /tmp && tar xzf /cfg/log/log.tar.gz && cmp logs.txt /var/logs.txt && "
                          "cmp logs.txt.0 /var/logs.txt.0 && cmp debug.cfm.log /var/debug.cfm.log"),
              0);
}

ap::UniqueFd listening(int type, const char *path) {
    ap::UniqueFd service(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address = {AF_UNIX, {}};
    std::strcpy(address.sun_path, path);
    EXPECT_EQ(bind(service.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return service;
}

TEST(Messages, FailWhenNobodyListensAndElseBringAnAnswer) {
    void *answer = nullptr;
    const int descriptors = test::open_descriptors();
    EXPECT_EQ(ap_comm_send_msg_to_api(19, "op=9") + send_msg_to_user_info("request", &answer, 8), -2);
    EXPECT_EQ(test::open_descriptors(), descriptors);

    const ap::UniqueFd api = listening(SOCK_DGRAM, "/var/socket/api");
    EXPECT_EQ(ap_comm_send_msg_to_api(19, "op=9"), 0);
    char message[64] = {};
    EXPECT_EQ(recv(api.get(), message, sizeof message, 0), 4 + 5);
    const int32_t number = 19;
    EXPECT_EQ(std::memcmp(message, &number, sizeof number), 0);
    EXPECT_STREQ(message + sizeof number, "op=9");

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
    const std::string request(40, 'r');
    EXPECT_EQ(send_msg_to_user_info(request.data(), &answer, 40), 0);
    EXPECT_EQ(std::memcmp(answer, (std::string(12, 'r') + std::string(29, '\0')).data(), 41), 0);
    std::free(answer);
    EXPECT_EQ(send_msg_to_user_info(request.data(), &answer, 40), -1);  // closed without an answer
    service.join();
}

}  // namespace
