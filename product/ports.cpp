// ports.cpp: link states of the switch ports, the numbers of LAN ports, and the uplink's throughput.

#include <cstdint>
#include <cstdio>

#include "applatform/interfaces.h"
#include "applatform/system.h"
#include "apsupport/foundation.h"
#include "apsupport/product.h"
#include "foundation/byte_order.h"
#include "foundation/config_value.h"

namespace ap {

namespace {

constexpr int port_count = 6;
constexpr unsigned int unknown_speed = 255, unknown_duplex = 15;
constexpr int most_lan_ports = 65536;  // bounds the search, whatever number of ports is configured

int link_status(const char *function, int port) {
    unsigned char record[4 + 4 + 4] = {};
    if (iof_port_status_get(port, record) != 0) {
        std::printf("[%s %d]: get port link status error!\n", function, __LINE__);
        return -1;
    }
    return le32(record) == 1 ? 1 : 0;
}

// The uplink's counters at one moment.
struct Sample {
    uint64_t first, third;
    unsigned int uptime_s;
};

bool take_sample(Sample &sample) {
    const char *ifname = get_eth_name(ConfigValue("wans.flag").is("1") ? 12 : 8);
    unsigned char statistics[4 * 8] = {};
    if (sys_get_if_statistics(ifname, statistics) != 0) return false;
    sample = {le64(statistics), le64(statistics + 16), system_get_uptime()};
    return true;
}

// Kilobits a second. A counter that went down was reset, and counts from zero.
unsigned int rate_between(uint64_t before, uint64_t now, int elapsed_s) {
    const uint64_t delta = now >= before ? now - before : now;
    const uint64_t bytes_per_second = elapsed_s < 1 ? delta : delta / static_cast<uint64_t>(elapsed_s);
    return static_cast<unsigned int>((bytes_per_second >> 10) * 8);
}

}  // namespace

}  // namespace ap

int get_port_link_status(int port) { return ap::link_status(__func__, port); }

int hal_get_port_link_status(int port) { return ap::link_status(__func__, port); }

int hal_get_eth_status(int port, unsigned int *speed, unsigned int *duplex) {
    *speed = ap::unknown_speed;
    *duplex = ap::unknown_duplex;
    if (port >= ap::port_count) {
        std::printf("Port[%d] is invalid", port);
        return 1;
    }
    unsigned char record[4 + 4 + 4] = {};
    if (iof_port_status_get(port, record) != 0) {
        std::printf("[%s %d]: get port[%d] link status error!\n", __func__, __LINE__, port);
        return 1;
    }
    *speed = ap::le32(record + 4);
    *duplex = ap::le32(record + 8);
    return 0;
}

int get_lan_port_id_by_index(int index) { return prod_cfm_get_int_val("lan%d.port_id", index); }

int get_portid_by_phyid(int phy) {
    const int ports = std::min(prod_cfm_get_int_val("lan.port_num"), ap::most_lan_ports);
    for (int index = 0; index < ports; ++index)
        if (get_lan_port_id_by_index(index) == phy) return index;
    return -1;
}

int get_wan_port_id_by_index(void) { return 0; }

// The first call reports the totals since start divided by the uptime.
int get_eth0_cur_rate(unsigned int *rate_a, unsigned int *rate_b) {
    static ap::Sample previous;
    *rate_a = 0;
    *rate_b = 0;
    ap::Sample now;
    if (!ap::take_sample(now)) return 0;
    const int elapsed_s = static_cast<int>(now.uptime_s - previous.uptime_s);
    *rate_a = ap::rate_between(previous.third, now.third, elapsed_s);
    *rate_b = ap::rate_between(previous.first, now.first, elapsed_s);
    previous = now;
    return 0;
}
