// identify.cpp: `apctl identify`: the operating system of a client.

#include <cstdio>

#include "apsupport/identify.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl identify MAC [--service] [--json]\n\n"
    "Prints the client's operating system as the terminal identification file /var/type_identify.json has it, or,\n"
    "with --service, as the user-information service answers. The first entry whose MAC begins with MAC counts.\n"
    "The exit status is 1 when nothing is known.\n";

int run_identify(const Words &given) {
    Words words = given;
    const bool from_service = take_flag(words, "--service"), json = take_flag(words, "--json");
    if (words.size() != 1 || words[0].empty()) return usage_error("identify", "it takes one MAC");

    char os[32] = "";
    LibraryLines lines;
    const int result = (from_service ? get_os_info_by_user_info : ap_client_identify_get_os_info)(words[0].c_str(), os);
    lines.show();
    if (result != 0)
        return std::fputs("apctl identify: the client's system could not be looked up\n", stderr), exit_failed;
    if (json) {
        const ap::UniqueJson document(cJSON_CreateObject());
        add_text(document.get(), "mac", words[0]);
        add_text(document.get(), "os", os);
        print_json(document.get());
    } else {
        std::puts(*os == '\0' ? "unknown" : os);
    }
    return *os == '\0' ? exit_failed : exit_ok;
}

const Verb verb{"identify", "operating system of a client", help, run_identify};

}  // namespace
