// address.cpp: address strings ("tcp:IP:PORT", "udp:IP:PORT", "unix:NAME", "netlink:PROTO"), the socket addresses that
// they stand for, and the text of a socket address in log lines.

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/owned.h"
#include "foundation/text.h"
#include "msgserver/records.h"

namespace ap {
namespace {

constexpr char any_address[] = "0.0.0.0";
enum : size_t { ip_size = 15 + 1, port_size = 7 + 1, proto_size = 3 + 1, name_size = 63 + 1 };
constexpr char socket_folder[] = "/var/socket";
static_assert(sizeof socket_folder + name_size <= sizeof sockaddr_un::sun_path);

struct Scheme {
    std::string_view prefix;
    unsigned type;
};
constexpr Scheme schemes[] = {{"tcp:", type_tcp}, {"udp:", type_udp}, {"netlink:", type_netlink}, {"unix:", type_unix}};

const Scheme *scheme_of(std::string_view address) {
    for (const auto &scheme : schemes)
        if (address.starts_with(scheme.prefix)) return &scheme;
    return nullptr;
}

// Copies what fits of the part up to the next ":" or the end, and takes it off `rest`.
void take_part(std::string_view &rest, char *out, size_t out_size) {
    const size_t length = std::min(rest.find(':'), rest.size());
    if (out != nullptr) copy_text(out, out_size, std::string_view(rest.data(), length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
}

int decimal(const char *text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

OwnedAddress allocate_or_say(int length, const char *failure) {
    OwnedAddress address = OwnedAddress::allocate(length);
    if (!address) std::perror(failure);
    return address;
}
OwnedAddress new_inet_address() { return allocate_or_say(sizeof(sockaddr_in), "ERROR : creat sockaddr_in error"); }
OwnedAddress new_unix_address() { return allocate_or_say(sizeof(sockaddr_un), "ERROR : creat sockaddr_un error"); }

OwnedAddress inet_address(const char *ip, const char *port) {
    OwnedAddress address = new_inet_address();
    if (!address) return address;
    auto *const record = reinterpret_cast<sockaddr_in *>(address.get());
    record->sin_family = AF_INET;
    record->sin_port = htons(static_cast<uint16_t>(decimal(port)));
    record->sin_addr.s_addr = std::strcmp(ip, any_address) == 0 ? 0 : inet_addr(ip);
    return address;
}

void ensure_socket_folder() {
    const KeepErrno keep;
    if (access(socket_folder, F_OK) != 0) mkdir(socket_folder, 0777);
}

OwnedAddress unix_address(const char *name) {
    ensure_socket_folder();
    OwnedAddress address = new_unix_address();
    if (!address) return address;
    auto *const record = reinterpret_cast<sockaddr_un *>(address.get());
    record->sun_family = AF_UNIX;
    std::snprintf(record->sun_path, sizeof socket_folder + name_size, "%s/%s", socket_folder, name);
    return address;
}

OwnedAddress netlink_address() {
    OwnedAddress address = OwnedAddress::allocate(sizeof(sockaddr_nl));
    if (!address) {
        MS_LOG("creat sockaddr_nl error");
        std::exit(0);
    }
    auto *const record = reinterpret_cast<sockaddr_nl *>(address.get());
    record->nl_family = AF_NETLINK;
    record->nl_pid = static_cast<uint32_t>(getpid());
    return address;
}

}  // namespace

OwnedAddress OwnedAddress::allocate(int length) {
    auto *const record = static_cast<sockaddr *>(std::calloc(1, static_cast<size_t>(length)));
    if (record == nullptr) return {};
    count(counters.bytes, length);
    return OwnedAddress(record, length);
}

OwnedAddress::~OwnedAddress() {
    if (record_ == nullptr) return;
    const KeepErrno keep;
    count(counters.bytes, -length_);
    std::free(record_);
}

OwnedAddress resolve(const char *address, unsigned &type, int &proto) {
    char ip[ip_size] = {}, port[port_size] = {}, proto_text[proto_size] = {}, name[name_size] = {};
    type = ms_get_parm(address, ip, port, proto_text, name);
    proto = decimal(proto_text);
    if ((type & type_netlink) != 0) return netlink_address();
    if ((type & type_unix) != 0) return unix_address(name);
    return inet_address(ip, port);
}

OwnedAddress new_peer_address(unsigned server_type) {
    if ((server_type & type_unix) != 0) return new_unix_address();
    return new_inet_address();
}

}  // namespace ap

using namespace ap;

unsigned int ms_get_parm(const char *address, char *ip, char *port, char *proto, char *name) {
    std::string_view rest = address != nullptr ? address : "";
    const Scheme *const scheme = scheme_of(rest);
    if (scheme == nullptr) {  // a wrong address ends the daemon or client: callers never see an error
        MS_LOG("Please input the correct address");
        std::exit(0);
    }
    rest.remove_prefix(scheme->prefix.size());
    if ((scheme->type & (type_tcp | type_udp)) != 0) {
        take_part(rest, ip, ip_size);
        take_part(rest, port, port_size);
    }
    if ((scheme->type & type_netlink) != 0) take_part(rest, proto, proto_size);
    if ((scheme->type & type_unix) != 0) take_part(rest, name, name_size);
    if (ip != nullptr && *ip == '\0') copy_text(ip, ip_size, any_address);
    return scheme->type;
}

unsigned int ms_get_addr(const char *address, struct sockaddr **resolved, int *length, int *proto) {
    unsigned type = 0;
    int number = 0;
    OwnedAddress found = resolve(address, type, number);
    if ((type & type_netlink) != 0 && proto != nullptr) *proto = number;
    *length = found.length();
    *resolved = found.take();
    return type;
}

char *ms_addr_to_str(char *buffer, const struct sockaddr *address, int length) {
    if (address == nullptr) return buffer;
    if (length == sizeof(sockaddr_in)) {
        sockaddr_in record;
        char ip[INET_ADDRSTRLEN] = {};
        std::memcpy(&record, address, sizeof record);
        inet_ntop(AF_INET, &record.sin_addr, ip, sizeof ip);
        std::sprintf(buffer, "address IP[%s:%d]", ip, ntohs(record.sin_port));
    } else if (length == sizeof(sockaddr_un)) {
        sockaddr_un record;
        std::memcpy(&record, address, sizeof record);
        std::sprintf(buffer, "address PATH[%.*s]", static_cast<int>(sizeof record.sun_path), record.sun_path);
    }
    return buffer;
}
