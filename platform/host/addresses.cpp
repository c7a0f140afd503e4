// addresses.cpp: arithmetic on IPv4 and Ethernet address texts. Nothing is looked up; every function may run on any
// thread, and an output is written only when the whole input was good.

#include <arpa/inet.h>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "applatform/interfaces.h"

namespace {

constexpr uint32_t first_multicast_address = 0xE0000000;

// A dotted address in host byte order.
bool parse_ip(const char *text, uint32_t &address) {
    in_addr parsed;
    if (text == nullptr || inet_pton(AF_INET, text, &parsed) != 1) return false;
    address = ntohl(parsed.s_addr);
    return true;
}

// A mask whose set bits are all at its front.
bool parse_mask(const char *text, uint32_t &mask) {
    return parse_ip(text, mask) && std::countl_one(mask) + std::countr_zero(mask) >= 32;
}

int hex_digit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

// Reads one or two hexadecimal digits; null when there is none.
const char *parse_octet(const char *text, unsigned char &octet) {
    const int high = hex_digit(*text);
    if (high < 0) return nullptr;
    const int low = hex_digit(text[1]);
    octet = static_cast<unsigned char>(low < 0 ? high : high * 16 + low);
    return text + (low < 0 ? 1 : 2);
}

}  // namespace

int ifaddrs_ethaddr_aton(const char *text, unsigned char mac[6]) {
    if (text == nullptr || mac == nullptr) return -1;
    constexpr int octets = 6;
    unsigned char parsed[octets];
    for (int i = 0; i < octets; ++i) {
        text = parse_octet(text, parsed[i]);
        if (text == nullptr) return -1;
        const bool is_last = i == octets - 1;
        if (*text != (is_last ? '\0' : ':')) return -1;
        if (!is_last) ++text;
    }
    memcpy(mac, parsed, sizeof parsed);
    return 0;
}

// Steps by a whole subnet with flag 0 and by a single address otherwise. The result stays below the multicast
// addresses; a single step also stays within the subnet's hosts.
int ifaddrs_ip_increase(const char *ip, const char *mask, char *out, int flag) {
    uint32_t address, netmask;
    if (out == nullptr || !parse_ip(ip, address) || !parse_mask(mask, netmask)) return -1;
    const uint64_t next = address + (flag == 0 ? uint64_t{~netmask} + 1 : 1);
    if (next >= first_multicast_address) return -1;
    const auto stepped = static_cast<uint32_t>(next);
    if (flag != 0 && ((stepped & netmask) != (address & netmask) || (stepped | netmask) == UINT32_MAX)) return -1;
    const in_addr raw{htonl(stepped)};
    return inet_ntop(AF_INET, &raw, out, INET_ADDRSTRLEN) != nullptr ? 0 : -1;
}

int check_ip_is_same_net(const char *ip, const char *mask, const char *ip2, const char *mask2) {
    uint32_t first, first_mask, second, second_mask;
    if (!parse_ip(ip, first) || !parse_ip(mask, first_mask)) return 0;
    if (!parse_ip(ip2, second) || !parse_ip(mask2, second_mask)) return 0;
    return ((first ^ second) & first_mask & second_mask) == 0 ? 1 : 0;
}
