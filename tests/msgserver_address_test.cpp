// Address strings, the socket addresses that they resolve to, their texts, and the sockets that they name.

#include <array>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "foundation/owned.h"
#include "tests/support/capture.h"

namespace {

const std::string name63(63, 'n');

TEST(Address, SplitsIntoPartsThatFitTheirBuffers) {
    const struct {
        std::string address;
        unsigned type;
        std::string ip, port, proto, name;
    } cases[] = {
        {"tcp:192.168.100.200:5000", 1, "192.168.100.200", "5000", "", ""},
        {"udp:10.0.0.1:53:rest", 2, "10.0.0.1", "53", "", ""},
        {"tcp::5000", 1, "0.0.0.0", "5000", "", ""},
        {"tcp:1.2.3.4", 1, "1.2.3.4", "", "", ""},
        {"udp:192.168.100.2000:1234567", 2, "192.168.100.200", "1234567", "", ""},
        {"udp:1.2.3.4:12345678", 2, "1.2.3.4", "1234567", "", ""},
        {"unix:abc:def", 4, "0.0.0.0", "", "", "abc"},
        {"unix:" + name63 + "x", 4, "0.0.0.0", "", "", name63},
        {"netlink:1234", 8, "0.0.0.0", "", "123", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        char ip[16] = {}, port[8] = {}, proto[4] = {}, name[64] = {};
        EXPECT_EQ(ms_get_parm(c.address.c_str(), ip, port, proto, name), c.type);
        EXPECT_EQ((std::array<std::string, 4>{ip, port, proto, name}), (std::array{c.ip, c.port, c.proto, c.name}));
    }
}

TEST(Address, EndsTheProcessForAnUnknownScheme) {
    for (const char *address : {"ftp:1.2.3.4:21", "", "tcp", "TCP:1.2.3.4:5", " udp:1.2.3.4:5"}) {
        SCOPED_TRACE(address);
        int status = -1;
        const std::string printed = test::printed_by([&] {
            status = test::run_in_child([&] {
                ms_notify(address, "x", 1);
                _exit(9);
            });
        });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_THAT(printed, testing::MatchesRegex("ms_get_parm\\[[0-9 ]+\\]---:Please input the correct address\n"));
    }
}

TEST(Address, ResolvesToASocketAddressWithAText) {
    const struct {
        std::string address;
        unsigned type;
        int length, proto;
        std::string text;
    } cases[] = {
        {"tcp::5000", 1, 16, -1, "address IP[0.0.0.0:5000]"},
        {"udp:192.168.0.1:65535", 2, 16, -1, "address IP[192.168.0.1:65535]"},
        {"udp:nonsense:7", 2, 16, -1, "address IP[255.255.255.255:7]"},  // as inet_addr reads it
        {"tcp:1.2.3.4:65536", 1, 16, -1, "address IP[1.2.3.4:0]"},       // the port's 16 bits
        {"unix:" + name63, 4, 110, -1, "address PATH[/var/socket/" + name63 + "]"},
        {"netlink:31", 8, 12, 31, "untouched"},
    };
    std::filesystem::remove_all("/var/socket");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        sockaddr *resolved = nullptr;
        int length = -1, proto = -1;
        char text[128] = "untouched";
        EXPECT_EQ(ms_get_addr(c.address.c_str(), &resolved, &length, &proto), c.type);
        const ap::HeapPtr<sockaddr> owned(resolved);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(proto, c.proto);
        EXPECT_EQ(ms_addr_to_str(text, resolved, length), text);
        EXPECT_EQ(text, c.text);
        if (c.type != 8) continue;
        const sockaddr_nl kernel = {AF_NETLINK, 0, static_cast<uint32_t>(getpid()), 0};
        EXPECT_EQ(std::memcmp(resolved, &kernel, sizeof kernel), 0);
    }
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));
    std::filesystem::remove_all("/var/socket");
    EXPECT_EQ(ms_notify("unix:nobody", "x", 1), 0);
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));
}

TEST(Address, HasATextThatEndsWithItsField) {
    sockaddr_un full{AF_UNIX, {}};
    std::memset(full.sun_path, 'p', sizeof full.sun_path);
    char text[128];
    EXPECT_EQ(ms_addr_to_str(text, reinterpret_cast<sockaddr *>(&full), 110),
              "address PATH[" + std::string(108, 'p') + "]");
}

TEST(Socket, OfAnUnknownTypeIsSaidAndReadsZero) {
    int fd = -1;
    EXPECT_THAT(test::printed_by([&] { fd = ms_socket(0, 0); }),
                testing::HasSubstr("]---:socket type error [type = 0]\n"));
    EXPECT_EQ(fd, 0);
}

}  // namespace
