// main.cpp: portal_peers: stands in for one of those whom the captive portal talks to. They print what reaches them,
// one line each.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/portal_peers/role.h"

namespace peers {

namespace {

std::vector<const Role *> &roles() {
    static std::vector<const Role *> all;
    return all;
}

int print_usage(FILE *out, int status) {
    std::fputs("usage: portal_peers ROLE [OPTION...]\n\n", out);
    for (const Role *role : roles()) std::fprintf(out, "  %-11s %s\n", role->name, role->summary);
    std::fputs("\nA role serves until it is ended, in the device box where it was started.\n", out);
    return status;
}

}  // namespace

Role::Role(const char *role_name, const char *role_summary, int (*role_run)(const Words &words))
    : name(role_name), summary(role_summary), run(role_run) {
    roles().push_back(this);
}

int failed(const char *what) {
    std::fprintf(stderr, "portal_peers: %s: %s\n", what, std::strerror(errno));
    return 1;
}

}  // namespace peers

int main(int argc, char **argv) {
    const peers::Words words(argv + 1, argv + argc);
    std::ranges::sort(peers::roles(), {}, [](const peers::Role *role) { return std::string(role->name); });
    if (words.empty()) return peers::print_usage(stderr, 2);
    if (words[0] == "--help") return peers::print_usage(stdout, 0);
    for (const peers::Role *role : peers::roles()) {
        if (words[0] != role->name) continue;
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        return role->run({words.begin() + 1, words.end()});
    }
    return peers::print_usage(stderr, 2);
}
