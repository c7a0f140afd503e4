// Address strings of any bytes, behind a scheme: the parts agree with a plain split, and never outgrow their buffers.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "apsupport/msgserver.h"

static void expect(const char *part, std::string expected, size_t room) {
    expected.resize(std::min(expected.size(), room - 1));
    if (part != expected) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 512) return 0;
    constexpr const char *schemes[] = {"tcp:", "udp:", "netlink:", "unix:"};
    const std::string scheme = schemes[data[0] % 4];
    const auto *const text_start = reinterpret_cast<const char *>(data + 1);
    const std::string rest(text_start, strnlen(text_start, size - 1));
    const size_t first_colon = std::min(rest.find(':'), rest.size());
    const std::string first = rest.substr(0, first_colon);
    const std::string behind = rest.substr(std::min(first_colon + 1, rest.size()));
    const std::string second = behind.substr(0, behind.find(':'));

    const std::string text = scheme + rest;
    std::vector<char> address(text.c_str(), text.c_str() + text.size() + 1), ip(16), port(8), proto(4), name(64);
    const unsigned type = ms_get_parm(address.data(), ip.data(), port.data(), proto.data(), name.data());
    const bool is_inet = type == 1 || type == 2;
    expect(ip.data(), is_inet && !first.empty() ? first : "0.0.0.0", ip.size());
    expect(port.data(), is_inet ? second : "", port.size());
    expect(proto.data(), type == 8 ? first : "", proto.size());
    expect(name.data(), type == 4 ? first : "", name.size());
    if (type != 1u << (data[0] % 4 == 3 ? 2 : data[0] % 4 == 2 ? 3 : data[0] % 4)) abort();

    sockaddr *resolved = nullptr;
    int length = 0, number = 0;
    if (ms_get_addr(address.data(), &resolved, &length, &number) != type) abort();
    const std::unique_ptr<sockaddr, decltype(&std::free)> owned(resolved, std::free);
    if (length != (is_inet ? 16 : type == 4 ? 110 : 12)) abort();
    std::vector<char> line(128);
    ms_addr_to_str(line.data(), resolved, length);
    return strnlen(line.data(), line.size()) < line.size() ? 0 : (abort(), 0);
}
