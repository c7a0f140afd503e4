// network.h: what the verbs about addresses, WANs and system tables share.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>
#include <string>

#include "foundation/owned.h"
#include "tools/apctl/command.h"

namespace apctl {

// An address with its mask, in host byte order.
struct Network {
    uint32_t ip = 0, mask = 0;

    std::string ip_text() const;
    std::string mask_text() const;
    std::string text() const;  // "192.168.0.1/24"

    // True when the address is one that a host of the network can have.
    bool is_host() const;
    bool overlaps(const Network &other) const { return ((ip ^ other.ip) & mask & other.mask) == 0; }
};

// Reads "ADDRESS", "ADDRESS/PREFIX" or "ADDRESS/MASK"; without a mask the one that `network` holds stays. False, and
// `network` unchanged, when it is none of them.
bool read_network(const std::string &text, Network &network);

// While one lives, the library's own lines on standard output are kept; `show` prints them on standard error.
class LibraryLines {
public:
    LibraryLines();
    ~LibraryLines() { restore(); }
    LibraryLines(const LibraryLines &) = delete;
    LibraryLines &operator=(const LibraryLines &) = delete;

    void restore();
    void show();

private:
    ap::UniqueFd kept_, output_;
};

void add_text(cJSON *object, const char *name, const std::string &text);
void print_json(const cJSON *json);

}  // namespace apctl
