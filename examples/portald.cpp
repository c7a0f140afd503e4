// portald.cpp: a captive portal's daemon: accounts and lists from the library, a message-server endpoint to ask, and
// the frames by which access points tell one another whom to kick off.
//
//   portald [--accounts FILE] [--interface br0] [--redirect ADDRESS] [--public FILE] &
//   apctl portal login guest secret 02:00:00:00:00:01
//
// A line of the accounts file is "NAME;PASSWORD;DEVICES[;EXPIRY]", DEVICES being "*" or MACs with commas between them;
// one of the public file "IDENTITY;PASSWORD;SIGNATURE;BODY", for the text messages. Questions are words with tabs
// between them; answers begin with the line "ok" or "failed" (see tools/apctl/portal.cpp). One thread runs the message
// loop, a second one listens for frames; what both ask of the kernel module goes through one mutex.

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <netdb.h>
#include <sstream>
#include <string>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <vector>

#include "apsupport/msgserver.h"
#include "apsupport/portal.h"
#include "examples/portal_segment.h"

namespace {

using namespace portald;
using Words = std::vector<std::string>;

constexpr size_t page_size = 100;
constexpr unsigned int sweep_seconds = 10;

std::map<std::string, bool> accounts;  // what was added; true: any device
portal_white_list white_list;
portal_black_list black_list;

struct Answer {
    bool ok;
    std::string text;
};

Words split(const std::string &text, char separator) {
    Words parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

bool read_number(const std::string &text, uint64_t &number) {
    if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    number = std::strtoull(text.c_str(), nullptr, 10);
    return true;
}

// ---- accounts -------------------------------------------------------------------------------------------------------

Answer add_account(const Words &words) {
    portal_web_record record = {};
    if (!fill(record.user_name, words[0]) || !fill(record.password, words[1]))
        return {false, "a name or a password has at most 16 characters"};
    if (accounts.contains(words[0])) return {false, "there is an account of that name"};
    const Words macs = split(words[2], ',');
    if (macs.size() > std::size(record.macs)) return {false, "an account has at most 20 devices"};
    record.shared = words[2] == "*" ? 1 : 0;
    for (size_t i = 0; i < macs.size() && record.shared == 0; ++i) {
        Mac mac;
        if (!read_mac(macs[i], mac)) return {false, "\"" + macs[i] + "\" is no MAC"};
        fill(record.macs[i], mac_text(mac.data()));
    }
    if (words.size() > 3) {
        int part;
        // NOLINTNEXTLINE(cert-err34-c): the form alone is looked at
        if (std::sscanf(words[3].c_str(), "%d-%d-%d %d:%d", &part, &part, &part, &part, &part) != 5)
            return {false, "an expiry is \"YYYY-MM-DD HH:MM\""};
        record.expires = 1;
        fill(record.expiry_date, words[3]);
    }
    if (tpi_ap_portal_add_web_user(1, &record) != 0)
        return {false, "a name begins with a letter, a digit, \".\", \"_\" or \"-\""};
    accounts[words[0]] = record.shared != 0;
    return {true, "added"};
}

portal_web_request request_of(const std::string &name, const std::string &password = {}, const std::string &mac = {}) {
    portal_web_request request = {};
    fill(request.user_name, name);
    fill(request.password, password);
    fill(request.mac, mac);
    return request;
}

Answer remove_account(const Words &words) {
    const portal_web_request request = request_of(words[0]);
    accounts.erase(words[0]);
    return tpi_ap_portal_del_web_user(&request) == 0 ? Answer{true, "removed"} : Answer{false, "no such account"};
}

Answer log_in(const Words &words) {
    Mac mac;
    if (!read_mac(words[2], mac)) return {false, "\"" + words[2] + "\" is no MAC"};
    const std::string device = mac_text(mac.data());
    if (tpi_check_white_mac(device.c_str()) == 9) return {true, "the device needs no log-in"};
    const portal_web_request request = request_of(words[0], words[1], device);
    switch (tpi_ap_portal_check_web_user(&request)) {
    case 15: return announce(words[0], mac), Answer{true, "welcome"};
    case 14: return {false, "the device is not bound to this account"};
    case 13: return {false, "the account is expired"};
    default: return {false, "no such account, or a wrong password"};
    }
}

Answer log_out(const Words &words) {
    Mac mac;
    if (!read_mac(words[1], mac)) return {false, "\"" + words[1] + "\" is no MAC"};
    const portal_web_request request = request_of(words[0], {}, mac_text(mac.data()));
    if (tpi_ap_portal_modify_web_user_state(&request) != 0) return {false, "not logged in"};
    kick_here({mac});
    return {true, "goodbye"};
}

Answer kick(const Words &words) {
    std::vector<Mac> macs(words.size());
    if (macs.size() > most_frame_macs) return {false, "at most 170 devices at a time"};
    for (size_t i = 0; i < macs.size(); ++i)
        if (!read_mac(words[i], macs[i])) return {false, "\"" + words[i] + "\" is no MAC"};
    return kick_everywhere(macs) ? Answer{true, "sent"} : Answer{false, "the frame could not be sent"};
}

// ---- tables: a heading, and a page behind the rows that were seen
// ----------------------------------------------------

Answer page_of(const std::string &heading, const Words &rows, const Words &words) {
    uint64_t seen = 0;
    if (!words.empty() && !read_number(words[0], seen)) return {false, "a table takes the rows that were seen"};
    std::string text = heading;
    const auto first = static_cast<size_t>(std::min<uint64_t>(seen, rows.size()));
    for (size_t i = first; i < std::min<size_t>(rows.size(), first + page_size); ++i) text += "\n" + rows[i];
    return {true, text};
}

Answer list_users(const Words &words) {
    constexpr const char *states[] = {"nobody logged in", "logged in", "expired"};
    Words rows;
    for (const auto &[name, shared] : accounts) {
        portal_web_request request = request_of(name);
        if (tpi_get_web_state(&request) != 0 || request.state >= std::size(states)) continue;
        rows.push_back(name + "\t" + states[request.state] + "\t" + (shared ? "any" : "bound"));
    }
    return page_of("NAME\tSTATE\tDEVICES", rows, words);
}

Answer list_clients(const Words &words) {
    const std::lock_guard lock(module_mutex);
    unsigned int count = 0;
    if (tpi_ap_portal_get_node_info(&count) != 0) return {false, "the kernel module does not answer"};
    const auto *records = static_cast<const peers::ClientRecord *>(portal_info);
    Words rows;
    for (unsigned int i = 0; i < count; ++i) {
        const bool is_phone = ap::le32(records[i].kind) == peers::phone_kind;
        rows.push_back(mac_text(records[i].mac) + "\t" + std::string(ap::field_text(records[i].user_name)) + "\t" +
                       (is_phone ? std::to_string(ap::le64(records[i].phone)) : "-"));
    }
    forget_records();
    return page_of("MAC\tUSER\tPHONE", rows, words);
}

// ---- phones and lists -----------------------------------------------------------------------------------------------

ap::UniqueFd connect_to(const std::string &host, const std::string &port) {
    addrinfo wanted = {}, *found = nullptr;
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(host.c_str(), port.c_str(), &wanted, &found) != 0) return ap::UniqueFd();
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    ap::UniqueFd link(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit = {3, 0};
    setsockopt(link.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(link.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (!link || connect(link.get(), found->ai_addr, found->ai_addrlen) != 0) link.reset();
    return link;
}

// True when the gateway at "http://HOST:PORT/..." took the request.
bool send_to_gateway(const std::string &url) {
    constexpr size_t host_start = sizeof "http://" - 1;
    const size_t path = url.find('/', host_start), colon = url.rfind(':', path);
    if (path == std::string::npos || colon <= host_start) return false;
    const ap::UniqueFd link =
        connect_to(url.substr(host_start, colon - host_start), url.substr(colon + 1, path - colon - 1));
    const std::string request = "GET " + url.substr(path) + " HTTP/1.0\r\n\r\n";
    char answer[64] = {};
    if (!link || !ap::write_full(link.get(), request.data(), request.size())) return false;
    return ap::read_full(link.get(), answer, sizeof answer - 1) > 0 && std::strstr(answer, " 200 ") != nullptr;
}

Answer ask_for_code(portal_phone_request &request) {
    if (tpi_check_black_list(&request) == 18) return {false, "the number is on the black list"};
    if (tpi_ap_portal_add_phone_list(&request) != 0) return {false, "no memory"};
    if (request.url[0] == '\0') return {false, "text messages are switched off"};
    return send_to_gateway(request.url) ? Answer{true, "a code is on its way"}
                                        : Answer{false, "the gateway does not answer"};
}

Answer use_phone(const Words &words) {
    portal_phone_request request = {};
    uint64_t code = 0;
    Mac mac;
    if (!read_number(words[1], request.phone)) return {false, "\"" + words[1] + "\" is no phone number"};
    if (words[0] == "ask" && words.size() == 2) return ask_for_code(request);
    if (words[0] != "check" || words.size() != 4) return {false, "phone takes ask NUMBER or check NUMBER CODE MAC"};
    if (!read_number(words[2], code) || !read_mac(words[3], mac)) return {false, "a code is a number, a device a MAC"};
    request.code = static_cast<uint32_t>(std::min<uint64_t>(code, UINT32_MAX));
    fill(request.mac, mac_text(mac.data()));
    fill(request.user_name, words[1]);
    return tpi_ap_portal_check_phone(&request) == 0 ? Answer{true, "welcome"} : Answer{false, "the code is wrong"};
}

// Puts `same` to the end of a list or takes it out; false when there is no room, or nothing to take out.
template <typename Entry, size_t N, typename Same>
bool change_list(Entry (&entries)[N], uint32_t &count, bool add, const Entry &entry, Same same) {
    Entry *const end = entries + count, *const found = std::find_if(entries, end, same);
    if (add == (found != end)) return false;
    if (add && count == N) return false;
    if (add) return std::memcpy(&entries[count++], &entry, sizeof entry), true;
    std::memmove(found, found + 1, static_cast<size_t>(end - found - 1) * sizeof entry);
    return --count, true;
}

Answer change_white(bool add, const std::string &text) {
    Mac mac;
    char entry[18];
    if (!read_mac(text, mac)) return {false, "\"" + text + "\" is no MAC"};
    fill(entry, mac_text(mac.data()));
    const auto same = [&](const auto &other) { return std::memcmp(other, entry, sizeof entry) == 0; };
    if (!change_list(white_list.macs, white_list.count, add, entry, same))
        return {false, "the list is full or has it so"};
    tpi_init_white_mac_list(&white_list);
    return {true, "changed"};
}

Answer change_black(bool add, const std::string &text) {
    uint64_t number = 0;
    if (!read_number(text, number)) return {false, "\"" + text + "\" is no phone number"};
    const auto same = [&](uint64_t other) { return other == number; };
    if (!change_list(black_list.phones, black_list.count, add, number, same))
        return {false, "the list is full or has it so"};
    tpi_ap_portal_init_black_list(&black_list);
    return {true, "changed"};
}

Answer use_lists(const Words &words) {
    if (words.size() == 3 && (words[1] == "add" || words[1] == "remove")) {
        if (words[0] == "white") return change_white(words[1] == "add", words[2]);
        if (words[0] == "black") return change_black(words[1] == "add", words[2]);
    }
    if (words.size() > 1) return {false, "lists takes white|black add|remove ENTRY"};
    Words rows;
    for (uint32_t i = 0; i < white_list.count; ++i)
        rows.push_back("white\t" + std::string(ap::field_text(white_list.macs[i])));
    for (uint32_t i = 0; i < black_list.count; ++i) rows.push_back("black\t" + std::to_string(black_list.phones[i]));
    return page_of("LIST\tENTRY", rows, words);
}

// ---- the endpoint ---------------------------------------------------------------------------------------------------

constexpr struct {
    const char *name;
    size_t least, most;  // words behind it
    Answer (*run)(const Words &words);
} commands[] = {
    {"users", 0, 1, list_users},      {"clients", 0, 1, list_clients}, {"add", 3, 4, add_account},
    {"remove", 1, 1, remove_account}, {"login", 3, 3, log_in},         {"logout", 2, 2, log_out},
    {"phone", 2, 4, use_phone},       {"lists", 0, 3, use_lists},      {"kick", 1, most_frame_macs, kick},
};

Answer answer_to(Words words) {
    for (const auto &command : commands) {
        if (words.empty() || words[0] != command.name) continue;
        words.erase(words.begin());
        if (words.size() < command.least || words.size() > command.most)
            return {false, std::string(command.name) + " takes other words"};
        return command.run(words);
    }
    return {false, "there is no such command"};
}

int handle(ms_session *session, char *data, int length) {
    if (length <= 0) return 0;
    const Answer answer = answer_to(split({data, static_cast<size_t>(length)}, '\t'));
    const std::string text = (answer.ok ? "ok\n" : "failed\n") + answer.text + "\n";
    return ms_send(session, text.data(), static_cast<int>(text.size()));
}

// A timer fires once: it adds itself again.
void sweep(void *, int) {
    tpi_web_user_timeout(&batch);
    tpi_phone_username_timeout();
    ms_add_timer(sweep, nullptr, 0, sweep_seconds, 0);
}

bool read_accounts(const std::string &path) {
    std::ifstream file(path);
    if (!file) return false;
    for (std::string line; std::getline(file, line);) {
        const Words words = split(line, ';');
        if (line.empty() || line[0] == '#') continue;
        const Answer answer =
            words.size() == 3 || words.size() == 4 ? add_account(words) : Answer{false, "three or four fields"};
        if (!answer.ok)
            std::fprintf(stderr, "portald: %s: \"%s\": %s\n", path.c_str(), line.c_str(), answer.text.c_str());
    }
    return true;
}

bool read_public_info(const std::string &path) {
    std::ifstream file(path);
    std::string line;
    portal_public_info info = {};
    info.build_request = 1;
    std::getline(file, line);
    const Words words = split(line, ';');
    if (words.size() != 4 || !fill(info.identity, words[0]) || !fill(info.password, words[1]) ||
        !fill(info.signature, words[2]) || !fill(info.body, words[3]))
        return false;
    return tpi_ap_portal_init_public_info(&info) == 0;
}

bool redirect_to(const std::string &address) {
    in_addr parsed;
    return inet_pton(AF_INET, address.c_str(), &parsed) == 1 && tpi_ap_portal_nat_rule(address.c_str(), 1) == 0;
}

// What the options say; empty, or what is wrong.
std::string start(const std::map<std::string, std::string> &options) {
    std::string interface = "br0";
    for (const auto &[name, value] : options) {
        if (name == "--interface")
            interface = value;
        else if (name == "--accounts" && !read_accounts(value))
            return value + " cannot be read";
        else if (name == "--public" && !read_public_info(value))
            return value + " holds no line IDENTITY;PASSWORD;SIGNATURE;BODY";
        else if (name == "--redirect" && !redirect_to(value))
            return value + " is no IPv4 address";
    }
    if (!join_segment(interface.c_str())) return interface + " cannot be used for frames";
    return ms_server("unix:portal", handle) == nullptr ? "there is no endpoint" : "";
}

// False when the words are no pairs of a known option and its value.
bool read_options(const Words &words, std::map<std::string, std::string> &options) {
    constexpr const char *known[] = {"--accounts", "--interface", "--redirect", "--public"};
    for (size_t i = 0; i < words.size(); i += 2) {
        if (i + 1 == words.size() || std::ranges::find(known, words[i]) == std::end(known)) return false;
        options[words[i]] = words[i + 1];
    }
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    std::map<std::string, std::string> options;
    if (!read_options({argv + 1, argv + argc}, options)) {
        std::fprintf(stderr, "usage: %s [--accounts FILE] [--interface NAME] [--redirect ADDRESS] [--public FILE]\n",
                     argv[0]);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    unsigned int seed = 0;  // of the phone codes
    if (getrandom(&seed, sizeof seed, 0) != sizeof seed) return std::perror("portald: getrandom"), 1;
    std::srand(seed);
    const std::string fault = start(options);
    if (!fault.empty()) return std::fprintf(stderr, "portald: %s\n", fault.c_str()), 1;
    ms_add_timer(sweep, nullptr, 0, sweep_seconds, 0);
    ms_run();
}
