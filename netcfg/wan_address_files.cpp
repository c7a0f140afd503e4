// wan_address_files.cpp: the files in which the connection daemons leave the address of each WAN interface.
//
// A file holds one "KEY=VALUE" line for each of ip, mask, gateway, dns1 and dns2.

#include <cstdio>

#include "applatform/commands.h"
#include "apsupport/netcfg.h"
#include "foundation/console.h"
#include "foundation/file_io.h"
#include "foundation/trace.h"
#include "netcfg/address.h"
#include "netcfg/log_modules.h"

const char g_wan_ip_info[4][16] = {"/etc/wan1.ini", "/etc/wan2.ini", "/etc/wan3.ini", "/etc/wan4.ini"};
const char g_wan_ip_info2[4][16] = {"/etc/wan12.ini", "/etc/wan22.ini", "/etc/wan32.ini", "/etc/wan42.ini"};

namespace ap {

namespace {

static_assert(sizeof(ip_info) == 16 + 16 + 16 + 16 + 16);

constexpr int wans = 4;

// "0.0.0.0" stands for a value that is missing or empty.
void read_field(const char *path, const char *key, char (&field)[address_text_size]) {
    char value[256] = {};
    const bool found = file_get_value_from_ini(path, key, value) == 0 && value[0] != '\0';
    copy_text(field, found ? std::string_view(value, strnlen(value, sizeof value)) : no_address);
}

}  // namespace

}  // namespace ap

using namespace ap;

void file_get_ip_info_from_ini(const char *path, struct ip_info *info) {
    if (path == nullptr || info == nullptr) {
        AP_ERROR(network_log_module, "arg is null.");
        return;
    }
    read_field(path, "ip", info->ip);
    read_field(path, "mask", info->mask);
    read_field(path, "gateway", info->gateway);
    read_field(path, "dns1", info->dns1);
    read_field(path, "dns2", info->dns2);
}

int file_wan_ip_info_get(int wan, struct ip_info *info) {
    if (wan < 1 || wan > wans) return AP_ERROR(network_log_module, "invalide wan_id:%d.", wan), 1;
    if (info == nullptr) return AP_ERROR(network_log_module, "ip_info struct is NULL."), 1;
    file_get_ip_info_from_ini(g_wan_ip_info[wan - 1], info);
    return 0;
}

int file_wan_ip_save(const char *path, const struct ip_info *info) {
    if (path == nullptr || info == nullptr) return AP_ERROR(network_log_module, "arg is null."), 1;
    UniqueFile file = open_file(path, "w+e");
    if (!file) return AP_ERROR(network_log_module, "fopen is fail."), 1;
    std::fprintf(file.get(), "ip=%.16s\nmask=%.16s\ngateway=%.16s\ndns1=%.16s\ndns2=%.16s\n", info->ip, info->mask,
                 info->gateway, info->dns1, info->dns2);
    if (std::fclose(file.release()) != 0) return AP_ERROR(network_log_module, "fwrite is fail."), 1;
    return 0;
}
