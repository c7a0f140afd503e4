// The portal's links: management server, controller, broadcast frames, codes and numbers, address translation.

#include <arpa/inet.h>
#include <dlfcn.h>
#include <functional>
#include <sys/select.h>
#include <sys/un.h>

#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

namespace {

std::function<void()> while_waiting;  // what happens while the library waits for an answer

}  // namespace

extern "C" int select(int count, fd_set *reads, fd_set *writes, fd_set *exceptions, timeval *limit) {
    static const auto next = reinterpret_cast<decltype(&select)>(dlsym(RTLD_NEXT, "select"));
    if (while_waiting) std::exchange(while_waiting, nullptr)();
    return next(count, reads, writes, exceptions, limit);
}

namespace {

using test::Bytes;
using test::joined;
using test::line;

Bytes message_of_type(uint32_t type) {
    Bytes message = test::counted(616);
    ap::store_le(message.data(), type);
    return message;
}

// The management server's socket, with an open connection for whoever does not wait for an answer.
class ManagementLink : public testing::Test {
protected:
    ManagementLink() {
        sockaddr_un address = {AF_UNIX, "/tmp/ap_portal.socket"};
        unlink(address.sun_path);
        EXPECT_EQ(bind(server.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        listen(server.get(), 1);
    }
    // What an exchange prints.
    std::string ask(int expected) {
        return test::printed_by([&] { EXPECT_EQ(tpi_connect_with_ap_mng_svr(message.data()), expected); });
    }

    const Bytes question = message_of_type(5);
    Bytes message = question;
    ap::UniqueFd server{socket(AF_UNIX, SOCK_STREAM, 0)};
};

TEST_F(ManagementLink, ExchangesOneMessage) {
    const int descriptors = test::open_descriptors();
    for (const size_t size : {size_t{0}, size_t{616}}) {  // nothing: the server hangs up
        SCOPED_TRACE(size);
        const Bytes answer(size, 0xEE);
        Bytes seen;
        while_waiting = [&] {
            const ap::UniqueFd peer(accept(server.get(), nullptr, nullptr));
            seen = test::received_by(peer.get());
            send(peer.get(), answer.data(), answer.size(), 0);
        };
        EXPECT_EQ(ask(size == 0 ? 255 : 0), size == 0 ? "recv mac list error or server close the socket\n" : "");
        EXPECT_TRUE(seen == question);
        EXPECT_TRUE(message == (size == 0 ? question : answer));
        EXPECT_EQ(test::open_descriptors(), descriptors);
    }
}

TEST_F(ManagementLink, FailsAfterTwoSecondsAndWithoutAServer) {
    const test::FakeClock clock;
    EXPECT_THAT(ask(255), line("Error", "ap_pt_sock", "tpi_connect_with_ap_mng_svr", "slelect is  timeout 0\n"));
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    server.reset();
    EXPECT_EQ(ask(255), "connect the server error\n");
    EXPECT_TRUE(message == question);
    EXPECT_EQ(tpi_connect_with_ap_mng_svr(nullptr), 255);
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

    // The packet that asks for `answer`.
    Bytes exchange(Bytes &message, const Bytes &answer, int expected) const {
        Bytes packet;
        while_waiting = [&] { packet = test::answer_next<sockaddr_in>(controller.get(), answer); };
        EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), expected);
        return packet;
    }

    ap::UniqueFd controller{socket(AF_INET, SOCK_DGRAM, 0)};
};

TEST_F(ControllerLink, SendsTheKnownTypesOnly) {
    for (uint32_t type = 0; type <= 24; ++type) {
        SCOPED_TRACE(type);
        Bytes message = message_of_type(type);
        if ((type >= 1 && type <= 6) || type == 21 || type == 22) {
            EXPECT_EQ(exchange(message, Bytes(16 + 4), 0).size(), 632U);
            continue;
        }
        EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 0);
        EXPECT_TRUE(test::received_by(controller.get()).empty());
    }
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", nullptr), 255);
}

TEST_F(ControllerLink, PacketAndAnswerByteForByte) {
    const Bytes question = message_of_type(22);
    const Bytes header = {2, 0, 0x42, 0, 0x58, 0x58, 0, 0, 0x0B, 0x0A, 0x99, 0x17, 24, 0, 0x68, 0x02};
    for (const size_t length : {15U, 16U + 3, 16U + 616}) {  // the first two hold no status
        SCOPED_TRACE(length);
        Bytes message = question;
        while (get_seq_num() != 0x41) {}
        EXPECT_TRUE(exchange(message, Bytes(length, 7), length == 632 ? 0x07070707 : 20) == joined(header, question));
        EXPECT_TRUE(message == (length == 632 ? Bytes(616, 7) : question));
    }
}

TEST_F(ControllerLink, WithoutACodeTheHeaderAloneIsSent) {
    const struct {
        const char *missing, *what;
        Bytes rest;  // of the header
    } cases[] = {{"vendor.type_pack", "vendor", {0x0B, 0x0A, 0, 0, 0, 0, 0, 0}}, {"ap.apname", "ap", Bytes(8)}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.missing);
        test::store.values.erase(c.missing);
        Bytes message = message_of_type(1), packet;
        const std::string printed = test::printed_by([&] { packet = exchange(message, Bytes(20), 0); });
        ASSERT_EQ(packet.size(), 16U);
        EXPECT_EQ(Bytes(packet.begin() + 8, packet.end()), c.rest);
        EXPECT_THAT(printed.substr(printed.find("Error")), line("Error", "public_pt_sock", "create_packet_to_ac",
                                                                "get " + std::string(c.what) + " type failure!"));
    }
}

TEST_F(ControllerLink, SilenceAndNoAddressGiveTwenty) {
    Bytes message = message_of_type(1);
    const int descriptors = test::open_descriptors();
    EXPECT_EQ(tpi_interaction_ac(nullptr, message.data()), 20);
    EXPECT_EQ(tpi_interaction_ac("no address", message.data()), 20);
    const test::FakeClock clock;
    EXPECT_EQ(tpi_interaction_ac("127.0.0.1", message.data()), 20);
    EXPECT_EQ(clock.elapsed_ms(), 2000);
    EXPECT_TRUE(message == message_of_type(1));
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST(Broadcast, FrameByteForByte) {
    const test::FrameLink link;
    struct Request {
        portal_broadcast head;
        uint8_t macs[2][6];
    } request = {{0x00010203, 0, link.socket(), 0xABCD, {10, 0, 0, 7}, {2, 3, 4, 5, 6, 7}},
                 {{0xA, 0xB, 0xC, 0xD, 0xE, 0xF}, {1, 2, 3, 4, 5, 6}}};
    for (const uint8_t count : Bytes{0, 2}) {
        SCOPED_TRACE(count);
        request.head.count = count;
        Bytes frame(100);
        test::put(frame, 0, {255, 255, 255, 255, 255, 255, 2, 3, 4, 5, 6, 7, 0x57, 0x57, 0, 3});
        test::put(frame, 20, {10, 0, 0, 7, 0, 0, 0xCD, 0xAB, 0x03, 0x02, static_cast<uint8_t>(6 * count + 4)});
        frame[96] = count;
        while (get_seq_num() != 0xFF) {}
        EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(&request.head), 0);
        EXPECT_EQ(link.next_frame(), joined(frame, Bytes(request.macs[0], request.macs[count])));
    }
}

TEST(Broadcast, FailsUnlessTheWholeFrameGoesOut) {
    const test::FrameLink link;
    Bytes room(24 + 10922 * 6);
    auto *request = reinterpret_cast<portal_broadcast *>(room.data());
    request->socket = link.socket();
    for (const uint32_t count : {10921U, 10922U, UINT32_MAX}) {  // the payload's length is a 16-bit word
        request->count = count;
        EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(request), count == 10921 ? 0 : 255);
    }
    *request = {0, 0, 9999, 0, {}, {}};
    EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(request), 255);
    EXPECT_EQ(tpi_portal_broadcast_pkt_to_ap(nullptr), 255);
}

TEST(Codes, TheFirstRowThatBeginsWithTheNameCounts) {
    std::memset(ap_type_table, 0, sizeof ap_type_table);
    ap_type_table[0] = {1, "KV-AP6"};
    ap_type_table[7] = {2, "KV-AP620"};
    ap_type_table[8] = {3, "KV-AP620-2"};
    ap_type_table[95].code = 4;
    test::fill_field(ap_type_table[95].name, "SIXTEEN-LETTERS!");
    const std::pair<const char *, unsigned int> cases[] = {
        {"KV-AP6", 1}, {"KV-AP62", 2},          {"KV-AP620-", 3},          {"KV-AP7", 77},
        {"kv", 77},    {"SIXTEEN-LETTERS!", 4}, {"SIXTEEN-LETTERS!!", 77}, {"", 77}};
    for (const auto &[name, expected] : cases) {
        SCOPED_TRACE(name);
        test::store.values = {{"ap.apname", name}};
        unsigned int code = 77;
        const bool is_set = *name != '\0';
        EXPECT_THAT(test::printed_by([&] { EXPECT_EQ(catch_ap_type(&code), is_set ? 0 : -1); }),
                    is_set ? "" : line("Debug", "public_pt_sock", "catch_ap_type", "ap name is NULL.\n"));
        EXPECT_EQ(code, expected);
    }
}

TEST(Codes, VendorAndSequenceNumbers) {
    const std::pair<const char *, unsigned int> cases[] = {
        {"0x1799", 0x1799}, {"0X1f", 0x1F}, {"6041", 6041}, {"010", 10}, {"", 77}};
    for (const auto &[text, expected] : cases) {
        SCOPED_TRACE(text);
        test::store.values = {{"vendor.type_pack", text}};
        unsigned int code = 77;
        EXPECT_EQ(get_vendor_type(&code), *text != '\0' ? 0 : -1);
        EXPECT_EQ(code, expected);
    }
    for (int i = 0, last = get_seq_num(); i < 300; ++i, last = last == 255 ? 0 : last + 1)
        EXPECT_EQ(get_seq_num(), last == 255 ? 0 : last + 1);
}

TEST(WebTraffic, RulesAreRebuiltInOrder) {
    using Commands = std::vector<std::string>;
    const auto rule = [](int port, const std::string &from, const std::string &to) {
        return "iptables -t nat -A ap_portal_dnat_pre -p tcp --dport " + std::to_string(port) + " -d " + from +
               " -j DNAT --to " + to;
    };
    const std::string del = "route del default", add = "route add default dev br0", to = "1.2.3.4";
    const std::string first = rule(80, "10.1.0.6", to), second = rule(80, "10.2.0.4", to),
                      https = rule(443, "10.1.0.6", to);
    const unsigned char controller[4] = {10, 0, 255, 1};
    const struct {
        const char *what, *managed, *target, *limit;
        int keep_route;  // -1: the controller's rules
        Commands rules;
    } cases[] = {
        {"unmanaged", "0", "1.2.3.4", "2048", 0, {first, second}},
        {"managed", "1", "1.2.3.4", "2048", 0, {del, add, first, second, https}},
        {"managed, route kept", "1", "1.2.3.4", "2048", 1, {first, second, https}},
        {"hostile", "0", "9;x", "2048", 0, {rule(80, "10.1.0.6", "'9;x'"), rule(80, "10.2.0.4", "'9;x'")}},
        {"the controller's", "1", "", "32768", -1, {rule(80, "10.2.0.4", "10.0.255.1")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::store.values["srv.hx4100_manage"] = c.managed;
        test::commands.clear();
        EXPECT_EQ(c.keep_route < 0 ? tpi_ap_portal_ac_nat_rule(controller)
                                   : tpi_ap_portal_nat_rule(c.target, c.keep_route),
                  0);
        Commands expected;
        for (const char *step : {"-F", "-D PREROUTING -j", "-X", "-N", "-I PREROUTING -j"})
            expected.push_back(std::string("iptables -t nat ") + step + " ap_portal_dnat_pre");
        expected.insert(expected.end(), c.rules.begin(), c.rules.end());
        expected.push_back(std::string("echo ") + c.limit + " > /proc/sys/net/netfilter/nf_conntrack_expect_max");
        EXPECT_EQ(test::commands, expected);
    }
    test::commands.clear();
    EXPECT_EQ(tpi_ap_portal_nat_rule("-j", 0) + tpi_ap_portal_nat_rule(nullptr, 0), 0);
    EXPECT_TRUE(test::commands.empty());
    tpi_move_ad_image_and_html_to_webroot();
    EXPECT_EQ(test::commands, (Commands{"cp -fr /mnt/s_brcmnand/img* /webroot/images/push_images/",
                                        "cp -fr /mnt/s_brcmnand/*.html /webroot/"}));
}

}  // namespace
