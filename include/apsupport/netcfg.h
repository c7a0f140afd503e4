/* netcfg.h: upkeep of address-bearing rules, address conflicts, WAN state and system tables.

   When the LAN's address changes, every stored rule that names a LAN host moves with it:

       in_addr_t new_ip = inet_addr("192.168.5.1"), old_ip = inet_addr("192.168.0.1"), mask = inet_addr("255.255.255.0");
       check_change_lanip_handle("192.168.5.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
       check_lanip_change_sync_dhcps(new_ip, mask, old_ip, mask, 1);
       prod_cfm_commit();

   Caveats
   - Nothing here commits the configuration or restarts a service; the caller does.
   - Addresses are dotted text, or the 32-bit words that `inet_addr` gives (network byte order in a native integer).
   - Unless a buffer's size is told, `out`, `new_ip` and `ip` hold 16 bytes.
   - The functions keep no state but `netctrl_module_name`'s text and take no lock. The store serialises single reads and
     writes; a rule is read, moved and written in three steps, so two changes at a time mix.
   - A rule that does not parse stays byte for byte as it is. Stored counts are believed up to 65536. */
#ifndef APSUPPORT_NETCFG_H
#define APSUPPORT_NETCFG_H

#include <netinet/in.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* ---- LAN address change ------------------------------------------------------------------------------------------- */

/* Moves DMZ hosts, the address that may manage the device, bandwidth rules, virtual servers, source NAT, log servers and
   IP-MAC bindings, in this order: each address keeps its host part and takes the new network part. A DMZ host that would
   lie outside the new network, or be the device itself, is switched off; so is a managing address outside it. Nothing
   happens when the two addresses are the same text: a change of the mask alone moves no rule. A missing argument, or one
   that is no address, is logged and changes nothing. */
void check_change_lanip_handle(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask);

/* Moves DHCP pool `pool` (entry "dhcps.list%u") and sets "dhcps.start", "dhcps.end", "dhcps.gw" and "dhcps.dns1" to what
   stands in it. A new address moves the range and, for pool 1, the static leases; a new mask makes the range all of the
   network but its first and last address. An end that would be the device's address steps inwards by one. Run it once a
   pool after `check_change_lanip_handle`. */
void check_lanip_change_sync_dhcps(in_addr_t new_ip, in_addr_t new_mask, in_addr_t old_ip, in_addr_t old_mask,
                                   unsigned int pool);

/* Writes the address whose network part is that of `ip`/`mask` and whose host part is `hostid` (host byte order; joined by
   bitwise or). 0; or -1, `out` unchanged, when an argument is null or no address. */
int check_get_new_ipaddr_by_hostid(const char *ip, const char *mask, unsigned int hostid, char *out);

/* Replaces field `index` (from 0) of a rule whose fields are separated by any of the characters `delims`, in place. An
   empty `item` removes the field with the delimiter behind it. Delimiters in a row separate like one. `rule` holds 2308
   bytes; what would not fit is cut. A null argument, a negative index or one without a field leaves the rule as it is. */
void check_modify_item_in_rule(char *rule, const char *delims, int index, const char *item);

/* The name of a network-control module, for messages ("LAN", "QOS"). A number without a name gives the number as text, in
   a static buffer that the next such call overwrites. */
const char *netctrl_module_name(unsigned int module);

/* Older forms. `sys_change_lanip` runs the log servers and the bandwidth rules only, each of which does nothing when the
   two addresses are the same text. */
void sys_change_lanip(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask);
void sys_change_lanip_logserver(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask);
void sys_change_lanip_qos(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask);

/* Sets "dhcps.gw" and "dhcps.dns1" to the new address and "dhcps.mask" to the new mask, then rebuilds the pool list. The
   old address and mask are not looked at. */
void sys_change_lanip_dhcps(const char *new_ip, const char *new_mask, const char *old_ip, const char *old_mask);

/* Rebuilds "dhcps.list1" as the only pool: number 1, then "dhcps.en", start, end, gw, mask, leasetime, dns1 and dns2. */
void sys_change_dhcps_cfglist(void);

/* ---- address conflicts -------------------------------------------------------------------------------------------- */

struct conflict_record {
    int32_t type;  /* 0: 0 LAN, 1 portal, 2 guest network, 3 PPPoE server, 4 VLAN, 5 PPTP, 6 L2TP server */
    char ip[16];   /* 4 */
    char mask[16]; /* 20 */
    char tag[64];  /* 36: of a VLAN its number in the list, else empty */
};                 /* 100 bytes */

/* Asks whether the subnet of `ip`/`mask` overlaps one that the device serves. 0: no; 1: yes, the first such subnet is
   copied into `conflict` and `new_ip` receives a free address to use instead; 2: an argument is null. When the platform
   cannot step to a next subnet, `new_ip` stays as it was; when all steps end in served subnets it holds the last one. */
int check_ip_conflict(const char *ip, const char *mask, struct conflict_record *conflict, char *new_ip);

/* Fills `list`, with room for 100 records, with the subnets that the device serves, in the order of their types; what
   does not fit is left out. The number of records; 0 for null. */
int check_get_conflict_ip_list(struct conflict_record *list);

/* The index of the first of `count` records that overlaps `ip`/`mask`, or `count`. 100 for a null argument, and for a
   list of 100 records or more, which is not searched. */
int check_conflict_with_ip_set(const char *ip, const char *mask, const struct conflict_record *list, int count);

/* ---- WAN status and address files --------------------------------------------------------------------------------- */

struct ip_info {      /* dotted texts */
    char ip[16];      /* 0 */
    char mask[16];    /* 16 */
    char gateway[16]; /* 32 */
    char dns1[16];    /* 48 */
    char dns2[16];    /* 64 */
};                    /* 80 bytes */

/* The address files of WAN 1 to 4, and a second set. */
extern const char g_wan_ip_info[4][16];
extern const char g_wan_ip_info2[4][16];

/* Reads a file of lines "ip=", "mask=", "gateway=", "dns1=", "dns2="; what is missing or empty becomes "0.0.0.0". */
void file_get_ip_info_from_ini(const char *path, struct ip_info *info);

/* Reads the file of WAN 1 to 4. 0; 1 for another number or null, `info` unchanged. */
int file_wan_ip_info_get(int wan, struct ip_info *info);

/* Writes such a file anew. 0; 1 for null, or when it cannot be written. */
int file_wan_ip_save(const char *path, const struct ip_info *info);

/* The connection type of WAN 1 to 4: 0 DHCP, 1 static address, 2 PPPoE, others as the connection services define them. 0
   also when none is set or there is no such WAN. */
int getWanConnType(int wan);

/* The switch port of WAN 1 to 4, from "/etc/lan_wan_port"; -1 when it is not told. */
int wanid_to_phy_port(int wan);

/* The link of a WAN: 0 no cable or no such interface, 1 not connected, 2 connecting, 3 connected. `conn_type` as above,
   `sys_mode` as `get_sys_mode` gives it. The second and third form look only at the daemon that fetches the address. */
int system_wan_get_link_status(int wan, int conn_type, int sys_mode);
int system_wan_get_link_status_dhcp(int wan, int conn_type, int sys_mode);
int system_wan_get_link_status_ppp(int wan, int conn_type, int sys_mode);

/* The routing page's summary: the link status of `wan`, the name of WAN 1's connection type ("dhcp", "pppoe", "static") in
   `type_name`, at least 8 bytes, and, unless the status is 1, its addresses in `info`; of a static connection the mask
   stays as it was. 1 for null. */
int sysytem_get_route_wan_info(int wan, char *type_name, struct ip_info *info);

/* ---- system tables ------------------------------------------------------------------------------------------------ */

struct route_entry {
    char destination[16]; /* 0: dotted text; of a static route the first word of its line ("default") */
    char mask[16];        /* 16 */
    char gateway[16];     /* 32: "0.0.0.0" when there is none */
    char ifname[16];      /* 48 */
    int32_t metric;       /* 64: not written for static routes */
};                        /* 68 bytes */
struct upnp_entry {       /* as the UPnP daemon wrote them */
    char field_1[16];     /* 0 */
    char field_2[8];      /* 16 */
    char field_3[16];     /* 24 */
    char field_4[8];      /* 40 */
    char field_5[8];      /* 48 */
    char field_6[64];     /* 56 */
};                        /* 120 bytes */
struct upnp_list {
    int32_t count;                  /* 0 */
    struct upnp_entry entries[128]; /* 4 */
};                                  /* 15364 bytes */

/* The number of routes: the kernel's and those of the table "staticroute". Runs `ip`, which leaves "/var/static_route". */
int file_get_route_list_num(void);

/* Fills at most `max` entries, the kernel's routes first; how many is not told, so ask for the number before. 0; 1 when
   `list` is null or a table cannot be read. A static route without a prefix, or with prefix 0, has the full mask. */
int file_get_route_table_list(struct route_entry *list, int max);

/* The port mappings of "/var/upnpmap", at most 128. 0; 1 for null or when the file cannot be opened. */
int file_get_upnp_list(struct upnp_list *list);

/* The address that the LAN side obtained as a DHCP client. 0; 1 when it has none, `info` unchanged. */
int file_lan_dhcpc_get_ipinfo_and_status(struct ip_info *info);

/* The address of the neighbour with this MAC (17 characters, upper or lower case). 0; 1, and "0.0.0.0", when it is not
   known. */
int find_ip_in_arpfile(const char *mac, char *ip);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
