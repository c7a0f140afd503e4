// Phone codes, the text message and its request, and the black and white lists.

#include <deque>
#include <map>

#include "applatform/system.h"
#include "tests/portal_world.h"
#include "tests/support/capture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scripted_store.h"

namespace {

std::deque<int> dice;                            // what rand gives next, then zeros
std::map<std::string, std::string> conversions;  // what is not there cannot be converted

}  // namespace

extern "C" {
int rand() {
    if (dice.empty()) return 0;
    const int next = dice.front();
    dice.pop_front();
    return next;
}
int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size) {
    const auto found = conversions.find(text);
    if (found == conversions.end() || std::string(target) != "gb2312") return -1;
    ap::copy_text(out, size, found->second);
    return 0;
}
}

namespace {

using test::Bytes;

// The text behind every code, encoded.
const std::string tail = "%EF%BC%8C%E4%BB%85%E9%99%90%E6%9C%AC%E7%BB%88%E7%AB%AF%E4%BD%BF%E7%94%A8%EF%BC%8C%E5%9C%A8"
                         "120%E7%A7%92%E5%86%85%E6%9C%89%E6%95%88%21";

portal_public_info info_with(const std::string &identity, const std::string &password, uint32_t build_request = 1) {
    portal_public_info info = {};
    info.build_request = build_request;
    test::fill_field(info.identity, identity);
    test::fill_field(info.password, password);
    test::fill_field(info.signature, "S");
    test::fill_field(info.body, "B");
    return info;
}

// The gateway request for a new code.
std::string ask(uint64_t phone) {
    portal_phone_request request = {};
    request.phone = phone;
    EXPECT_EQ(tpi_ap_portal_add_phone_list(&request), 0);
    return request.url;
}

// The status; the result must go with it.
uint32_t prove(uint64_t phone, uint32_t code) {
    portal_phone_request request = {};
    request.phone = phone;
    request.code = code;
    test::fill_field(request.mac, "02:AB:cd:00:00:07");
    test::fill_field(request.user_name, "guest");
    int result = -1;
    test::printed_by([&] { result = tpi_ap_portal_check_phone(&request); });
    EXPECT_EQ(result, request.status == 17 ? 0 : 255);
    return request.status;
}

class Phones : public testing::Test {
protected:
    void SetUp() override {
        dice.clear();
        conversions = {{"S", "S"}, {"B", "\xE4 b"}};
        test::store.values.clear();
        const portal_public_info silent = {};
        tpi_ap_portal_init_public_info(&silent);
    }
};

TEST_F(Phones, ACodeHasFourDigitsAndBeginsWithNoZero) {
    const struct {
        std::deque<int> dice;
        uint32_t code;
    } cases[] = {{{0, 0, 0, 0}, 1000}, {{10, 20, 30, 40}, 1000}, {{9, 9, 9, 9}, 9999},
                 {{0, 1, 2, 3}, 1123}, {{41, 32, 23, 14}, 1234}, {{5, 0, 0, 7}, 5007}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code);
        dice = c.dice;
        EXPECT_EQ(ask(13800138000), "");
        EXPECT_EQ(prove(13800138000, c.code), 17U);
        EXPECT_EQ(prove(13800138000, c.code + 1), 16U);
        EXPECT_EQ(prove(13800138001, c.code), 16U);
    }
}

TEST_F(Phones, OnlyTheLatestPhoneCanBeProved) {
    dice = {1, 1, 1, 1, 2, 2, 2, 2};
    ask(111);
    ask(222);
    EXPECT_EQ(prove(111, 1111), 16U);
    EXPECT_EQ(prove(222, 2222), 17U);
    EXPECT_EQ(prove(222, 2222), 17U);  // it stays until it ages
}

TEST_F(Phones, ACodeAgesByTheClockEitherWay) {
    constexpr int64_t start_s = 1'700'000'000;
    for (const int64_t step_s : {0, 120, 121, -120, -121}) {
        SCOPED_TRACE(step_s);
        {
            const test::FakeClock clock(start_s);
            dice = {3, 3, 3, 3};
            ask(333);
        }
        const test::FakeClock clock(start_s + step_s);
        EXPECT_EQ(tpi_phone_username_timeout(), 0);
        EXPECT_EQ(prove(333, 3333), step_s == 121 || step_s == -121 ? 16U : 17U);
    }
    EXPECT_EQ(tpi_phone_username_timeout(), 0);
    EXPECT_EQ(tpi_phone_username_timeout(), 0);  // nothing is left
}

TEST_F(Phones, AProvedClientIsAnnouncedToTheModule) {
    const test::PortalModule module;
    if (!module.fd) GTEST_SKIP() << "no user-space netlink sockets here";
    dice = {4, 4, 4, 4};
    ask(0x0102030405060708);
    EXPECT_EQ(prove(0x0102030405060708, 4445), 16U);
    EXPECT_TRUE(test::received_by(module.fd.get()).empty());
    EXPECT_EQ(prove(0x0102030405060708, 4444), 17U);
    const Bytes message = test::received_by(module.fd.get());
    ASSERT_EQ(message.size(), 30720U);
    EXPECT_EQ(ap::le16(message.data() + 4), 21);
    EXPECT_EQ(test::hex({message.begin() + 16, message.begin() + 16 + 112}),
              "02abcd0000070000"                                                  // the MAC
              "6775657374000000000000000000000000000000000000000000000000000000"  // "guest"
              "0807060504030201"                                                  // the phone
              "0200000010000000" +                                                // 2 and 16
                  std::string(size_t{56} * 2, '0'));
}

TEST_F(Phones, TheRequestNamesTheGatewayAndCarriesTheMessage) {
    const std::string sixty_four(64, 'i');
    const struct {
        const char *what;
        std::string host, identity, password, url;
    } cases[] = {
        {"the usual host", "", "me", "pw", "http://sms-gateway:8009/sys_port/gateway/?id=me&pwd=pw"},
        {"another host", "10.0.0.9", "me", "pw", "http://10.0.0.9:8009/sys_port/gateway/?id=me&pwd=pw"},
        {"full fields", "", sixty_four, sixty_four,
         "http://sms-gateway:8009/sys_port/gateway/?id=" + sixty_four + "&pwd=" + sixty_four},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        if (!c.host.empty()) test::store.values["portal.sms_gateway"] = c.host;
        const portal_public_info info = info_with(c.identity, c.password);
        EXPECT_EQ(tpi_ap_portal_init_public_info(&info), 0);
        std::string url;
        const std::string printed = test::printed_by([&] { url = ask(18446744073709551615U); });
        EXPECT_EQ(url, c.url + "&to=18446744073709551615&content=%E3%80%90S%E3%80%91%E4+b1000" + tail + "&time=");
        EXPECT_THAT(printed, testing::StartsWith("Debug->src/ap_portal/ap_portal.c: tpi_ap_portal_add_phone_list("));
        EXPECT_THAT(printed, testing::EndsWith(")--======url = " + url + "\n"));
        test::store.values.clear();
    }
    for (const uint32_t not_one : {0U, 2U}) {
        const portal_public_info info = info_with("me", "pw", not_one);
        tpi_ap_portal_init_public_info(&info);
        EXPECT_EQ(ask(1), "");
    }
}

TEST_F(Phones, AMessageThatIsTooLongWhenEncodedIsEmpty) {
    const portal_public_info info = info_with("", "");
    tpi_ap_portal_init_public_info(&info);
    const auto content = [] {
        std::string url;
        test::printed_by([&] { url = ask(1); });
        const size_t start = url.find("&content=") + 9;
        return url.substr(start, url.rfind("&time=") - start);
    };
    // Brackets, code and tail take 154 characters, 255 bytes that are escaped 765: 104 of 1023 are left.
    conversions["S"] = std::string(255, '\xE4');
    const struct {
        std::string body;
        bool fits;
    } cases[] = {{std::string(34, '\xE4') + "aa", true},
                 {std::string(34, '\xE4') + "aaa", false},
                 {std::string(34, '\xE4') + "  ", true},
                 {std::string(35, '\xE4'), false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body.size());
        conversions["B"] = c.body;
        EXPECT_EQ(content().size(), c.fits ? 1023U : 0U);
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
    const struct {
        uint32_t white_count, black_count;
        int white_answer, black_answer;
    } cases[] = {{0, 0, 0, 19}, {19, 149, 0, 19}, {20, 150, 9, 18}, {21, 151, 9, 18}, {UINT32_MAX, UINT32_MAX, 9, 18}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.white_count);
        white.count = c.white_count;
        black.count = c.black_count;
        EXPECT_EQ(tpi_init_white_mac_list(&white), 0);
        EXPECT_EQ(tpi_ap_portal_init_black_list(&black), 0);
        EXPECT_EQ(tpi_check_white_mac(mac.c_str()), c.white_answer);
        EXPECT_EQ(tpi_check_black_list(&request), c.black_answer);
    }
    for (const char *other : {"aa:BB:CC:DD:EE:FF", "AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FE"})
        EXPECT_EQ(tpi_check_white_mac(other), 0);
    request.phone = 13800138001;
    EXPECT_EQ(tpi_check_black_list(&request), 19);
}

}  // namespace
