// role.h: the roles of portal_peers. Each source file of this folder adds its own: `static const peers::Role
// role{...}`.
#pragma once

#include <string>
#include <vector>

namespace peers {

using Words = std::vector<std::string>;

// `run` serves until the process is ended; it returns, with the exit status, only when it cannot serve.
struct Role {
    Role(const char *name, const char *summary, int (*run)(const Words &words));

    const char *name, *summary;
    int (*run)(const Words &words);
};

// Prints "portal_peers: WHAT: REASON" with errno's reason on standard error; returns 1.
int failed(const char *what);

}  // namespace peers
