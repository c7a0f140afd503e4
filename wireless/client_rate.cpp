// client_rate.cpp: keeps samples of client records, and turns two of them into rates in kilobits a second.
//
// Rates are single-precision; counters are unsigned 32-bit, so that a wrapped one still gives the right difference.

#include <cstdio>
#include <span>

#include "apsupport/wireless.h"
#include "foundation/text.h"
#include "wireless/client_record.h"

namespace ap {

namespace {

float kilobits_per_second(uint32_t bytes, int seconds) {
    const float rate = static_cast<float>(bytes) / static_cast<float>(seconds) / 1024 * 8;
    return rate == rate ? rate : __builtin_nanf("");  // 0 / 0 has a sign on some machines; the text is always "nan"
}

int print_rate(char *out, int size, float rate) {
    return std::snprintf(out, size < 0 ? 0 : static_cast<size_t>(size), "%.2f", static_cast<double>(rate));
}

const WifiClientInfo *find_client(std::span<const WifiClientInfo> clients, const WifiClientInfo &wanted) {
    for (const WifiClientInfo &client : clients)
        if (field_text(client.ip) == field_text(wanted.ip) && field_text(client.mac) == field_text(wanted.mac))
            return &client;
    return nullptr;
}

int connected_seconds(const WifiClientInfo &client) {
    char text[sizeof client.conn_time + 1];
    copy_text(text, field_text(client.conn_time));
    return to_int(text);
}

// A copied text ends in its field, and zeros fill the rest.
template <size_t N> void copy_field(const char (&from)[N], char (&to)[N]) {
    const size_t length = copy_text(to, field_text(from));
    std::memset(to + length, 0, N - length);
}

}  // namespace

void copy_client(const WifiClientInfo &from, WifiClientInfo &to) {
    copy_field(from.ifname, to.ifname);
    copy_field(from.mac, to.mac);
    copy_field(from.ip, to.ip);
    copy_field(from.reserved_text, to.reserved_text);
    copy_field(from.stat_a, to.stat_a);
    copy_field(from.conn_time, to.conn_time);
    copy_field(from.hostname, to.hostname);
    copy_field(from.stat_b, to.stat_b);
    copy_field(from.noise, to.noise);
    copy_field(from.stat_c, to.stat_c);
    copy_field(from.stat_text, to.stat_text);
    to.bytes_a = from.bytes_a;
    to.bytes_b = from.bytes_b;
}

}  // namespace ap

void ap_comm_save_clients_info(const WifiClientInfo *src, WifiClientInfo *dst, int count, int offset) {
    for (int i = 0; i < count; ++i) ap::copy_client(src[i], dst[offset + i]);
}

// Without a usable sample before, both rates are averages over the whole connection.
int ap_comm_calc_client_rate(int interval, const WifiClientInfo *cur, const WifiClientInfo *prev, char *out_b,
                             int size_b, char *out_a, int size_a, int prev_count) {
    const int connected_s = ap::connected_seconds(*cur);
    if (prev_count == 0 || interval < 1 || connected_s < interval) {
        ap::print_rate(out_b, size_b, ap::kilobits_per_second(cur->bytes_b, connected_s));
        return ap::print_rate(out_a, size_a, ap::kilobits_per_second(cur->bytes_a, connected_s));
    }
    const size_t samples = prev_count < 0 ? 0 : static_cast<size_t>(prev_count);
    const WifiClientInfo *before = ap::find_client(std::span(prev, samples), *cur);
    if (before == nullptr) {
        ap::print_rate(out_b, size_b, 0);
        return ap::print_rate(out_a, size_a, 0);
    }
    ap::print_rate(out_b, size_b, ap::kilobits_per_second(cur->bytes_b - before->bytes_b, interval));
    return ap::print_rate(out_a, size_a, ap::kilobits_per_second(cur->bytes_a - before->bytes_a, interval));
}
