// foundation_device_test.cpp: versions from the device's files, kernel rules with their JSON trace, and character sets,
// over scripted platform calls.

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tests/support/capture.h"

namespace {

std::string hardware_version, last_rule, last_conversion;
int code_format = 0, conversion_result = 0;

std::string print(const cJSON *json) {
    const ap::HeapPtr<char> text(cJSON_PrintUnformatted(json));
    return text.get();
}

}  // namespace

extern "C" int GetValue(const char *key, char *value) {
    if (std::strcmp(key, "sys.hwver") != 0) return 0;
    return std::strcpy(value, hardware_version.c_str()) != nullptr;
}
extern "C" int km_dns_redirect_add_rule(cJSON *rule) { return last_rule = "add " + print(rule), 3; }
extern "C" int km_dns_redirect_del_rule(cJSON *rule) { return last_rule = "del " + print(rule), 4; }
extern "C" int km_auto_wizards_gw_port(int port) { return last_rule = "port " + std::to_string(port), 5; }
extern "C" int km_auto_wizards_ip(const char *ip, const char *mask) {
    return last_rule = std::string(ip) + "/" + ap::printable(mask), 6;
}
extern "C" int km_auto_wizards_manage_ip(const char *ip, const char *mask) {
    return last_rule = std::string("manage ") + ip + "/" + mask, 7;
}
extern "C" int km_auto_wizards_enable(void) { return 8; }
extern "C" int km_auto_wizards_disable(void) { return 9; }
extern "C" int system_get_code_format(const char *) { return code_format; }
extern "C" int system_convert_code_format(const char *text, const char *target, char *out, unsigned int size) {
    last_conversion = std::string(target) + " " + std::to_string(size);
    std::snprintf(out, size, "<%s>", text);
    return conversion_result;
}

TEST(Versions, OfTheFirmwareComeFromOneFile) {
    const struct {
        const char *content;
        int size;
        const char *version;
        int revision;
    } cases[] = {{"V1.2(345)\n\n", 64, "V1.2(345)", 345},
                 {"V1.2(345)", 5, "V1.2", 345},
                 {"V(a)(7)", 64, "V(a)(7)", 0},
                 {"(345)", 64, "(345)", 0},
                 {"V1.2", 64, "V1.2", 0},
                 {"a\nb (-2)\n", 64, "a\nb (-2)", -2},
                 {"", 64, "", 0},
                 {"abc\n", 1, "", 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.content);
        test::write_text("/etc/prodversion.cfg", c.content);
        char version[64] = "old";
        EXPECT_EQ(get_prod_version(version, c.size), 1);
        EXPECT_STREQ(version, c.version);
        EXPECT_EQ(get_svn_version(), c.revision);
    }
    char version[64] = "old";
    EXPECT_EQ(get_prod_version(version, 0), 0);
    unlink("/etc/prodversion.cfg");
    EXPECT_EQ(get_prod_version(version, sizeof version) + get_svn_version(), 0);
    EXPECT_STREQ(version, "old");
}

TEST(Versions, OfTheHardwareAreFifteenCharacters) {
    const struct {
        const char *value;
        int size;
        const char *version;
    } cases[] = {{"H1", 32, "H1"},
                 {"0123456789abcdef", 32, "0123456789abcde"},
                 {"H1.0", 3, "H1"},
                 {"", 32, "old"},
                 {"H1", 0, "old"}};
    for (const auto &c : cases) {
        hardware_version = c.value;
        char version[32] = "old";
        EXPECT_EQ(get_hard_version(version, c.size), 0);
        EXPECT_STREQ(version, c.version);
    }
}

TEST(Versions, OfThePolicyAreASecondField) {
    const std::string long_field(300, 'x');
    const struct {
        std::string content, version;
    } cases[] = {{"a;b\nver; 1.7 ;z\nver;2\n", "1.7"},
                 {"no field with ver\n", "old"},
                 {";ver;1\n", "old"},
                 {"nothing\n", "old"},
                 {"ver;" + long_field + ";", std::string(255 - 4, 'x')}};
    for (const auto &c : cases) {
        test::write_text("/etc/policy_bak.cfg", c.content);
        char version[256] = "old";
        EXPECT_EQ(get_policy_version(version, 1), 0);
        EXPECT_EQ(version, c.version);
    }
    EXPECT_EQ(get_policy_version(nullptr, 256), 1);
    unlink("/etc/policy_bak.cfg");
    char version[256] = "old";
    EXPECT_EQ(get_policy_version(version, 256), 1);
}

TEST(KernelRules, PassTheirArgumentsOn) {
    const struct {
        int result;
        const char *rule, *logged;
        std::function<int()> call;
    } cases[] = {
        {3, R"(add {"Domain":"a.lan","Ip":"10.0.0.1"})", nullptr,
         [] { return add_dns_redirect_rule("a.lan", "10.0.0.1"); }},
        {4, R"(del {"Domain":"a.lan"})", nullptr, [] { return del_dns_redirect_rule("a.lan"); }},
        {5, "port -1", nullptr, [] { return add_auto_wizards_gw_port(-1); }},
        {6, "10.0.0.1/(null)", nullptr, [] { return add_auto_wizards_ip("10.0.0.1", nullptr); }},
        {7, "manage 10.0.0.1/m", nullptr, [] { return add_auto_wizards_manage_ip("10.0.0.1", "m"); }},
        {8, "", nullptr, auto_wizards_enable},
        {9, "", nullptr, auto_wizards_disable},
        {-1, "", "Failed to add dns_redirect rule\n", [] { return add_dns_redirect_rule("a.lan", nullptr); }},
        {-1, "", "Failed to add dns_redirect rule\n", [] { return add_dns_redirect_rule(nullptr, "10.0.0.1"); }},
        {-1, "", "Failed to del rule by domain\n", [] { return del_dns_redirect_rule(nullptr); }},
        {-1, "", "Failed to add add_auto_wizards_ip\n", [] { return add_auto_wizards_ip(nullptr, "m"); }},
        {-1, "", "Failed to add add_auto_wizards_ip\n", [] { return add_auto_wizards_manage_ip(nullptr, "m"); }},
    };
    for (const auto &c : cases) {
        last_rule.clear();
        const std::string printed = test::printed_by([&] { EXPECT_EQ(c.call(), c.result); });
        EXPECT_EQ(last_rule, c.rule);
        EXPECT_EQ(printed.empty(), c.logged == nullptr);
        if (c.logged != nullptr) {
            EXPECT_NE(printed.find(std::string(": ") + c.logged), std::string::npos) << printed;
        }
    }
}

TEST(KernelRules, ShowTheirJsonFromLevelThreeOn) {
    set_dbg_level("kjson", 2);
    EXPECT_EQ(test::printed_by([] { del_dns_redirect_rule("a.lan"); }), "");
    set_dbg_level("kjson", 3);
    const std::string printed = test::printed_by([] { del_dns_redirect_rule("a.lan"); });
    EXPECT_EQ(printed.find("\033[0m["), 0U);
    EXPECT_NE(printed.find("] \033[0m\033[1;40;35m00"), std::string::npos) << printed;
    EXPECT_NE(printed.find(" del_dns_redirect_rul: >>>> {\n\t\"Domain\":\t\"a.lan\"\n} <<<<\n\033[0m"),
              std::string::npos)
        << printed;
}

TEST(CharacterSets, AreConvertedByThePlatform) {
    const struct {
        const char *charset, *conversion;
    } cases[] = {{"gb2312", "gb2312 10"}, {"utf8", "utf8 10"}, {"utf-8", "utf8 10"}, {"latin1", ""}, {nullptr, ""}};
    for (const auto &c : cases) {
        last_conversion.clear();
        const std::string printed = test::printed_by([&] {
            const ap::HeapPtr<char> text(encode_chinese(c.charset, "abc"));
            EXPECT_EQ(text ? text.get() : std::string(), *c.conversion != '\0' ? "<abc>" : "");
        });
        EXPECT_EQ(last_conversion, c.conversion);
        EXPECT_EQ(printed.find("Failed to encode chinese string.\n") != std::string::npos, *c.conversion == '\0');
    }
    EXPECT_EQ(encode_str_to_utf8(nullptr), nullptr);
    for (const int format : {0, 1, 2}) {
        code_format = format;
        const ap::HeapPtr<char> text(encode_str_to_utf8("abc"));
        EXPECT_STREQ(text.get(), format == 2 ? "abc" : "<abc>");
    }
    conversion_result = -1;
    EXPECT_EQ(encode_chinese("utf8", "abc"), nullptr);
    EXPECT_EQ(get_gb2312("abc"), 0);
}
