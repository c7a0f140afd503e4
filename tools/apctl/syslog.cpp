// syslog.cpp: `apctl syslog`: the newest lines of the system log as a table.

#include <cstdio>

#include "apsupport/product.h"
#include "foundation/text.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;

constexpr char help[] =
    "usage: apctl syslog [-n N] [--type TYPE] [--json]\n\n"
    "Lists what the newest N lines (50; at most 100000) of the system log say, the oldest first.\n"
    "--type shows of those lines the ones with this type number: 1 System, 2 Web Filter, 3 to 6 WAN, 8 LAN DHCP.\n"
    "Lines of another form are left out. The log's path is the setting syslogs.system.path, else /var/logs.txt.\n";

constexpr int most_lines = 100000;

// False when the option is there and no number from `least` to `most`.
bool take_number(Words &words, const char *option, int least, int most, int &number) {
    std::string text;
    if (!take_option(words, option, text)) return true;
    if (text.empty() || text.size() > 6 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    number = ap::to_int(text.c_str());
    return number >= least && number <= most;
}

void print_entries(const std::vector<log_entry> &entries) {
    std::vector<std::vector<std::string>> rows = {{"TIME", "TYPE", "MESSAGE"}};
    for (const auto &entry : entries) rows.push_back({entry.time, entry.type, entry.message});
    print_table(rows);
}

void print_entries_json(const std::vector<log_entry> &entries) {
    const ap::UniqueJson document(cJSON_CreateArray());
    for (const auto &entry : entries) {
        cJSON *item = cJSON_CreateObject();
        add_text(item, "time", entry.time);
        add_text(item, "type", entry.type);
        add_text(item, "message", entry.message);
        cJSON_AddItemToArray(document.get(), item);
    }
    print_json(document.get());
}

int run_syslog(const Words &given) {
    Words words = given;
    int lines_wanted = 50, type = 0, count = 0;
    const bool json = take_flag(words, "--json");
    if (!take_number(words, "-n", 1, most_lines, lines_wanted)) return usage_error("syslog", "-n takes 1 to 100000");
    if (!take_number(words, "--type", 0, 255, type)) return usage_error("syslog", "--type takes a number");
    if (!words.empty()) return usage_error("syslog", "there is no \"" + words[0] + "\"");

    LibraryLines lines;
    std::vector<log_entry> entries(static_cast<size_t>(lines_wanted));
    const bool read = file_syslog_get_lists(entries.data(), type, &count, lines_wanted) == 0;
    if (!read) return lines.show(), std::fputs("apctl syslog: the log cannot be read\n", stderr), exit_failed;
    lines.restore();
    entries.resize(static_cast<size_t>(count));
    std::erase_if(entries, [](const log_entry &entry) { return entry.message[0] == '\0'; });  // rejected, never written
    json ? print_entries_json(entries) : print_entries(entries);
    return exit_ok;
}

const Verb verb{"syslog", "newest lines of the system log", help, run_syslog};

}  // namespace
