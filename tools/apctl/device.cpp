// device.cpp: `apctl device`: what the device says of itself, and its product profile.

#include <array>
#include <cstdio>
#include <ctime>

#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl device info [--json]\n"
    "       apctl device profile [ID] [--json]\n"
    "       apctl device init\n\n"
    "info     prints the device record: names, versions, build time, uptime.\n"
    "profile  prints the product profile of ID, or of this unit; exit status 1 when /etc/profile.json has none.\n"
    "init     finds this unit's profile and writes its defaults, as the device's start does.\n";

using Row = std::vector<std::string>;

int print_rows(const std::vector<Row> &rows, bool json) {
    if (!json) return print_table(rows), exit_ok;
    const ap::UniqueJson document(cJSON_CreateObject());
    for (const auto &row : rows) add_text(document.get(), row[0].c_str(), row[1]);
    print_json(document.get());
    return exit_ok;
}

template <size_t N> std::string text(const char (&field)[N]) { return std::string(ap::field_text(field)); }

int show_info(bool json) {
    device_info info;
    get_device_info(nullptr, &info);
    return print_rows({{"host name", text(info.host_name)},
                       {"vendor", text(info.vendor)},
                       {"model", text(info.model)},
                       {"hardware version", text(info.hardware_version)},
                       {"software version", text(info.software_version)},
                       {"build time", text(info.build_time)},
                       {"uptime seconds", std::to_string(info.uptime)}},
                      json);
}

void add_members(std::vector<Row> &rows, const cJSON *object, const std::string &group) {
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, object) {
        if (cJSON_IsString(member)) rows.push_back({group + member->string, member->valuestring});
        if (cJSON_IsNumber(member)) rows.push_back({group + member->string, std::to_string(member->valueint)});
        if (cJSON_IsObject(member)) add_members(rows, member, group + member->string + ": ");
    }
}

int show_profile(const std::string &id, bool json) {
    LibraryLines lines;
    const ap::UniqueJson product(create_product_profile(id.c_str()));
    lines.restore();
    if (!product) return std::fprintf(stderr, "apctl device: no profile \"%s\"\n", id.c_str()), exit_failed;
    if (json) return print_json(product.get()), exit_ok;
    std::vector<Row> rows;
    add_members(rows, product.get(), "");
    print_table(rows);
    return exit_ok;
}

int run_device(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    const std::string what = words.empty() ? "" : words[0];
    if (what == "info" && words.size() == 1) return show_info(json);
    if (what == "profile" && words.size() <= 2)
        return show_profile(words.size() == 2 ? words[1] : ap::ConfigValue("sys.profile.id").c_str(), json);
    if (what == "init" && words.size() == 1) return profile_init_product_config(1) == 0 ? exit_ok : exit_failed;
    return usage_error("device", "expected info, profile or init");
}

const Verb verb{"device", "the device record and its product profile", help, run_device};

}  // namespace
