/* interfaces.h: network interfaces, switch ports and GPIO lines; 0 is success, -1 failure where no other result is named. */
#ifndef APPLATFORM_INTERFACES_H
#define APPLATFORM_INTERFACES_H

#ifdef __cplusplus
extern "C" {
#endif

int ifaddrs_get_if_netmac(const char *ifname, unsigned char mac[6]);
/* 1: up. */
int ifaddrs_get_interface_downup(const char *ifname);
/* Six octets of one or two hexadecimal digits, separated by ":"; `mac` is written only when all of it is good. */
int ifaddrs_ethaddr_aton(const char *text, unsigned char mac[6]);
/* Flag 0: the same host in the next subnet of size `mask`; other flags: the next host of the same subnet. Writes at most 16
   bytes into `out`; -1, with `out` untouched, when there is none below 224.0.0.0 or an address is malformed. */
int ifaddrs_ip_increase(const char *ip, const char *mask, char *out, int flag);
/* Non-zero: the two subnets overlap. */
int check_ip_is_same_net(const char *ip, const char *mask, const char *ip2, const char *mask2);
/* `record`: four unsigned 64-bit counts, received bytes, received packets, sent bytes, sent packets. */
int sys_get_if_statistics(const char *ifname, void *record);

const char *iof_eth_name_get(int id);
/* `record12`: three 32-bit words, link, speed, duplex. */
int iof_port_status_get(int port, void *record12);

int iof_gpio_set(int line, int value);
int iof_gpio_lock_get(int gpio, int *locked);
int iof_gpio_lock_set(int gpio, int locked);
/* The directory of a GPIO's files; null when it is unknown. */
const char *iof_gpio_dir_get(int gpio);

#ifdef __cplusplus
}
#endif

#endif
