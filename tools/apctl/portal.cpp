// portal.cpp: `apctl portal`: talks to the portal daemon (examples/portald) at "unix:portal".
//
// A question is the words, a tab between them. The answer's first line is "ok" or "failed"; behind it stand a message,
// or rows of a table whose first is the heading, again with tabs. Tables come in pages: a question with the number of
// rows that were seen, until a page is not full.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <string_view>

#include "apsupport/msgserver.h"
#include "tools/apctl/network.h"

namespace {

using namespace apctl;
using Row = std::vector<std::string>;

constexpr char help[] =
    "usage: apctl portal users [--json]\n"
    "       apctl portal clients [--json]\n"
    "       apctl portal add NAME PASSWORD DEVICES [EXPIRY]\n"
    "       apctl portal remove NAME\n"
    "       apctl portal login NAME PASSWORD MAC\n"
    "       apctl portal logout NAME MAC\n"
    "       apctl portal phone ask NUMBER\n"
    "       apctl portal phone check NUMBER CODE MAC\n"
    "       apctl portal lists [--json]\n"
    "       apctl portal lists white|black add|remove ENTRY\n"
    "       apctl portal kick MAC...\n\n"
    "users    lists the accounts, clients who is online at this access point.\n"
    "add      makes an account. DEVICES is \"*\" for any, or up to 20 MACs with commas between them;\n"
    "         EXPIRY is \"YYYY-MM-DD HH:MM\", the device's local time.\n"
    "phone    asks for a code, or proves one.\n"
    "lists    shows or changes the white list of MACs and the black list of phone numbers.\n"
    "kick     sends devices off at all access points of the segment.\n\n"
    "The exit status is 1 when the portal refuses or does not answer.\n";

constexpr size_t page_size = 100;

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// False, and the reason printed, when the portal refuses or does not answer.
bool ask(const Words &words, std::vector<std::string> &lines) {
    std::string question;
    for (const auto &word : words) question += (question.empty() ? "" : "\t") + word;
    std::string answer(16384, '\0');
    LibraryLines library;
    const int got = ms_dialog("unix:portal", question.data(), static_cast<int>(question.size()), answer.data(),
                              static_cast<int>(answer.size()));
    library.restore();
    answer.resize(got > 0 ? static_cast<size_t>(got) : 0);
    lines = split(answer, '\n');
    const bool is_ok = !lines.empty() && lines.front() == "ok";
    if (is_ok) return lines.erase(lines.begin()), true;
    const std::string reason = lines.empty()      ? "the portal daemon does not answer"
                               : lines.size() > 1 ? lines[1]
                                                  : "refused";
    std::fprintf(stderr, "apctl portal: %s\n", reason.c_str());
    return false;
}

void print_rows_json(const std::vector<Row> &rows) {
    const ap::UniqueJson document(cJSON_CreateArray());
    for (size_t i = 1; i < rows.size(); ++i) {
        cJSON *item = cJSON_CreateObject();
        for (size_t column = 0; column < std::min(rows[0].size(), rows[i].size()); ++column) {
            std::string name = rows[0][column];
            std::ranges::transform(name, name.begin(),
                                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            add_text(item, name.c_str(), rows[i][column]);
        }
        cJSON_AddItemToArray(document.get(), item);
    }
    print_json(document.get());
}

int show_table(const std::string &name, bool json) {
    std::vector<Row> rows;
    for (size_t seen = 0;; seen += page_size) {
        std::vector<std::string> lines;
        if (!ask({name, std::to_string(seen)}, lines)) return exit_failed;
        for (size_t i = rows.empty() ? 0 : 1; i < lines.size(); ++i) rows.push_back(split(lines[i], '\t'));
        if (lines.size() <= page_size) break;  // one of them is the heading
    }
    json ? print_rows_json(rows) : print_table(rows);
    return exit_ok;
}

// How many words a command takes, its own name among them; "lists" alone is a table.
constexpr struct {
    std::string_view name;
    size_t least, most;
} commands[] = {{"add", 4, 5},   {"remove", 2, 2}, {"login", 4, 4}, {"logout", 3, 3},
                {"phone", 3, 5}, {"lists", 4, 4},  {"kick", 2, 64}};

bool is_command(const Words &words) {
    return std::ranges::any_of(commands, [&](const auto &command) {
        return command.name == words[0] && words.size() >= command.least && words.size() <= command.most;
    });
}

int run_portal(const Words &given) {
    Words words = given;
    const bool json = take_flag(words, "--json");
    if (words.empty()) return usage_error("portal", "it takes a command");
    for (const auto &word : words)
        if (word.find_first_of("\t\n") != std::string::npos)
            return usage_error("portal", "no word holds a tab or line end");
    const bool is_table = words.size() == 1 && (words[0] == "users" || words[0] == "clients" || words[0] == "lists");
    if (is_table) return show_table(words[0], json);
    if (json) return usage_error("portal", "--json goes with users, clients and lists");
    if (!is_command(words)) return usage_error("portal", "there is no such command \"" + words[0] + "\", or not so");

    std::vector<std::string> lines;
    if (!ask(words, lines)) return exit_failed;
    for (const auto &line : lines) std::puts(line.c_str());
    return exit_ok;
}

const Verb verb{"portal", "captive portal: accounts, log-ins, phones, lists", help, run_portal};

}  // namespace
