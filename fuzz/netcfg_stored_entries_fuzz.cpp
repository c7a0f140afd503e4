// netcfg_stored_entries_fuzz.cpp: any text as an entry of every list, as a pool, as VLAN and as a rule whose field is
// replaced. A LAN that moves away and back twice leaves after the second time what it left after the first, and no
// entry outgrows its buffer.

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "apsupport/foundation.h"
#include "apsupport/netcfg.h"

using Keys = std::map<std::string, std::string>;

static Keys store;

int GetValue(const char *key, char *value) {
    const auto found = store.find(key);
    return found == store.end() ? 0 : (std::memcpy(value, found->second.c_str(), found->second.size() + 1), 1);
}
int SetValue(const char *key, const char *value) { return store[key] = value, 1; }
int prod_debug(const char *, int, int, const char *, const char *, ...) { return 0; }
void log_debug_print(const char *, int, int, const char *, const char *, ...) {}

static void require(bool holds) {
    if (!holds) std::abort();
}

static void move(const char *new_ip, const char *old_ip) {
    const in_addr_t mask = inet_addr("255.255.255.0");
    check_change_lanip_handle(new_ip, "255.255.255.0", old_ip, "255.255.255.0");
    check_lanip_change_sync_dhcps(inet_addr(new_ip), mask, inet_addr(old_ip), mask, 1);
}

static void replace_field(const std::string &text) {
    const auto rule = std::make_unique<char[]>(2308);
    std::strcpy(rule.get(), text.c_str());
    check_modify_item_in_rule(rule.get(), ";", static_cast<int>(text.size() % 7),
                              text.substr(0, text.size() % 5).c_str());
    require(std::strlen(rule.get()) < 2308);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), std::min<size_t>(size, 2307));
    text.resize(std::strlen(text.c_str()));
    store = {{"wans.flag", "1"},
             {"wan1.dmzip", text},
             {"lan.webip", text},
             {"dhcps.list1", text},
             {"vlan.tag.listnum", "101"}};
    for (const char *list :
         {"adv.snat.list", "adv.logs.list", "adv.virtualser.list", "bandwidth.mode.list", "security.ipbind.list"}) {
        store[std::string(list) + "num"] = "1";
        store[std::string(list) + "1"] = text;
    }
    store.insert(
        {{"dhcps.Staticnum", "1"}, {"dhcps.Staticip1", text}, {"vlan.tag.list1", text}, {"pppoeserver.info", text}});

    move("10.20.30.1", "192.168.0.1");
    for (const auto &[key, value] : store) require(value.size() <= std::max<size_t>(text.size() + 64, 511));
    move("192.168.0.1", "10.20.30.1");
    const Keys once = store;
    move("10.20.30.1", "192.168.0.1");
    move("192.168.0.1", "10.20.30.1");
    require(store == once);

    conflict_record conflict{};
    char new_ip[16] = "";
    check_ip_conflict("192.168.0.7", "255.255.255.0", &conflict, new_ip);
    replace_field(text);
    return 0;
}
