// address_conflict.cpp: gathers the subnets that the device serves, finds one that overlaps a new address, and proposes
// an address that overlaps none.

#include <cstdio>

#include "applatform/interfaces.h"
#include "apsupport/netcfg.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"
#include "netcfg/rule_lists.h"

namespace ap {

namespace {

static_assert(sizeof(conflict_record) == 4 + 16 + 16 + 64 && offsetof(conflict_record, tag) == 4 + 16 + 16);

constexpr int most_subnets = 100;
constexpr int most_steps = 10 * most_subnets;  // a platform that steps leaves a subnet with each: one a subnet will do
constexpr char fixed_mask[] = "255.255.255.0";

enum SubnetType { lan = 0, portal = 1, guest = 2, pppoe_server = 3, vlan = 4, pptp_server = 5, l2tp_server = 6 };

class SubnetList {
public:
    explicit SubnetList(conflict_record *records) : records_(records) {}

    bool is_full() const { return count_ == most_subnets; }
    int count() const { return count_; }

    void add(SubnetType type, std::string_view ip, std::string_view mask, std::string_view tag = {}) {
        if (is_full()) return;
        conflict_record &record = records_[count_++];
        record = {};
        record.type = type;
        copy_text(record.ip, ip);
        copy_text(record.mask, mask);
        copy_text(record.tag, tag);
    }
    void add_if_present(SubnetType type, const char *address_key, const char *mask_key = nullptr) {
        ConfigValue address;
        if (!address.read(address_key)) return;
        if (mask_key == nullptr) return add(type, address.view(), fixed_mask);
        add(type, address.view(), ConfigValue(mask_key).view());
    }

private:
    conflict_record *records_;
    int count_ = 0;
};

// The address is the second field of the server's settings.
void add_pppoe_server(SubnetList &subnets) {
    ConfigValue settings;
    if (!settings.read("pppoeserver.info")) return;
    char address[address_text_size] = {};
    static_assert(sizeof address == 15 + 1, "the width of the pattern");
    std::sscanf(settings.c_str(), " %*[^;];%15[^;];* ", address);  // NOLINT(cert-err34-c): no number is read
    subnets.add(pppoe_server, address, fixed_mask);
}

// Every entry of the list counts as a subnet, whether or not it parses.
void add_vlan_interfaces(SubnetList &subnets) {
    const int count = stored_count("vlan.tag.listnum");
    for (int i = 1; i <= count && !subnets.is_full(); ++i) {
        ConfigValue entry;
        entry.read_format("vlan.tag.list%d", i);
        int vlan_id = 0;
        char address[address_text_size] = {}, mask[address_text_size] = {}, tag[sizeof(conflict_record::tag)];
        // NOLINTNEXTLINE(cert-err34-c): the number is not used
        std::sscanf(entry.c_str(), " %*d;%*d;%d;%*[^;];%15[^;];%15[^;];* ", &vlan_id, address, mask);
        std::snprintf(tag, sizeof tag, "%d", i);
        subnets.add(vlan, address, mask, tag);
    }
}

// A record's field as a text of its own, since a field may be full.
struct FieldCopy {
    template <size_t N> explicit FieldCopy(const char (&field)[N]) { copy_text(text, field_text(field)); }
    char text[address_text_size + 1];
};

in_addr_t mask_number(const char *mask) { return ntohl(inet_addr(mask)); }

// The mask with fewer bits; the first when they are alike.
const char *wider_mask(const char *mask, const char *other) {
    return mask_number(other) < mask_number(mask) ? other : mask;
}

// Steps from `from` into the next subnet of this mask; `address` changes only on success.
void step_subnet(const char *from, const char *mask, char (&address)[address_text_size]) {
    char next[config_value_size] = {};
    if (ifaddrs_ip_increase(from, mask, next, 0) == 0) copy_text(address, next);
}

// Steps `address` until it overlaps none of the subnets. A platform that cannot step leaves it where it is.
void leave_all_subnets(char (&address)[address_text_size], const char *mask, const conflict_record *list, int count) {
    for (int step = 0; step < most_steps; ++step) {
        const int i = check_conflict_with_ip_set(address, mask, list, count);
        if (i >= count || i >= most_subnets) return;
        step_subnet(address, wider_mask(mask, FieldCopy(list[i].mask).text), address);
    }
}

}  // namespace

}  // namespace ap

using namespace ap;

int check_get_conflict_ip_list(struct conflict_record *list) {
    if (list == nullptr) return AP_ERROR(network_log_module, "arg is null."), 0;
    SubnetList subnets(list);
    subnets.add_if_present(lan, "lan.ip", "lan.mask");
    subnets.add_if_present(portal, "lan.portal_ip");
    subnets.add_if_present(guest, "wl.guest.dhcps_ip", "wl.guest.dhcps_mask");
    add_pppoe_server(subnets);
    add_vlan_interfaces(subnets);
    subnets.add_if_present(pptp_server, "pptp.ser.pptpdserver");
    subnets.add_if_present(l2tp_server, "l2tp.ser.l2tpdserver");
    return subnets.count();
}

// A full list, of 100 subnets, is not searched: it counts as free of conflicts.
int check_conflict_with_ip_set(const char *ip, const char *mask, const struct conflict_record *list, int count) {
    if (ip == nullptr || mask == nullptr || list == nullptr)
        return AP_ERROR(network_log_module, "arg is null."), most_subnets;
    if (count >= most_subnets) return AP_ERROR(network_log_module, "max num is large."), most_subnets;
    for (int i = 0; i < count; ++i)
        if (check_ip_is_same_net(ip, mask, FieldCopy(list[i].ip).text, FieldCopy(list[i].mask).text) != 0) return i;
    return count;
}

int check_ip_conflict(const char *ip, const char *mask, struct conflict_record *conflict, char *new_ip) {
    if (ip == nullptr || mask == nullptr) return AP_ERROR(network_log_module, "arg is null."), 2;
    if (conflict == nullptr) return AP_ERROR(network_log_module, "set is invalid."), 2;
    if (new_ip == nullptr) return AP_ERROR(network_log_module, "NewIp is invalid."), 2;

    conflict_record list[most_subnets];
    const int count = check_get_conflict_ip_list(list);
    const int i = check_conflict_with_ip_set(ip, mask, list, count);
    if (i >= count || i >= most_subnets) return 0;

    *conflict = list[i];
    char address[address_text_size] = {};
    step_subnet(list[i].ip, wider_mask(mask, list[i].mask), address);
    if (address[0] == '\0') return 1;
    leave_all_subnets(address, list[i].mask, list, count);
    copy_text(new_ip, address_text_size, address);
    return 1;
}
