// online_table.h: looks clients up in the kernel's file of online clients, many in one reading.
#pragma once

#include <span>

namespace ap {

// A client whose address is looked up. `mac` is in the form of the kernel's file: upper case, with "-" between the
// bytes; `ip` is the caller's 16 bytes.
struct SoughtClient {
    SoughtClient() = default;
    SoughtClient(const char *client_mac, char *out);

    char mac[18];
    char *ip;
};

// Each gets the address of the first line with its MAC, else of the last line; nothing is written without a file. The
// order of `sought` is not kept.
void find_in_online_file(std::span<SoughtClient> sought);

}  // namespace ap
