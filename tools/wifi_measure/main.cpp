// main.cpp: the wireless measurement service: waits on the message bus for requests to measure all channels, and
// answers each with the file that measure.cpp writes. It connects again when the bus goes away.

#include <cstdio>
#include <cstring>
#include <memory>
#include <mosquitto.h>
#include <string>
#include <unistd.h>

#include "tools/wifi_measure/measure.h"

namespace {

constexpr char broker_socket[] = "/var/run/bus.socket";
constexpr char request_topic[] = "ugw.wifi_measure.all_chan_measure_request";
constexpr int keep_alive_s = 60, wait_ms = 1000;
constexpr unsigned int reconnect_seconds = 1;

constexpr char help[] = "usage: wifi_measure [--once]\n\n"
                        "Waits on the message bus for requests to measure all wireless channels, and writes each\n"
                        "result to /etc/wm_config/all_chan_measure.json.\n\n"
                        "--once    measures now, without the bus, and ends\n";

struct DestroyClient {
    void operator()(mosquitto *client) const { mosquitto_destroy(client); }
};
using BusClient = std::unique_ptr<mosquitto, DestroyClient>;

void on_connect(mosquitto *client, void *, int refusal) {
    if (refusal == 0) mosquitto_subscribe(client, nullptr, request_topic, 1);
}

void on_subscribe(mosquitto *, void *, int, int, const int *) {
    std::puts("wifi_measure: listening");
    std::fflush(stdout);
}

// The flag is looked at between the rounds of the loop, so that requests during a measurement make one more at most.
void on_message(mosquitto *, void *is_asked, const mosquitto_message *) { *static_cast<bool *>(is_asked) = true; }

// Serves until the bus goes away.
void serve() {
    bool is_asked = false;
    const BusClient client(mosquitto_new(nullptr, true, &is_asked));
    if (!client) return;
    mosquitto_connect_callback_set(client.get(), on_connect);
    mosquitto_subscribe_callback_set(client.get(), on_subscribe);
    mosquitto_message_callback_set(client.get(), on_message);
    if (mosquitto_connect(client.get(), broker_socket, 0, keep_alive_s) != MOSQ_ERR_SUCCESS) return;
    while (mosquitto_loop(client.get(), wait_ms, 1) == MOSQ_ERR_SUCCESS) {
        if (!is_asked) continue;
        is_asked = false;
        wifi_measure::measure_all();
    }
}

}  // namespace

int main(int argc, char **argv) {
    const std::string word = argc == 2 ? argv[1] : "";
    if (word == "--help") return std::fputs(help, stdout), 0;
    if (argc > 2 || (argc == 2 && word != "--once")) return std::fputs(help, stderr), 2;
    if (word == "--once") return wifi_measure::measure_all() ? 0 : 1;
    mosquitto_lib_init();
    for (;;) {
        serve();
        sleep(reconnect_seconds);
    }
}
