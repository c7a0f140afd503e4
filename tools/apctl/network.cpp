// network.cpp: addresses with their masks, the library's lines kept apart from what a verb prints, and JSON.

#include "tools/apctl/network.h"

#include <arpa/inet.h>
#include <bit>
#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

#include "foundation/file_io.h"
#include "foundation/text.h"

namespace apctl {

namespace {

std::string dotted(uint32_t address) {
    char text[INET_ADDRSTRLEN];
    const in_addr raw{htonl(address)};
    return inet_ntop(AF_INET, &raw, text, sizeof text);
}

bool read_dotted(const std::string &text, uint32_t &address) {
    in_addr raw;
    if (inet_pton(AF_INET, text.c_str(), &raw) != 1) return false;
    address = ntohl(raw.s_addr);
    return true;
}

bool read_mask(const std::string &text, uint32_t &mask) {
    if (text.find('.') != std::string::npos)
        return read_dotted(text, mask) && std::countl_one(mask) + std::countr_zero(mask) >= 32;
    if (text.empty() || text.size() > 2 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    const int prefix = ap::to_int(text.c_str());
    if (prefix < 0 || prefix > 32) return false;
    mask = prefix == 0 ? 0 : UINT32_MAX << static_cast<unsigned int>(32 - prefix);
    return true;
}

}  // namespace

std::string Network::ip_text() const { return dotted(ip); }
std::string Network::mask_text() const { return dotted(mask); }
std::string Network::text() const { return ip_text() + "/" + std::to_string(std::countl_one(mask)); }

bool Network::is_host() const {
    const uint32_t host_part = ip & ~mask;
    return ~mask >= 3 && host_part != 0 && host_part != ~mask && ip >> 24 != 0 && ip >> 24 != 127 && ip >> 28 < 14;
}

bool read_network(const std::string &text, Network &network) {
    const size_t slash = text.find('/');
    Network parsed = network;
    if (!read_dotted(text.substr(0, slash), parsed.ip)) return false;
    if (slash != std::string::npos && !read_mask(text.substr(slash + 1), parsed.mask)) return false;
    network = parsed;
    return true;
}

LibraryLines::LibraryLines()
    : kept_(memfd_create("library lines", MFD_CLOEXEC)), output_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    if (kept_ && output_) dup2(kept_.get(), STDOUT_FILENO);
}

void LibraryLines::restore() {
    if (!output_) return;
    std::fflush(stdout);
    dup2(output_.get(), STDOUT_FILENO);
    output_.reset();
}

void LibraryLines::show() {
    restore();
    if (!kept_ || lseek(kept_.get(), 0, SEEK_SET) != 0) return;
    char block[4096];
    for (ssize_t got; (got = ap::read_full(kept_.get(), block, sizeof block)) > 0;)
        std::fwrite(block, 1, static_cast<size_t>(got), stderr);
}

void add_text(cJSON *object, const char *name, const std::string &text) {
    cJSON_AddItemToObject(object, name, cJSON_CreateString(text.c_str()));
}

void print_json(const cJSON *json) {
    const ap::HeapPtr<char> text(cJSON_Print(json));
    if (text) std::puts(text.get());
}

}  // namespace apctl
