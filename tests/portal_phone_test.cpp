// Phone codes, the text message and its request, and the black and white lists.

#include <deque>
#include <map>

#include "applatform/system.h"
#include "platform/host/portal_netlink.h"
#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_store.h"

namespace {

std::deque<int> dice;                            // what rand gives next, then zeros
std::map<std::string, std::string> conversions;  // what is not there cannot be converted
std::string converted;                           // the texts that were to be, in their order

}  // namespace

extern "C" {
int rand() {
    if (dice.empty()) return 0;
    const int next = dice.front();
    dice.pop_front();
    return next;
}
int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size) {
    EXPECT_STREQ(target, "gb2312");
    converted += text;
    const auto found = conversions.find(text);
    if (found == conversions.end()) return -1;
    ap::copy_text(out, size, found->second);
    return 0;
}
}

namespace {

using test::Bytes;

// The text behind every code, encoded.
const std::string tail = "%EF%BC%8C%E4%BB%85%E9%99%90%E6%9C%AC%E7%BB%88%E7%AB%AF%E4%BD%BF%E7%94%A8%EF%BC%8C%E5%9C%A8"
                         "120%E7%A7%92%E5%86%85%E6%9C%89%E6%95%88%21";

// Signature and body are "S" and "B".
void inform(uint32_t build_request, const std::string &identity = "me", const std::string &password = "pw") {
    portal_public_info info = {build_request, {}, {}, "S", "B"};
    test::fill_field(info.identity, identity);
    test::fill_field(info.password, password);
    EXPECT_EQ(tpi_ap_portal_init_public_info(&info), 0);
}

// The gateway request for a new code; what was printed must go with it.
std::string ask(uint64_t phone) {
    portal_phone_request request = {};
    request.phone = phone;
    const std::string printed = test::printed_by([&] { EXPECT_EQ(tpi_ap_portal_add_phone_list(&request), 0); });
    std::string url = request.url;
    EXPECT_THAT(printed,
                url.empty() ? "" : test::line("Debug", "ap_portal", "tpi_ap_portal_add_phone_list", "======.*"));
    EXPECT_THAT(printed, testing::EndsWith(url.empty() ? "" : "--======url = " + url + "\n"));
    return url;
}

// The status; the result must go with it.
uint32_t prove(uint64_t phone, uint32_t code) {
    portal_phone_request request = {phone, code, 0, "02:AB:cd:00:00:07", "guest", {}, {}};
    test::printed_by([&] {
        const int result = tpi_ap_portal_check_phone(&request);
        EXPECT_EQ(result, request.status == 17 ? 0 : 255);
    });
    return request.status;
}

class Phones : public testing::Test {
protected:
    void SetUp() override {
        dice.clear();
        conversions = {{"S", "S"}, {"B", "\xE4 b"}};
        inform(0);
    }
};

TEST_F(Phones, ACodeHasFourDigitsAndBeginsWithNoZero) {
    const std::pair<std::deque<int>, uint32_t> cases[] = {
        {{10, 20, 30, 40}, 1000}, {{9, 9, 9, 9}, 9999}, {{0, 1, 2, 3}, 1123}, {{41, 32, 23, 14}, 1234}};
    for (const auto &[thrown, code] : cases) {
        SCOPED_TRACE(code);
        dice = thrown;
        EXPECT_EQ(ask(13800138000), "");
        EXPECT_EQ(prove(13800138000, code), 17U);
        EXPECT_EQ(prove(13800138000, code + 1), 16U);
        EXPECT_EQ(prove(13800138001, code), 16U);
        EXPECT_EQ(prove(13800138000, code), 17U);  // it stays until it ages
        ask(13800138002);
        EXPECT_EQ(prove(13800138000, code), 16U);  // or until the next phone asks
    }
}

TEST_F(Phones, ACodeAgesByTheClockEitherWay) {
    for (const int64_t step_s : {0, 120, 121, -120, -121}) {
        SCOPED_TRACE(step_s);
        {
            const test::FakeClock clock;
            dice = {3, 3, 3, 3};
            ask(333);
        }
        const test::FakeClock clock(test::FakeClock::usual_start_s + step_s);
        EXPECT_EQ(tpi_phone_username_timeout(), 0);
        EXPECT_EQ(prove(333, 3333), std::abs(step_s) == 121 ? 16U : 17U);
        EXPECT_EQ(tpi_phone_username_timeout(), 0);  // also when nothing is left
    }
}

TEST_F(Phones, AProvedClientIsAnnouncedToTheModule) {
    const ap::UniqueFd module = ap::host::open_portal_module();
    if (!module) GTEST_SKIP() << "no user-space netlink sockets here";
    dice = {4, 4, 4, 4};
    ask(0x0102030405060708);
    EXPECT_EQ(prove(0x0102030405060708, 4445), 16U);
    EXPECT_TRUE(test::received_by(module.get()).empty());
    EXPECT_EQ(prove(0x0102030405060708, 4444), 17U);
    const Bytes message = test::received_by(module.get());
    ASSERT_EQ(message.size(), 30720U);
    EXPECT_EQ(ap::le16(message.data() + 4), 21);
    Bytes client(112);
    test::put(client, 0, {2, 0xAB, 0xCD, 0, 0, 7});
    test::put(client, 8, {'g', 'u', 'e', 's', 't'});
    test::put(client, 40, {8, 7, 6, 5, 4, 3, 2, 1, 2, 0, 0, 0, 16});
    EXPECT_EQ(Bytes(message.begin() + 16, message.begin() + 16 + 112), client);
}

TEST_F(Phones, TheRequestNamesTheGatewayAndCarriesTheMessage) {
    const std::string full(64, 'i');
    const struct {
        std::string host, account, url;
    } cases[] = {
        {"", "me", "http://sms-gateway:8009/sys_port/gateway/?id=me&pwd=me"},
        {"10.0.0.9", "me", "http://10.0.0.9:8009/sys_port/gateway/?id=me&pwd=me"},
        {"", full, "http://sms-gateway:8009/sys_port/gateway/?id=" + full + "&pwd=" + full},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.url);
        test::store.values = {{"portal.sms_gateway", c.host}};
        inform(1, c.account, c.account);
        EXPECT_EQ(ask(UINT64_MAX),
                  c.url + "&to=18446744073709551615&content=%E3%80%90S%E3%80%91%E4+b1000" + tail + "&time=");
    }
    for (const uint32_t not_one : {0U, 2U}) {  // the message is made all the same
        inform(not_one);
        converted.clear();
        EXPECT_EQ(ask(1), "");
        EXPECT_EQ(converted, "SB");
    }
}

TEST_F(Phones, AMessageThatIsTooLongWhenEncodedIsEmpty) {
    inform(1);
    const auto content = [] {
        const std::string url = ask(1);
        const size_t start = url.find("&content=") + 9;
        return url.substr(start, url.rfind("&time=") - start);
    };
    // Brackets, code and tail take 154 characters, 255 bytes that are escaped 765: 104 of 1023 are left.
    conversions["S"] = std::string(255, '\xE4');
    const std::string body(34, '\xE4');
    for (const std::string rest : {"a ", "a a", "\xE4"}) {
        SCOPED_TRACE(rest);
        conversions["B"] = body + rest;
        EXPECT_EQ(content().size(), rest == "a " ? 1023U : 0U);
    }
    conversions.clear();  // what cannot be converted is left out
    EXPECT_EQ(content(), "%E3%80%90%E3%80%911000" + tail);
}

TEST(Lists, AnswerWithinTheirCount) {
    const std::string mac = "AA:BB:CC:DD:EE:FF";
    portal_white_list white = {};
    portal_black_list black = {};
    test::fill_field(white.macs[19], mac);
    black.phones[149] = 13800138000;
    portal_phone_request request = {};
    request.phone = 13800138000;
    for (const uint32_t count : {0U, 19U, 20U, 149U, 150U, UINT32_MAX}) {
        SCOPED_TRACE(count);
        white.count = black.count = count;
        EXPECT_EQ(tpi_init_white_mac_list(&white) + tpi_ap_portal_init_black_list(&black), 0);
        EXPECT_EQ(tpi_check_white_mac(mac.c_str()), count >= 20 ? 9 : 0);
        EXPECT_EQ(tpi_check_black_list(&request), count >= 150 ? 18 : 19);
    }
    for (const char *other : {"aa:BB:CC:DD:EE:FF", "AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FE"})
        EXPECT_EQ(tpi_check_white_mac(other), 0);
    request.phone = 13800138001;
    EXPECT_EQ(tpi_check_black_list(&request), 19);
}

}  // namespace
