// wireless_online_clients_fuzz.cpp: any bytes as the platform's online document and as the kernel's two files of online
// clients. Texts end in their fields, and the clients get what comparing every one with every entry gives.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "applatform/kernel_rules.h"
#include "applatform/wireless_driver.h"
#include "apsupport/wireless.h"
#include "foundation/owned.h"

static std::string input;

static void require(bool holds) {
    if (!holds) std::abort();
}

static std::string lower(const char *text) {
    std::string result(text);
    for (char &c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

static std::string expected_address(const OnlineIpTable &table, const char *mac) {
    for (uint32_t i = 0; i < table.count; ++i)
        if (lower(table.entries[i].mac) == mac) return table.entries[i].ip;
    char address[16] = {};
    get_ip_by_online_ip(mac, address);
    return address;
}

extern "C" {
int uwb_get_osif_name(const char *, char *out) { return *out = '\0', 0; }
int uwb_get_sta_info(const char *, int, void *records, int, int *count) {
    *count = 32;
    for (size_t i = 0; i < 32; ++i) {
        const bool is_last = i == 31;  // its MAC hashes like that of station 24
        const uint8_t mac[6] = {0x0a, 0xbc, 0, 0, 0, static_cast<uint8_t>(is_last ? 176 : i)};
        std::memcpy(static_cast<uint8_t *>(records) + 80 * i, mac, 6);
    }
    return 0;
}
int km_get_online_ip(cJSON *object) {
    cJSON *document = cJSON_Parse(input.c_str());
    if (document == nullptr) return 0;
    cJSON *list = cJSON_DetachItemFromObject(document, "List");
    if (list != nullptr) cJSON_AddItemToObject(object, "List", list);
    cJSON_Delete(document);
    return 0;
}
}

static void write_file(const std::string &path) {
    const ap::UniqueFile file(std::fopen(path.c_str(), "w"));
    require(file != nullptr && std::fwrite(input.data(), 1, input.size(), file.get()) == input.size());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    input.assign(reinterpret_cast<const char *>(data), std::min<size_t>(size, 65536));
    for (const char *path : {"/proc/net/km_online_ip", "/proc/km/km_online_ip"}) {
        write_file(path);
        const auto table = std::make_unique<OnlineIpTable>();
        get_client_ip_mac(table.get());
        require(table->count <= 512);
        for (const OnlineIpEntry &entry : table->entries)
            require(std::memchr(entry.mac, 0, 18) != nullptr && std::memchr(entry.ip, 0, 16) != nullptr);
        WifiClientInfo clients[32];
        require(wifi_get_client_list("wlan0.0", clients, 32) == 32);
        for (const WifiClientInfo &client : clients) require(expected_address(*table, client.mac) == client.ip);
        std::remove(path);
    }
    return 0;
}
