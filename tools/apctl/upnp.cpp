// upnp.cpp: `apctl upnp`: the port mappings of the UPnP daemon.

#include <cstdio>
#include <memory>

#include "apsupport/netcfg.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl upnp [--json]\n\n"
    "Lists the port mappings that the UPnP daemon left in /var/upnpmap, six fields each as it wrote them;\n"
    "exit status 1 when there is no such file.\n";

int run_upnp(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (!words.empty()) return usage_error("upnp", "takes no argument");

    LibraryLines lines;
    const auto list = std::make_unique<upnp_list>();
    const bool read = file_get_upnp_list(list.get()) == 0;
    lines.restore();
    if (!read) return std::fputs("apctl upnp: /var/upnpmap cannot be read\n", stderr), exit_failed;

    std::vector<std::vector<std::string>> rows = {{"1", "2", "3", "4", "5", "6"}};
    const ap::UniqueJson document(cJSON_CreateArray());
    for (int i = 0; i < list->count; ++i) {
        const upnp_entry &entry = list->entries[i];
        rows.push_back({entry.field_1, entry.field_2, entry.field_3, entry.field_4, entry.field_5, entry.field_6});
        cJSON *fields = cJSON_CreateArray();
        for (const auto &field : rows.back()) cJSON_AddItemToArray(fields, cJSON_CreateString(field.c_str()));
        cJSON_AddItemToArray(document.get(), fields);
    }
    json ? print_json(document.get()) : print_table(rows);
    return exit_ok;
}

const Verb verb{"upnp", "port mappings of the UPnP daemon", help, run_upnp};

}  // namespace
