// Address strings, the socket addresses that they resolve to, their texts, and the sockets that they name.

#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apsupport/msgserver.h"
#include "foundation/owned.h"
#include "tests/support/capture.h"

using testing::HasSubstr;

namespace {

struct Resolved {
    unsigned type;
    int length = -1, proto = -1;
    ap::HeapPtr<sockaddr> address;
    explicit Resolved(const std::string &text) {
        sockaddr *raw = nullptr;
        type = ms_get_addr(text.c_str(), &raw, &length, &proto);
        address.reset(raw);
    }
    template <typename Record> Record as() const {
        Record record;
        std::memcpy(&record, address.get(), sizeof record);
        return record;
    }
};

TEST(Address, SplitsIntoPartsThatNeverOutgrowTheirBuffers) {
    const std::string name63(63, 'n');
    const struct {
        std::string address;
        unsigned type;
        std::string ip, port, proto, name;
    } cases[] = {
        {"tcp:192.168.100.200:5000", 1, "192.168.100.200", "5000", "", ""},
        {"udp:10.0.0.1:53:rest", 2, "10.0.0.1", "53", "", ""},
        {"tcp::5000", 1, "0.0.0.0", "5000", "", ""},
        {"tcp:1.2.3.4", 1, "1.2.3.4", "", "", ""},
        {"tcp:", 1, "0.0.0.0", "", "", ""},
        {"udp:192.168.100.2000:1234567", 2, "192.168.100.200", "1234567", "", ""},
        {"udp:1.2.3.4:12345678", 2, "1.2.3.4", "1234567", "", ""},
        {"unix:abc", 4, "0.0.0.0", "", "", "abc"},
        {"unix:abc:def", 4, "0.0.0.0", "", "", "abc"},
        {"unix:" + name63, 4, "0.0.0.0", "", "", name63},
        {"unix:" + name63 + "x", 4, "0.0.0.0", "", "", name63},
        {"netlink:31", 8, "0.0.0.0", "", "31", ""},
        {"netlink:1234", 8, "0.0.0.0", "", "123", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        struct {
            char ip[16] = {}, guard1 = 'g', port[8] = {}, guard2 = 'g', proto[4] = {}, guard3 = 'g', name[64] = {},
                 guard4 = 'g';
        } parts;
        EXPECT_EQ(ms_get_parm(c.address.c_str(), parts.ip, parts.port, parts.proto, parts.name), c.type);
        EXPECT_EQ(parts.ip, c.ip);
        EXPECT_EQ(parts.port, c.port);
        EXPECT_EQ(parts.proto, c.proto);
        EXPECT_EQ(parts.name, c.name);
        EXPECT_EQ((std::string{parts.guard1, parts.guard2, parts.guard3, parts.guard4}), "gggg");
    }
}

TEST(Address, EndsTheProcessForAnUnknownScheme) {
    for (const char *address : {"ftp:1.2.3.4:21", "", "tcp", "TCP:1.2.3.4:5", "unix", " udp:1.2.3.4:5"}) {
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

TEST(Address, ResolvesInternetAddresses) {
    const struct {
        const char *address, *ip;
        int port;
    } cases[] = {
        {"tcp::5000", "0.0.0.0", 5000},
        {"udp:0.0.0.0:1", "0.0.0.0", 1},
        {"tcp:192.168.0.1:65535", "192.168.0.1", 65535},
        {"udp:nonsense:7", "255.255.255.255", 7},  // as inet_addr gives it
        {"tcp:1.2.3.4:65536", "1.2.3.4", 0},       // the port's 16 bits
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.address);
        const Resolved resolved(c.address);
        const auto record = resolved.as<sockaddr_in>();
        EXPECT_EQ(resolved.length, 16);
        EXPECT_EQ(resolved.proto, -1);
        EXPECT_EQ(record.sin_family, AF_INET);
        EXPECT_EQ(ntohs(record.sin_port), c.port);
        EXPECT_STREQ(inet_ntoa(record.sin_addr), c.ip);
    }
}

TEST(Address, ResolvesUnixAndNetlinkAddresses) {
    std::filesystem::remove_all("/var/socket");
    const Resolved local("unix:abc");
    EXPECT_EQ(local.length, 110);
    EXPECT_EQ(local.as<sockaddr_un>().sun_family, AF_UNIX);
    EXPECT_STREQ(local.as<sockaddr_un>().sun_path, "/var/socket/abc");
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));

    const Resolved kernel("netlink:31");
    const auto record = kernel.as<sockaddr_nl>();
    EXPECT_EQ(kernel.length, 12);
    EXPECT_EQ(kernel.proto, 31);
    EXPECT_EQ(record.nl_family, AF_NETLINK);
    EXPECT_EQ(record.nl_pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(record.nl_groups, 0U);
}

TEST(Address, TheClientSideMakesTheFolderToo) {
    std::filesystem::remove_all("/var/socket");
    EXPECT_EQ(ms_notify("unix:nobody", "x", 1), 0);
    EXPECT_TRUE(std::filesystem::is_directory("/var/socket"));
}

TEST(Address, HasATextByItsLength) {
    sockaddr_un full{AF_UNIX, {}};
    std::memset(full.sun_path, 'p', sizeof full.sun_path);
    const std::string longest(108, 'p');
    const struct {
        const char *what;
        const sockaddr *address;
        int length;
        std::string text;
    } cases[] = {
        {"internet", Resolved("udp:1.2.3.4:500").address.release(), 16, "address IP[1.2.3.4:500]"},
        {"unix", Resolved("unix:abc").address.release(), 110, "address PATH[/var/socket/abc]"},
        {"a path without an end", reinterpret_cast<sockaddr *>(&full), 110, "address PATH[" + longest + "]"},
        {"netlink", Resolved("netlink:0").address.release(), 12, "untouched"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char buffer[128] = "untouched";
        EXPECT_EQ(ms_addr_to_str(buffer, c.address, c.length), buffer);
        EXPECT_EQ(buffer, c.text);
        if (c.address != reinterpret_cast<sockaddr *>(&full)) std::free(const_cast<sockaddr *>(c.address));
    }
}

TEST(Socket, IsMadeByTypeAndRefusesAnUnknownOne) {
    const struct {
        unsigned type;
        int domain, kind;
    } cases[] = {
        {1, AF_INET, SOCK_STREAM}, {2, AF_INET, SOCK_DGRAM}, {4, AF_UNIX, SOCK_STREAM}, {8 | 1, AF_NETLINK, SOCK_RAW}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        const ap::UniqueFd fd(ms_socket(c.type, 0));
        ASSERT_TRUE(fd);
        int domain = 0, kind = 0;
        socklen_t size = sizeof(int);
        getsockopt(fd.get(), SOL_SOCKET, SO_DOMAIN, &domain, &size);
        getsockopt(fd.get(), SOL_SOCKET, SO_TYPE, &kind, &size);
        EXPECT_EQ(domain, c.domain);
        EXPECT_EQ(kind, c.kind);
    }
    int fd = -1;
    EXPECT_THAT(test::printed_by([&] { fd = ms_socket(0, 0); }), HasSubstr("]---:socket type error [type = 0]\n"));
    EXPECT_EQ(fd, 0);
}

}  // namespace
