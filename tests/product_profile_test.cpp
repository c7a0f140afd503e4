// product_profile_test.cpp: a unit finds its profile and writes its defaults, in full the first time and little later
// on.

#include <gmock/gmock.h>

#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_commands.h"
#include "tests/support/scripted_store.h"

using testing::ElementsAre;
using testing::HasSubstr;
using Values = std::map<std::string, std::string>;

namespace {

constexpr char profiles[] = R"({"profile": [
    {"model": "", "lan.ip": "10.0.0.1"},
    {"model": "AP-1", "vendor": "Kivra", "lan.ip": "192.168.1.1", "web.port": 80, "": "nameless", "list": [1], "flag": true,
     "wlan": {"security.castfilter.en": "1", "security.multicastfilter.en": "", "nested": {"deep": "1"}, "wl.count": 2},
     "steerd": {"steerd.reject_cnt": "4"},
     "services": {"srv.telnet": "0", "srv.level": 3, "srv.list": []},
     "gpio": {"led.sys.index": 0, "led.sys.gpio_id": "8", "led.signal.index": 1, "led.signal.gpio_id": "5",
              "button.index": 2, "button.gpio_id": "37"}},
    {"model": "AP-1", "lan.ip": "10.9.9.9"},
    {"model": "AP-2", "vendor": "ZE-NOR", "gpio": {"led.sys.index": 0, "led.sys.gpio_id": "8", "led.signal.index": 1,
     "led.signal.gpio_id": "5", "button.gpio_id": "37"}},
    {"model": "AP-3", "vendor": "Somebody"}]})";

class Profile : public testing::Test {
protected:
    void SetUp() override {
        test::store = {};
        test::factory = {};
        test::commands.clear();
        test::write_text("/etc/profile.json", profiles);
        set_dbg_level("prod", 0);
        prod_cfm_init();
    }
    static std::string init(int expected, int commit = 0) {
        return test::printed_by([&] { EXPECT_EQ(profile_init_product_config(commit), expected); });
    }
};

TEST_F(Profile, FirstStartWritesEveryKindOfMember) {
    test::store.values = {{"sys.profile.id", "AP-1"}};
    const std::string printed = init(0, 1);
    EXPECT_EQ(test::store.values, (Values{{"sys.profile.id", "AP-1"},
                                          {"pro_dft_cfg.init", "2"},
                                          {"sys.targets", "AP-1"},
                                          {"snmp.devicename", "AP-1"},
                                          {"ap.apname", "AP-1"},
                                          {"Brand.config", "Kivra"},
                                          {"vendor.type_pack", "0x1799"},
                                          {"web.login.domain", "wifi.kivra.lan"},
                                          {"lan.ip", "192.168.1.1"},
                                          {"web.port", "80"},
                                          {"security.castfilter.en", "1"},
                                          {"wl.count", "2"},
                                          {"steerd.reject_cnt", "4"},
                                          {"srv.telnet", "0"},
                                          {"srv.level", "3"},
                                          {"led.sys.index", "0"},
                                          {"led.sys.gpio_id", "8"},
                                          {"led.signal.index", "1"},
                                          {"led.signal.gpio_id", "5"},
                                          {"button.index", "2"},
                                          {"button.gpio_id", "37"}}));
    EXPECT_EQ(test::store.commits, 1);
    EXPECT_THAT(test::commands, ElementsAre("/etc/init_gpio.sh"));

    size_t at = 0;
    for (const char *line :
         {"matched product: AP-1!", "set subgroup[wlan] default config", "set subgroup[gpio] default config",
          "set product defaut config finished!", "set service status finished!"}) {
        at = printed.find(line, at);
        ASSERT_NE(at, std::string::npos) << line;
    }
    EXPECT_THAT(printed, HasSubstr("\033[1;40;37m[PROD] "));
}

TEST_F(Profile, TextsDoNotCountAsChangesAndNumbersDo) {
    test::store.values = {{"sys.profile.id", "AP-3"}};
    init(0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(test::store.values["Brand.config"], "Somebody");
    EXPECT_EQ(test::store.values.count("vendor.type_pack"), 0U);

    test::store.values = {{"sys.profile.id", "AP-1"}};
    init(0);
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(test::store.commits, 0);
}

TEST_F(Profile, LaterStartsRefreshAFewKeysOnly) {
    test::store.values = {{"sys.profile.id", "AP-1"},      {"pro_dft_cfg.init", "2"},
                          {"security.castfilter.en", "0"}, {"security.multicastfilter.en", "9"},
                          {"steerd.reject_cnt", "4"},      {"srv.vantri_auth", "1"}};
    EXPECT_THAT(init(0), HasSubstr("update product config finished!"));
    EXPECT_EQ(test::store.values, (Values{{"sys.profile.id", "AP-1"},
                                          {"pro_dft_cfg.init", "2"},
                                          {"security.castfilter.en", "1"},
                                          {"security.multicastfilter.en", "9"},
                                          {"steerd.reject_cnt", "4"},
                                          {"srv.vantri_auth", "1"},
                                          {"srv.telnet", "0"},
                                          {"srv.level", "3"}}));
    EXPECT_THAT(test::commands, ElementsAre("/etc/init_gpio.sh", "insmod /lib/modules/auth.ko"));

    const std::string long_value(127, 'x');
    test::write_text("/etc/profile.json", R"({"profile": [{"model": "AP-1", "wlan": {"security.castfilter.en": ")" +
                                              long_value + R"("}}]})");
    test::store.values["security.castfilter.en"] = long_value + "cut";
    const int writes = test::store.writes;
    init(0);
    EXPECT_EQ(test::store.writes, writes) << "the stored value is compared as far as 127 characters";
}

TEST_F(Profile, TheFactoryStoreKnowsAUnitThatWasNeverConfigured) {
    EXPECT_THAT(init(0), HasSubstr("\033[1;40;33m[PROD] "));
    EXPECT_THAT(init(0), HasSubstr("'sys.profile.id' is null, skip config init!"));
    EXPECT_TRUE(test::store.values.empty());
    EXPECT_TRUE(test::commands.empty());

    test::factory.values = {{"KIVRA.sys.profile.id", "AP-2"}};
    init(0);
    EXPECT_EQ(test::store.values["sys.profile.id"], "AP-2");
    EXPECT_EQ(test::store.values["vendor.type_pack"], "0x1788");
    EXPECT_EQ(test::store.values["web.login.domain"], "wifi.ze-nor.lan");
}

TEST_F(Profile, AFileThatHoldsNoSuchProfileChangesNothing) {
    const std::string padding(10 * 1024 * 1024, ' ');
    const struct {
        const char *what;
        std::string text;
        const char *message;
    } cases[] = {
        {"empty", "", ""},
        {"no JSON", "{\"profile\": [", ""},
        {"no array", "{\"profile\": 7}", "failed to match profile: profile_id=AP-1"},
        {"array of nonsense", R"({"profile": [1, null, [], "AP-1", {"model": 5}]})",
         "failed to match profile: profile_id=AP-1"},
        {"other letters", R"({"profile": [{"model": "ap-1"}]})", "failed to match profile: profile_id=AP-1"},
        {"10 MiB of blanks", "{" + padding + "}", "failed to match profile: profile_id=AP-1"},
    };
    unlink("/etc/profile.json");
    ASSERT_EQ(symlink("/tmp/profile.json", "/etc/profile.json"), 0) << "the device's /etc is smaller than 10 MiB";
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        test::write_text("/tmp/profile.json", c.text);
        test::store.values = {{"sys.profile.id", "AP-1"}};
        const std::string printed = init(-1);
        if (*c.message == '\0') {
            EXPECT_EQ(printed, "");
        }
        EXPECT_THAT(printed, HasSubstr(c.message));
        EXPECT_EQ(test::store.values.size(), 1U);
    }
    unlink("/etc/profile.json");
    EXPECT_THAT(init(-1), HasSubstr("get file content error: /etc/profile.json"));
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(create_product_profile("AP-1"), nullptr); }),
                HasSubstr("get file content error: /etc/profile.json"));
    EXPECT_TRUE(test::commands.empty());
}

TEST_F(Profile, SingleValuesAreCopiedWhenTheyFit) {
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(create_product_profile(nullptr), nullptr); }),
                HasSubstr("input para error"));
    cJSON *product = create_product_profile("AP-1");
    ASSERT_NE(product, nullptr);
    const struct {
        const char *what;
        const cJSON *product;
        const char *key;
        int size, result;
        const char *shown;
    } cases[] = {
        {"one more than its length", product, "lan.ip", 12, 0, "192.168.1.1"},
        {"its length", product, "lan.ip", 11, -1, "buf size(11) <= value size(11)"},
        {"no room", product, "lan.ip", 0, -1, "input para error"},
        {"null product", nullptr, "lan.ip", 12, -1, "input para error"},
        {"null key", product, nullptr, 12, -1, "input para error"},
        {"empty key", product, "", 12, -1, "input para error"},
        {"missing", product, "lan.mask", 12, -1, "cannot find config: lan.mask"},
        {"a number", product, "web.port", 12, -1, "cannot find config: web.port"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        char buffer[20] = "before";
        const std::string printed =
            test::printed_by([&] { EXPECT_EQ(get_config_from_profile(c.product, c.key, buffer, c.size), c.result); });
        EXPECT_STREQ(buffer, c.result == 0 ? c.shown : "before");
        if (c.result != 0) {
            EXPECT_THAT(printed, HasSubstr(c.shown));
        }
    }
    EXPECT_EQ(get_config_from_profile(product, "lan.ip", nullptr, 12), -1);
    delete_product_profile(product);
    delete_product_profile(nullptr);
}

TEST_F(Profile, GpioKeysAreWrittenUpToTheFirstMissingOne) {
    EXPECT_THAT(test::printed_by([] { EXPECT_EQ(profile_start_gpio(nullptr), -1); }), HasSubstr("input para error"));

    cJSON *whole = create_product_profile("AP-1");
    EXPECT_EQ(profile_start_gpio(whole), 0);
    EXPECT_EQ(test::store.values, (Values{{"led.sys.index", "0"},
                                          {"led.sys.gpio_id", "8"},
                                          {"led.signal.index", "1"},
                                          {"led.signal.gpio_id", "5"},
                                          {"button.index", "2"},
                                          {"button.gpio_id", "37"}}));
    EXPECT_EQ(test::store.commits, 1);
    delete_product_profile(whole);

    test::store = {};
    cJSON *no_button = create_product_profile("AP-2");
    const std::string printed = test::printed_by([&] { EXPECT_EQ(profile_start_gpio(no_button), -1); });
    EXPECT_THAT(printed, HasSubstr("cannot find gpio config: button.index"));
    EXPECT_THAT(printed, HasSubstr("set gpio defaut config error"));
    EXPECT_EQ(test::store.values.size(), 4U);
    EXPECT_EQ(test::store.commits, 0);
    delete_product_profile(no_button);
    EXPECT_THAT(test::commands, ElementsAre("/etc/init_gpio.sh"));

    cJSON *no_gpio = create_product_profile("AP-3");
    for (const int level : {3, 4}) {
        set_dbg_level("prod", static_cast<unsigned int>(level));
        const std::string line = test::printed_by([&] { EXPECT_EQ(profile_start_gpio(no_gpio), 0); });
        EXPECT_EQ(line.find("cannot find config: gpio") != std::string::npos, level == 4);
    }
    delete_product_profile(no_gpio);
    EXPECT_EQ(test::commands.size(), 3U);
}

}  // namespace
