/* kernel_rules.h: rules that the device's kernel modules keep; 0 is success, -1 failure. */
#ifndef APPLATFORM_KERNEL_RULES_H
#define APPLATFORM_KERNEL_RULES_H

#include <cjson/cJSON.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Adds an array "List" of objects {"Mac", "Ip"} to `object`. */
int km_get_online_ip(cJSON *object);

int km_dns_redirect_add_rule(cJSON *rule);
int km_dns_redirect_del_rule(cJSON *rule);

int km_auto_wizards_gw_port(int port);
int km_auto_wizards_ip(const char *ip, const char *mask);
int km_auto_wizards_manage_ip(const char *ip, const char *mask);
int km_auto_wizards_enable(void);
int km_auto_wizards_disable(void);

int km_interface_isolate_enable(void);
int km_interface_isolate_disable(void);

#ifdef __cplusplus
}
#endif

#endif
