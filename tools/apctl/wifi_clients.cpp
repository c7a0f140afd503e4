// wifi_clients.cpp: `apctl wifi clients`: who is associated, and how much each carries.

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "apsupport/wireless.h"
#include "foundation/text.h"
#include "tools/apctl/wifi.h"

namespace apctl::wifi {

namespace {

constexpr int most_clients = 512;

using Clients = std::vector<WifiClientInfo>;

Clients list(const std::string &place) {
    Clients clients(most_clients);
    int count = 0;
    for (const Band &band : bands)
        if (place.empty() || place == band.text)
            count += wifi_get_client_lists(clients.data() + count, band.text, most_clients - count);
    if (!place.empty() && find_band(place) == nullptr) count = wifi_get_client_list(place.c_str(), clients.data(), 128);
    clients.resize(static_cast<size_t>(count));
    return clients;
}

struct Rates {
    std::string received, sent;  // kilobits a second
};

// Without a sample before, averages over the whole connection.
Rates rates_of(const WifiClientInfo &client, const Clients &before, int interval_s) {
    char received[32], sent[32];
    ap_comm_calc_client_rate(interval_s, &client, before.data(), sent, sizeof sent, received, sizeof received,
                             static_cast<int>(before.size()));
    return {received, sent};
}

cJSON *to_json(const WifiClientInfo &client, const Rates &rates) {
    cJSON *object = cJSON_CreateObject();
    add_text(object, "interface", client.ifname);
    add_text(object, "mac", client.mac);
    add_text(object, "ip", client.ip);
    cJSON_AddNumberToObject(object, "rssi", ap::to_int(client.stat_b));
    cJSON_AddNumberToObject(object, "connected_seconds", ap::to_int(client.conn_time));
    cJSON_AddNumberToObject(object, "bytes_received", client.bytes_a);
    cJSON_AddNumberToObject(object, "bytes_sent", client.bytes_b);
    cJSON_AddNumberToObject(object, "received_kbit_per_second", std::strtod(rates.received.c_str(), nullptr));
    cJSON_AddNumberToObject(object, "sent_kbit_per_second", std::strtod(rates.sent.c_str(), nullptr));
    return object;
}

}  // namespace

int run_clients(const Words &given) {
    Words words = given;
    std::string seconds;
    const bool json = take_flag(words, "--json"), measures = take_option(words, "--rates", seconds);
    const int interval_s = ap::to_int(seconds.c_str());
    if (words.size() > 1) return usage_error("wifi", "clients takes one INTERFACE or BAND");
    if (measures && (!is_number(seconds) || interval_s < 1))
        return usage_error("wifi", "--rates takes SECONDS, at least 1");

    const std::string place = words.empty() ? "" : words[0];
    LibraryLines lines;
    Clients before, clients = list(place);
    if (measures) {
        before.resize(clients.size());
        ap_comm_save_clients_info(clients.data(), before.data(), static_cast<int>(clients.size()), 0);
        sleep(static_cast<unsigned int>(interval_s));
        clients = list(place);
    }
    lines.restore();

    std::vector<std::vector<std::string>> rows = {
        {"INTERFACE", "MAC", "IP", "RSSI", "MODE", "CONNECTED", "FROM kbit/s", "TO kbit/s"}};
    const ap::UniqueJson document(cJSON_CreateArray());
    for (const WifiClientInfo &client : clients) {
        const Rates rates = rates_of(client, before, interval_s);
        rows.push_back({client.ifname, client.mac, client.ip, client.stat_b, for_screen(client.stat_text, ""),
                        client.conn_time + std::string(" s"), rates.received, rates.sent});
        cJSON_AddItemToArray(document.get(), to_json(client, rates));
    }
    json ? print_json(document.get()) : print_table(rows);
    return exit_ok;
}

}  // namespace apctl::wifi
