// The portal's links: management server, controller, broadcast frames, codes and numbers, address translation.

#include <arpa/inet.h>
#include <functional>
#include <numeric>
#include <sys/un.h>
#include <thread>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

namespace {

using test::Bytes;
using testing::MatchesRegex;

Bytes counted(size_t size, uint8_t first) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes message_of_type(uint32_t type) {
    Bytes message = counted(616, 3);
    ap::store_le(message.data(), type);
    return message;
}

// The management server on its socket, for one client at most.
class ManagementServer {
public:
    explicit ManagementServer(const std::function<void(int peer)> &serve) {
        sockaddr_un address = {AF_UNIX, "/tmp/ap_portal.socket"};
        unlink(address.sun_path);
        EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        listen(listener_.get(), 1);
        thread_ = std::thread([this, serve] {
            const ap::UniqueFd peer(accept(listener_.get(), nullptr, nullptr));
            if (peer) serve(peer.get());
        });
    }
    ~ManagementServer() {
        shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
        unlink("/tmp/ap_portal.socket");
    }

private:
    ap::UniqueFd listener_{socket(AF_UNIX, SOCK_STREAM, 0)};
    std::thread thread_;
};

Bytes read_message(int peer) {
    Bytes message(616);
    const ssize_t length = recv(peer, message.data(), message.size(), MSG_WAITALL);
    message.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return message;
}

TEST(ManagementLink, ExchangesOneMessage) {
    const Bytes question = message_of_type(5);
    for (const size_t answered : {size_t{616}, size_t{8}, size_t{1}, size_t{900}, size_t{0}}) {
        SCOPED_TRACE(answered);
        const Bytes answer = counted(answered, 99);
        Bytes seen, message = question;
        const int descriptors = test::open_descriptors();
        std::string printed;
        {
            const ManagementServer server([&](int peer) {
                seen = read_message(peer);
                send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
            });
            printed = test::printed_by(
                [&] { EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), answered == 0 ? 255 : 0); });
        }
        EXPECT_TRUE(seen == question);
        Bytes expected = question;
        std::copy_n(answer.begin(), std::min(answered, size_t{616}), expected.begin());
        EXPECT_TRUE(message == expected);
        EXPECT_EQ(printed, answered == 0 ? "recv mac list error or server close the socket\n" : "");
        EXPECT_EQ(test::open_descriptors(), descriptors);
    }
}

TEST(ManagementLink, FailsWithoutAServerAndAfterTwoSeconds) {
    Bytes message = message_of_type(1);
    const Bytes before = message;
    EXPECT_EQ(tpi_connect_with_ap_mng_svr(nullptr), 255);
    EXPECT_EQ(test::printed_by([&] { EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), 255); }),
              "connect the server error\n");

    const ManagementServer silent([](int peer) { read_message(peer), read_message(peer); });
    const test::FakeClock clock;
    EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), 255); }),
                MatchesRegex("Error->src/ap_portal/ap_pt_sock.c: [a-z_]*\\([0-9]+\\)--slelect is  timeout 0\n"));
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    EXPECT_TRUE(message == before);
}

class ControllerLink : public testing::Test {
protected:
    void SetUp() override {
        sockaddr_in address = {AF_INET, htons(5247), {htonl(INADDR_LOOPBACK)}, {}};
        ASSERT_EQ(bind(controller.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        test::store.values = {{"ap.apname", "KV"}, {"vendor.type_pack", "0x1799"}};
        std::memset(ap_type_table, 0, sizeof ap_type_table);
        ap_type_table[3] = {0x0A0B, "KV-AP620"};
    }
    void TearDown() override { std::memset(ap_type_table, 0, sizeof ap_type_table); }

    // Answers the next packet with `answer` while the message is exchanged; the packet.
    Bytes exchange(Bytes &message, const Bytes &answer, int expected) const {
        Bytes seen;
        std::thread peer([&] {
            sockaddr_in from = {};
            socklen_t size = sizeof from;
            seen.resize(4096);
            const ssize_t length =
                recvfrom(controller.get(), seen.data(), seen.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
            seen.resize(length < 0 ? 0 : static_cast<size_t>(length));
            sendto(controller.get(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from), size);
        });
        EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), expected);
        peer.join();
        return seen;
    }

    ap::UniqueFd controller{socket(AF_INET, SOCK_DGRAM, 0)};
};

TEST_F(ControllerLink, SendsTheKnownTypesOnly) {
    for (uint32_t type = 0; type <= 24; ++type) {
        SCOPED_TRACE(type);
        Bytes message = message_of_type(type);
        if ((type >= 1 && type <= 6) || type == 21 || type == 22) {
            EXPECT_EQ(exchange(message, counted(16 + 4, 0), 0x13121110).size(), 632U);
            continue;
        }
        EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 0);
        EXPECT_TRUE(test::received_by(controller.get()).empty());
    }
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", nullptr), 255);
}

TEST_F(ControllerLink, PacketAndAnswerByteForByte) {
    const Bytes question = message_of_type(22);
    for (const size_t answered : {size_t{4}, size_t{616}, size_t{1984}, size_t{2000}}) {
        SCOPED_TRACE(answered);
        Bytes answer = counted(16 + answered, 0x20), message = question;
        ap::store_le(answer.data() + 16, uint32_t{9});
        while (get_seq_num() != 0x41) {}
        const Bytes packet = exchange(message, answer, 9);
        EXPECT_EQ(test::hex({packet.begin(), packet.begin() + 16}), "0200420058580000"
                                                                    "0b0a991718006802");
        EXPECT_TRUE(Bytes(packet.begin() + 16, packet.end()) == question);
        Bytes expected = question;
        std::copy_n(answer.begin() + 16, std::min(answered, size_t{616}), expected.begin());
        EXPECT_TRUE(message == expected);
    }
}

TEST_F(ControllerLink, WithoutACodeTheHeaderAloneIsSent) {
    const struct {
        const char *what, *missing, *line;
        const char *rest;  // of the header
    } cases[] = {{"no type", "ap.apname", "get ap type failure!", "0000000000000000"},
                 {"no vendor", "vendor.type_pack", "get vendor type failure!", "0b0a000000000000"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::store.values.erase(c.missing);
        Bytes message = message_of_type(1), packet;
        const std::string printed = test::printed_by([&] { packet = exchange(message, counted(20, 0), 0x13121110); });
        ASSERT_EQ(packet.size(), 16U);
        EXPECT_EQ(test::hex({packet.begin() + 8, packet.end()}), c.rest);
        EXPECT_THAT(printed,
                    testing::ContainsRegex("Error->src/ap_portal/public_pt_sock.c: create_packet_to_ac\\([0-9]+\\)--" +
                                           std::string(c.line) + "$"));
        test::store.values = {{"ap.apname", "KV"}};
    }
}

TEST_F(ControllerLink, ShortAnswersAndSilenceAndNoAddressGiveTwenty) {
    const Bytes question = message_of_type(1);
    for (const size_t length : {0U, 15U, 16U, 19U}) {
        Bytes message = question;
        exchange(message, counted(length, 0), 20);
        EXPECT_TRUE(message == question);
    }
    Bytes message = question;
    EXPECT_EQ(tpi_interaction_ac(nullptr, message.data()), 20);
    EXPECT_EQ(tpi_interaction_ac("no address", message.data()), 20);
    const test::FakeClock clock;
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 20);
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    EXPECT_TRUE(message == question);
}

TEST(Broadcast, FrameByteForByte) {
    struct Request {
        portal_broadcast head;
        uint8_t macs[3][6];
    };
    const Request request = {{0x00010203, 0, 0, 0xABCD, {10, 0, 0, 7}, {2, 3, 4, 5, 6, 7}},
                             {{0xA, 0xB, 0xC, 0xD, 0xE, 0xF}, {1, 2, 3, 4, 5, 6}, {9, 9, 9, 9, 9, 9}}};
    for (uint32_t count = 0; count <= 3; ++count) {
        SCOPED_TRACE(count);
        const test::FrameLink link;
        Request sent = request;
        sent.head.count = count;
        sent.head.socket = static_cast<uint32_t>(link.near.get());
        while (get_seq_num() != 0xFF) {}
        EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(&sent.head), 0);
        char middle[64];
        std::snprintf(middle, sizeof middle, "%02x00", 4 + 6 * count);
        const std::string macs = "0a0b0c0d0e0f010203040506090909090909";
        EXPECT_EQ(test::hex(test::received_by(link.far.get())), "ffffffffffff020304050607575700030000000"
                                                                "00a0000070000cdab0302" +
                                                                    std::string(middle) + std::string(128, '0') + "0" +
                                                                    std::to_string(count) + "000000" +
                                                                    macs.substr(0, size_t{12} * count));
    }
}

TEST(Broadcast, FailsUnlessTheWholeFrameGoesOut) {
    std::vector<uint8_t> room(24 + 10922 * 6);
    auto *request = reinterpret_cast<portal_broadcast *>(room.data());
    request->socket = 9999;
    EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(request), 255);
    EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(nullptr), 255);
    const test::FrameLink link;
    request->socket = static_cast<uint32_t>(link.near.get());
    for (const uint32_t count : {10921U, 10922U, UINT32_MAX}) {  // the payload's length is a 16-bit word
        request->count = count;
        EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(request), count == 10921 ? 0 : 255);
    }
}

TEST(Codes, TheFirstRowThatBeginsWithTheNameCounts) {
    std::memset(ap_type_table, 0, sizeof ap_type_table);
    ap_type_table[0] = {1, "KV-AP6"};
    ap_type_table[7] = {2, "KV-AP620"};
    ap_type_table[8] = {3, "KV-AP620-2"};
    test::fill_field(ap_type_table[95].name, "SIXTEEN-LETTERS!");
    ap_type_table[95].code = 4;
    const struct {
        const char *name;  // null: not set
        int result;
        unsigned int code;
    } cases[] = {{"KV-AP6", 0, 1},  {"KV-AP62", 0, 2}, {"KV-AP620", 0, 2},         {"KV-AP620-", 0, 3},
                 {"KV-AP7", 0, 77}, {"kv", 0, 77},     {"SIXTEEN-LETTERS!", 0, 4}, {"SIXTEEN-LETTERS!!", 0, 77},
                 {"", -1, 77},      {nullptr, -1, 77}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name == nullptr ? "not set" : c.name);
        test::store.values.clear();
        if (c.name != nullptr) test::store.values["ap.apname"] = c.name;
        unsigned int code = 77;
        const std::string printed = test::printed_by([&] { EXPECT_EQ(catch_ap_type(&code), c.result); });
        EXPECT_EQ(code, c.code);
        EXPECT_THAT(printed, MatchesRegex(c.result == 0 ? ""
                                                        : "Debug->src/ap_portal/public_pt_sock.c: "
                                                          "catch_ap_type\\([0-9]+\\)--ap name is NULL.\n"));
    }
    std::memset(ap_type_table, 0, sizeof ap_type_table);
}

TEST(Codes, VendorAndSequenceNumbers) {
    const struct {
        const char *text;
        int result;
        unsigned int code;
    } cases[] = {{"0x1799", 0, 0x1799}, {"0X1f", 0, 0x1F}, {"6041", 0, 6041},
                 {"010", 0, 10},        {"x", 0, 0},       {"", -1, 77}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        test::store.values["vendor.type_pack"] = c.text;
        unsigned int code = 77;
        EXPECT_EQ(get_vendor_type(&code), c.result);
        EXPECT_EQ(code, c.code);
    }
    int last = get_seq_num();
    for (int i = 0; i < 600; ++i) {
        const int next = get_seq_num();
        EXPECT_EQ(next, last == 255 ? 0 : last + 1);
        last = next;
    }
}

TEST(WebTraffic, RulesAreRebuiltInOrder) {
    const std::string nat = "iptables -t nat ", chain = "ap_portal_dnat_pre";
    const std::vector<std::string> rebuilt = {nat + "-F " + chain, nat + "-D PREROUTING -j " + chain,
                                              nat + "-X " + chain, nat + "-N " + chain,
                                              nat + "-I PREROUTING -j " + chain};
    const auto rule = [&](int port, const std::string &destination, const std::string &target) {
        return nat + "-A " + chain + " -p tcp --dport " + std::to_string(port) + " -d " + destination +
               " -j DNAT --to " + target;
    };
    const auto limit = [](int value) {
        return "echo " + std::to_string(value) + " > /proc/sys/net/netfilter/nf_conntrack_expect_max";
    };
    const std::vector<std::string> routes = {"route del default", "route add default dev br0"};
    const std::string target = "192.168.0.9", quoted = "'9;reboot'";
    const struct {
        const char *what, *managed, *target;
        int keep_route;
        bool has_routes, has_https;
        std::string word;
    } cases[] = {
        {"unmanaged", "0", "192.168.0.9", 0, false, false, target},
        {"managed", "1", "192.168.0.9", 0, true, true, target},
        {"managed, route kept", "1", "192.168.0.9", 1, false, true, target},
        {"a hostile target", "0", "9;reboot", 0, false, false, quoted},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::store.values["srv.hx4100_manage"] = c.managed;
        test::commands.clear();
        EXPECT_EQ(tpi_ap_portal_nat_rule(c.target, c.keep_route), 0);
        std::vector<std::string> expected = rebuilt;
        if (c.has_routes) expected.insert(expected.end(), routes.begin(), routes.end());
        expected.push_back(rule(80, "10.1.0.6", c.word));
        expected.push_back(rule(80, "10.2.0.4", c.word));
        if (c.has_https) expected.push_back(rule(443, "10.1.0.6", c.word));
        expected.push_back(limit(2048));
        EXPECT_EQ(test::commands, expected);
    }
    test::commands.clear();
    EXPECT_EQ(tpi_ap_portal_nat_rule("-j", 0) + tpi_ap_portal_nat_rule(nullptr, 0), 0);
    EXPECT_TRUE(test::commands.empty());

    const unsigned char address[4] = {10, 0, 255, 1};
    EXPECT_EQ(tpi_ap_portal_ac_nat_rule(address), 0);
    std::vector<std::string> expected = rebuilt;
    expected.push_back(rule(80, "10.2.0.4", "10.0.255.1"));
    expected.push_back(limit(32768));
    EXPECT_EQ(test::commands, expected);

    test::commands.clear();
    tpi_move_ad_image_and_html_to_webroot();
    EXPECT_EQ(test::commands, (std::vector<std::string>{"cp -fr /mnt/s_brcmnand/img* /webroot/images/push_images/",
                                                        "cp -fr /mnt/s_brcmnand/*.html /webroot/"}));
}

}  // namespace
