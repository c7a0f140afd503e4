// Address strings, the socket addresses that they resolve to, their texts, and the sockets that they name.

#include <cerrno>
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

TEST(Address, SplitsIntoPartsThatFitTheirBuffersAndResolves) {
    const struct {
        std::string address;
        unsigned type;
        int length, proto;
        std::string parts, text;
    } cases[] = {
        {"tcp:192.168.100.200:5000", 1, 16, -1, "192.168.100.200|5000||", "address IP[192.168.100.200:5000]"},
        {"udp:10.0.0.1:53:rest", 2, 16, -1, "10.0.0.1|53||", "address IP[10.0.0.1:53]"},
        {"tcp::65535", 1, 16, -1, "0.0.0.0|65535||", "address IP[0.0.0.0:65535]"},
        {"tcp:1.2.3.4", 1, 16, -1, "1.2.3.4|||", "address IP[1.2.3.4:0]"},
        {"udp:nonsense:65536", 2, 16, -1, "nonsense|65536||",
         "address IP[255.255.255.255:0]"},  // as inet_addr reads it
        {"udp:1.2.3.4:1234567", 2, 16, -1, "1.2.3.4|1234567||", "address IP[1.2.3.4:54919]"},
        {"udp:192.168.100.2000:12345678", 2, 16, -1, "192.168.100.200|1234567||", "address IP[192.168.100.200:54919]"},
        {"unix:abc:def", 4, 110, -1, "0.0.0.0|||abc", "address PATH[/var/socket/abc]"},
        {"unix:" + name63 + "x", 4, 110, -1, "0.0.0.0|||" + name63, "address PATH[/var/socket/" + name63 + "]"},
        {"netlink:1234", 8, 12, 123, "0.0.0.0||123|", "untouched"},
    };
    std::filesystem::remove_all("/var/socket");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        char ip[16] = {}, port[8] = {}, proto[4] = {}, name[64] = {}, text[128] = "untouched";
        EXPECT_EQ(ms_get_parm(c.address.c_str(), ip, port, proto, name), c.type);
        EXPECT_EQ(ip + std::string("|") + port + "|" + proto + "|" + name, c.parts);
        sockaddr *resolved = nullptr;
        int length = -1, number = -1;
        EXPECT_EQ(ms_get_addr(c.address.c_str(), &resolved, &length, &number), c.type);
        const ap::HeapPtr<sockaddr> owned(resolved);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(number, c.proto);
        EXPECT_EQ(ms_addr_to_str(text, resolved, length), text);
        EXPECT_EQ(text, c.text);
        const sockaddr_nl kernel = {AF_NETLINK, 0, static_cast<uint32_t>(getpid()), 0};
        EXPECT_EQ(c.type == 8, std::memcmp(resolved, &kernel, sizeof kernel) == 0);
    }
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));
    std::filesystem::remove_all("/var/socket");
    char answer = 0;
    EXPECT_EQ(ms_dialog("unix:nobody", "x", 1, &answer, 1), -1);
    EXPECT_EQ(errno, EINVAL);  // of the receive on the unconnected socket
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));
}

TEST(Address, EndsTheProcessForAnUnknownScheme) {
    for (const char *address : {"ftp:1.2.3.4:21", "", "tcp", "TCP:1.2.3.4:5", " udp:1.2.3.4:5"}) {
        SCOPED_TRACE(address);
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(test::run_in_child([&] { ms_notify(address, "x", 1), _exit(9); }), 0); });
        EXPECT_THAT(printed, testing::MatchesRegex("ms_get_parm\\[[0-9 ]+\\]---:Please input the correct address\n"));
    }
}

TEST(Address, MayFillItsField) {
    const std::string path = "/tmp/" + std::string(108 - 5, 'p');
    sockaddr_un full{AF_UNIX, {}};
    path.copy(full.sun_path, sizeof full.sun_path);
    const auto *const address = reinterpret_cast<sockaddr *>(&full);
    char text[128];
    EXPECT_EQ(ms_addr_to_str(text, address, 110), "address PATH[" + path + "]");
    const ap::UniqueFd fd(ms_socket(4, 0));
    EXPECT_THAT(test::printed_by([&] { ms_listen(fd.get(), 4, address, 110); }),
                testing::EndsWith("at " + path + "\n"));
}

TEST(Socket, OfAnUnknownTypeIsSaidAndReadsZero) {
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(ms_socket(0, 0), 0); }),
                testing::EndsWith("]---:socket type error [type = 0]\n"));
}

}  // namespace
