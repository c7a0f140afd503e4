// routes.cpp: `apctl routes`: the kernel's routes and those of the static table.

#include <climits>
#include <cstdio>

#include "apsupport/netcfg.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl routes [--json]\n\n"
    "Lists the kernel's routes, then those of the table \"staticroute\", which have no metric here.\n";

constexpr int32_t no_metric = INT_MIN;  // what the library leaves in a static route

int run_routes(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (!words.empty()) return usage_error("routes", "takes no argument");

    LibraryLines lines;
    std::vector<route_entry> routes(static_cast<size_t>(file_get_route_list_num()));
    for (auto &route : routes) route.metric = no_metric;
    route_entry none;
    const bool read =
        file_get_route_table_list(routes.empty() ? &none : routes.data(), static_cast<int>(routes.size())) == 0;
    if (!read) return lines.show(), std::fputs("apctl routes: the routes cannot be read\n", stderr), exit_failed;
    lines.restore();

    std::vector<std::vector<std::string>> rows = {{"DESTINATION", "MASK", "GATEWAY", "INTERFACE", "METRIC"}};
    const ap::UniqueJson document(cJSON_CreateArray());
    for (const auto &route : routes) {
        if (route.destination[0] == '\0') continue;  // a route that went away between counting and reading
        const bool is_static = route.metric == no_metric;
        rows.push_back({route.destination, route.mask, route.gateway, route.ifname,
                        is_static ? "static" : std::to_string(route.metric)});
        cJSON *item = cJSON_CreateObject();
        add_text(item, "destination", route.destination);
        add_text(item, "mask", route.mask);
        add_text(item, "gateway", route.gateway);
        add_text(item, "interface", route.ifname);
        cJSON_AddBoolToObject(item, "static", is_static);
        if (!is_static) cJSON_AddNumberToObject(item, "metric", route.metric);
        cJSON_AddItemToArray(document.get(), item);
    }
    json ? print_json(document.get()) : print_table(rows);
    return exit_ok;
}

const Verb verb{"routes", "the kernel's and the static routes", help, run_routes};

}  // namespace
