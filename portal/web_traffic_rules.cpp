// web_traffic_rules.cpp: address translation that sends the portal's web traffic to the right server, and the pages and
// pictures that the server pushes.
//
// The two variants leave different limits of expected connections, on purpose.

#include <cstdio>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "apsupport/portal.h"
#include "foundation/shell_word.h"

namespace ap {

namespace {

constexpr char chain[] = "ap_portal_dnat_pre";
constexpr char redirected_address[] = "10.1.0.6", controller_redirected_address[] = "10.2.0.4";
constexpr int http_port = 80, https_port = 443;

void rebuild_chain() {
    doSystemCmd("iptables -t nat -F %s", chain);
    doSystemCmd("iptables -t nat -D PREROUTING -j %s", chain);
    doSystemCmd("iptables -t nat -X %s", chain);
    doSystemCmd("iptables -t nat -N %s", chain);
    doSystemCmd("iptables -t nat -I PREROUTING -j %s", chain);
}

void add_rule(int port, const char *destination, const char *target) {
    doSystemCmd("iptables -t nat -A %s -p tcp --dport %d -d %s -j DNAT --to %s", chain, port, destination, target);
}

void limit_expected_connections(int limit) {
    doSystemCmd("echo %d > /proc/sys/net/netfilter/nf_conntrack_expect_max", limit);
}

}  // namespace

}  // namespace ap

using namespace ap;

int tpi_ap_portal_ac_nat_rule(const unsigned char address[4]) {
    char target[sizeof "255.255.255.255"];
    std::snprintf(target, sizeof target, "%u.%u.%u.%u", address[0], address[1], address[2], address[3]);
    rebuild_chain();
    add_rule(http_port, controller_redirected_address, target);
    limit_expected_connections(32768);
    return 0;
}

int tpi_ap_portal_nat_rule(const char *target, int keep_route) {
    const ShellWord word(target);
    if (!word.ok() || looks_like_option(target)) return 0;

    rebuild_chain();
    const bool is_managed = prod_cfm_get_int_val("srv.hx4100_manage") != 0;
    if (is_managed && keep_route == 0) {
        doSystemCmd("route del default");
        doSystemCmd("route add default dev br0");
    }
    add_rule(http_port, redirected_address, word.c_str());
    add_rule(http_port, controller_redirected_address, word.c_str());
    if (is_managed) add_rule(https_port, redirected_address, word.c_str());
    limit_expected_connections(2048);
    return 0;
}

void tpi_move_ad_image_and_html_to_webroot(void) {
    doSystemCmd("cp -fr /mnt/s_brcmnand/img* /webroot/images/push_images/");
    doSystemCmd("cp -fr /mnt/s_brcmnand/*.html /webroot/");
}
