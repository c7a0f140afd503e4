// product_profile_test.cpp: a unit finds its profile and writes its defaults, in full the first time and little later
// on. With level 4 of "cfm" the gate prints each write, so that one text shows writes and messages in their order.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <regex>

#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

static bool copies_fail = false;

extern "C" cJSON *cJSON_Duplicate(const cJSON *item, cJSON_bool recurse) {
    static const auto real = reinterpret_cast<decltype(&cJSON_Duplicate)>(dlsym(RTLD_NEXT, "cJSON_Duplicate"));
    return copies_fail ? nullptr : real(item, recurse);
}

namespace {

const std::string x127(127, 'x');
const std::string led_keys = "led.sys.index=0 led.sys.gpio_id=8 led.signal.index=1 led.signal.gpio_id=5 ";
const std::string profiles = R"({"profile": [
    {"model": "", "lan.ip": "10.0.0.1"},
    {"model": "AP-1", "vendor": "Kivra", "lan.ip": "192.168.1.1", "web.port": 80, "": "nameless", "list": [1], "flag": true,
     "wlan": {"security.castfilter.en": "1", "security.multicastfilter.en": "", "nested": {"deep": "1"}, "wl.count": 2},
     "services": {"srv.telnet": "0", "srv.level": 3, "srv.list": []},
     "steerd": {"steerd.reject_cnt": "4", "steerd.other": "5"},
     "gpio": {"button.index": 2, "button.gpio_id": "37", "led.sys.index": 0, "led.sys.gpio_id": "8", "led.signal.index": 1,
              "led.signal.gpio_id": "5"}},
    {"model": "AP-1", "lan.ip": "10.9.9.9"},
    {"model": "AP-2", "vendor": "ZE-NOR", "gpio": {"led.sys.index": 0, "led.sys.gpio_id": "8", "led.signal.index": 1,
     "led.signal.gpio_id": "5", "button.gpio_id": "37"}},
    {"model": "AP-3", "vendor": "Somebody"},
    {"model": "AP-4", "wlan": {"security.castfilter.en": ")" +
                             x127 + "\"}}]}";

class Profile : public testing::Test {
protected:
    void SetUp() override {
        test::write_text("/etc/profile.json", profiles);
        set_dbg_level("cfm", 4);
        begin({});
    }
    static void begin(const std::map<std::string, std::string> &stored, unsigned int prod_level = 0) {
        test::store = test::factory = {stored};
        test::commands.clear();
        set_dbg_level("prod", prod_level);
        prod_cfm_init();
    }
    // Writes as "KEY=VALUE ", printed lines as "[COLOUR FUNCTION] text", then what else came of it, and the result.
    static std::string trace(const std::function<int()> &action) {
        static const std::regex write("\033\\[1;40;34m#### \\[SET\\] (.*): .* -> (.*)\n\033\\[0m");
        static const std::regex line(
            "\033\\[1;40;(\\d+)m(?:\\[PROD\\]|[\\d:]+ \\[ *prod\\..\\]) +\\d+ (\\S+) *: (.*\n)\033\\[0m");
        int result = 0;
        std::string text = std::regex_replace(test::printed_by([&] { result = action(); }), write, "$1=$2 ");
        text = std::regex_replace(text, line, "[$1 $2] $3");
        if (prod_cfm_is_change() != 0) text += "counted, ";
        if (test::store.commits != 0) text += "committed, ";
        for (const std::string &command : test::commands) text += command + ", ";
        return text + std::to_string(result);
    }
};

TEST_F(Profile, IsWrittenInFullTheFirstTimeAndInAFewKeysLaterOn) {
    const struct {
        std::map<std::string, std::string> stored;  // in either store
        int commit;
        std::string expected;
    } cases[] = {
        // every kind of member, in the file's order
        {{{"sys.profile.id", "AP-1"}},
         1,
         "[37 match_profile] matched product: AP-1!\n"
         "sys.targets=AP-1 snmp.devicename=AP-1 ap.apname=AP-1 Brand.config=Kivra vendor.type_pack=0x1799 "
         "web.login.domain=wifi.kivra.lan lan.ip=192.168.1.1 web.port=80 "
         "[37 set_product_default_] set subgroup[wlan] default config\nsecurity.castfilter.en=1 wl.count=2 "
         "[37 set_product_default_] set subgroup[steerd] default config\nsteerd.reject_cnt=4 steerd.other=5 "
         "[37 set_product_default_] set subgroup[gpio] default config\nbutton.index=2 button.gpio_id=37 "
         "led.sys.index=0 led.sys.gpio_id=8 led.signal.index=1 led.signal.gpio_id=5 "
         "[37 set_product_default_] set product defaut config finished!\npro_dft_cfg.init=2 srv.telnet=0 srv.level=3 "
         "[37 set_product_service_] set service status finished!\ncounted, committed, /etc/init_gpio.sh, 0"},
        // texts alone do not count; an unknown brand has no domain
        {{{"sys.profile.id", "AP-3"}, {"pro_dft_cfg.init", "1"}},
         0,
         "[37 match_profile] matched product: AP-3!\n"
         "sys.targets=AP-3 snmp.devicename=AP-3 ap.apname=AP-3 Brand.config=Somebody "
         "[37 set_product_default_] set product defaut config finished!\npro_dft_cfg.init=2 /etc/init_gpio.sh, 0"},
        // the factory store knows the unit
        {{{"KIVRA.sys.profile.id", "AP-2"}},
         0,
         "sys.profile.id=AP-2 [37 match_profile] matched product: AP-2!\n"
         "sys.targets=AP-2 snmp.devicename=AP-2 ap.apname=AP-2 Brand.config=ZE-NOR vendor.type_pack=0x1788 "
         "web.login.domain=wifi.ze-nor.lan [37 set_product_default_] set subgroup[gpio] default config\n" +
             led_keys +
             "button.gpio_id=37 [37 set_product_default_] set product defaut config finished!\n"
             "pro_dft_cfg.init=2 counted, /etc/init_gpio.sh, 0"},
        // nobody knows it
        {{}, 1, "[33 profile_init_product] 'sys.profile.id' is null, skip config init!\n0"},
        // a later start: some keys, and the services
        {{{"sys.profile.id", "AP-1"},
          {"pro_dft_cfg.init", "2"},
          {"security.multicastfilter.en", "9"},
          {"srv.vantri_auth", "1"}},
         1,
         "[37 match_profile] matched product: AP-1!\nsecurity.castfilter.en=1 steerd.reject_cnt=4 "
         "[37 update_product_defau] update product config finished!\nsrv.telnet=0 srv.level=3 "
         "[37 set_product_service_] set service status finished!\n"
         "counted, committed, /etc/init_gpio.sh, insmod /lib/modules/auth.ko, 0"},
        // the stored value is compared as far as 127 characters
        {{{"sys.profile.id", "AP-4"}, {"pro_dft_cfg.init", "3"}, {"security.castfilter.en", x127 + "cut"}},
         0,
         "[37 match_profile] matched product: AP-4!\n[37 update_product_defau] update product config finished!\n"
         "/etc/init_gpio.sh, 0"},
    };
    for (const auto &c : cases) {
        begin(c.stored);
        EXPECT_EQ(trace([&] { return profile_init_product_config(c.commit); }), c.expected);
    }
}

TEST_F(Profile, AFileThatHoldsNoSuchProfileChangesNothing) {
    const std::string no_match = "[31 match_profile] failed to match profile: profile_id=AP-1\n";
    const std::pair<const char *, std::string> cases[] = {
        {"", ""},
        {"{\"profile\": [", ""},
        {"{\"profile\": 7}", no_match},
        {R"({"profile": [1, null, [], "AP-1", {"model": 5}]})", no_match},
        {R"({"profile": [{"model": "ap-1"}]})", no_match},
    };
    begin({{"sys.profile.id", "AP-1"}});
    for (const auto &[text, message] : cases) {
        test::write_text("/etc/profile.json", text);
        EXPECT_EQ(trace([] { return profile_init_product_config(1); }), message + "-1");
        EXPECT_EQ(trace([] { return create_product_profile("AP-1") == nullptr ? 0 : 1; }), message + "0");
    }
    unlink("/etc/profile.json");
    const std::string message = "] get file content error: /etc/profile.json\n";
    EXPECT_EQ(trace([] { return profile_init_product_config(1); }), "[31 profile_init_product_conf" + message + "-1");
    EXPECT_EQ(trace([] { return create_product_profile("AP-1") == nullptr ? 0 : 1; }),
              "[31 create_product_profile" + message + "0");
}

TEST_F(Profile, SingleValuesAreCopiedWhenTheyFit) {
    const auto fails = [](const char *profile_id) { return create_product_profile(profile_id) == nullptr ? -1 : 0; };
    EXPECT_EQ(trace([&] { return fails(nullptr); }), "[31 create_product_profile] input para error\n-1");
    copies_fail = true;
    EXPECT_EQ(trace([&] { return fails("AP-2"); }),
              "[37 match_profile] matched product: AP-2!\n[31 create_product_profile] failed to copy profile\n-1");
    copies_fail = false;
    cJSON *product = create_product_profile("AP-1");
    ASSERT_NE(product, nullptr);

    char buffer[20];
    const auto copy = [&](const cJSON *from, const char *key, int size) {
        std::strcpy(buffer, "before");
        return trace([&] { return get_config_from_profile(from, key, buffer, size); }) + " " + buffer;
    };
    const std::string me = "[31 get_config_from_profile] ", bad_argument = me + "input para error\n-1 before";
    EXPECT_EQ(copy(product, "lan.ip", 12), "0 192.168.1.1");
    EXPECT_EQ(copy(product, "lan.ip", 11), me + "buf size(11) <= value size(11)\n-1 before");
    for (const char *key : {"lan.mask", "web.port"})  // missing, and a number
        EXPECT_EQ(copy(product, key, 12), me + "cannot find config: " + key + "\n-1 before");
    EXPECT_EQ(copy(product, "lan.ip", 0), bad_argument);
    for (const char *key : {"", static_cast<const char *>(nullptr)}) EXPECT_EQ(copy(product, key, 12), bad_argument);
    EXPECT_EQ(copy(nullptr, "lan.ip", 12), bad_argument);
    EXPECT_EQ(get_config_from_profile(product, "lan.ip", nullptr, 12), -1);
    delete_product_profile(product);
    delete_product_profile(nullptr);
}

TEST_F(Profile, GpioKeysAreWrittenUpToTheFirstMissingOne) {
    const struct {
        const char *profile_id;
        unsigned int level;
        std::string expected;
    } cases[] = {
        {"AP-1", 0, led_keys + "button.index=2 button.gpio_id=37 counted, committed, /etc/init_gpio.sh, 0"},
        {"AP-2", 0,
         led_keys + "[31 set_gpio_default_config] cannot find gpio config: button.index\n"
                    "[31 profile_start_gpio] set gpio defaut config error\ncounted, -1"},
        {"AP-3", 3, "/etc/init_gpio.sh, 0"},
        {"AP-3", 4, "[37 profile_start_gpio] cannot find config: gpio\n/etc/init_gpio.sh, 0"},
        {nullptr, 0, "[31 profile_start_gpio] input para error\n-1"},
    };
    for (const auto &c : cases) {
        begin({}, c.level);
        cJSON *product = c.profile_id != nullptr ? create_product_profile(c.profile_id) : nullptr;
        EXPECT_EQ(trace([&] { return profile_start_gpio(product); }), c.expected);
        delete_product_profile(product);
    }
}

}  // namespace
