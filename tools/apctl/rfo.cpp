// rfo.cpp: `apctl rfo`: the radio optimiser of this access point: survey runs with their decoded records, and applying
// what a controller would.
//
// The library reports on threads of its own; the reporter keeps the records until this thread, which shows progress
// meanwhile, finds them. A run that fails brings no record, so every wait has an end.

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "apsupport/rfo.h"
#include "apsupport/wireless.h"
#include "tools/apctl/rfo_records.h"
#include "tools/apctl/wifi.h"

namespace {

using namespace apctl;
using namespace rfo_records;
using Row = std::vector<std::string>;
using Report = std::vector<uint8_t>;

constexpr char help[] =
    "usage: apctl rfo survey [--power] [--delay SECONDS] [--json]\n"
    "       apctl rfo apply CHANNEL BANDWIDTH CHANNEL BANDWIDTH [--schedule] [--json]\n"
    "       apctl rfo power POWER POWER\n"
    "       apctl rfo scene [11k] [11v] [11r] --limits DB,DB,DB,DB\n\n"
    "survey  measures all channels and the access points of this system nearby, and shows the record that a\n"
    "        controller gets; with --power, how strongly those are heard, and the own range of powers. The channels\n"
    "        are measured by wifi_measure, which must run. The radios stay on their channels.\n"
    "apply   moves the 2.4 GHz radio, then the 5 GHz radio. With --schedule a radio with clients is moved only when\n"
    "        it carries next to nothing for half a minute.\n"
    "power   sets the 2.4 GHz power, then the 5 GHz power, as people see them; 0 leaves a radio alone\n"
    "scene   sets the roaming protocols of all SSIDs and, in dB below 0, when clients are steered: the 2.4 GHz limit,\n"
    "        the 5 GHz limit, what is safe on 5 GHz for another band, and for another access point\n\n"
    "The exit status is 1 when a run brings no record, or a radio is not switched.\n";

constexpr unsigned int longest_run_seconds = 180;
constexpr unsigned char immediate = 0, schedule = 1;

// What the library reported.
class Reporter {
public:
    void put(const void *record, int length) {
        const std::lock_guard lock(mutex_);
        const auto *bytes = static_cast<const uint8_t *>(record);
        records_.emplace_back(bytes, bytes + length);
    }
    std::vector<Report> records() const {
        const std::lock_guard lock(mutex_);
        return records_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Report> records_;
};
Reporter reporter;
void report(const void *record, int length) { reporter.put(record, length); }

// Waits for so many records, and shows on a terminal that it goes on.
bool wait_for_records(size_t count) {
    const bool is_terminal = isatty(STDERR_FILENO) != 0;
    for (unsigned int waited = 0; reporter.records().size() < count && waited < longest_run_seconds; ++waited) {
        if (is_terminal) std::fprintf(stderr, "\rmeasuring, %u s ", waited);
        sleep(1);
    }
    if (is_terminal) std::fputs("\r\033[K", stderr);
    return reporter.records().size() >= count;
}

// ---- records --------------------------------------------------------------------------------------------------------

std::string strength_text(int rssi) { return rssi == 0 ? "not heard" : std::to_string(rssi) + " dBm"; }

void add_number(cJSON *object, const char *name, double number) { cJSON_AddNumberToObject(object, name, number); }

// A new object at the end of a list.
cJSON *add_item(cJSON *list) {
    cJSON *object = cJSON_CreateObject();
    cJSON_AddItemToArray(list, object);
    return object;
}

void add_neighbours(cJSON *document, const std::vector<NeighbourRecord> &neighbours) {
    cJSON *list = cJSON_AddArrayToObject(document, "neighbours");
    for (const NeighbourRecord &neighbour : neighbours) {
        cJSON *object = add_item(list);
        add_text(object, "identity", text_of(neighbour.identity));
        add_number(object, "rssi_24g", neighbour.rssi_24g);
        add_number(object, "rssi_5g", neighbour.rssi_5g);
    }
}

void print_neighbours(const std::vector<NeighbourRecord> &neighbours) {
    if (neighbours.empty()) return void(std::puts("no access point of this system nearby"));
    std::vector<Row> rows = {{"ACCESS POINT", "ON 2.4 GHz", "ON 5 GHz"}};
    for (const NeighbourRecord &neighbour : neighbours)
        rows.push_back(
            {text_of(neighbour.identity), strength_text(neighbour.rssi_24g), strength_text(neighbour.rssi_5g)});
    print_table(rows);
}

void print_as_json(const ChannelSurvey &survey) {
    const ap::UniqueJson document(cJSON_CreateObject());
    add_text(document.get(), "mac", text_of(survey.head.mac));
    cJSON *bands = cJSON_AddArrayToObject(document.get(), "bands");
    for (size_t i = 0; i < survey.channels.size(); ++i) {
        cJSON *band = add_item(bands);
        add_text(band, "band", wifi::bands[i].text);
        const ChannelRecord own = survey.channels[i].empty() ? ChannelRecord{} : survey.channels[i].front();
        add_number(band, "own_channel", own.own_channel);
        add_number(band, "own_bandwidth", own.own_bandwidth);
        add_number(band, "own_extension", own.own_extension);
        cJSON *list = cJSON_AddArrayToObject(band, "channels");
        for (const ChannelRecord &channel : survey.channels[i]) {
            cJSON *object = add_item(list);
            add_number(object, "channel", channel.channel);
            add_number(object, "ap_num", channel.ap_num);
            add_number(object, "busy", channel.busy);
            add_number(object, "score", channel.score);
        }
    }
    add_neighbours(document.get(), survey.neighbours);
    print_json(document.get());
}

void print(const ChannelSurvey &survey) {
    for (size_t i = 0; i < survey.channels.size(); ++i) {
        const auto &channels = survey.channels[i];
        if (channels.empty()) {
            std::printf("%s: not measured\n", wifi::bands[i].text);
            continue;
        }
        std::printf("%s: on channel %d, %d MHz\n", wifi::bands[i].text, channels[0].own_channel,
                    channels[0].own_bandwidth);
        std::vector<Row> rows = {{"CHANNEL", "NETWORKS", "LOAD", "SCORE"}};
        for (const ChannelRecord &channel : channels) {
            rows.push_back({std::to_string(channel.channel), std::to_string(channel.ap_num),
                            std::to_string(channel.busy) + "% " + wifi::bar(channel.busy, 100),
                            std::to_string(channel.score)});
        }
        print_table(rows);
    }
    print_neighbours(survey.neighbours);
}

struct PowerRange {
    int current, least, most;
};
std::array<PowerRange, 2> ranges_of(const ap_rf_power_info &head) {
    return {{{head.cur_24g, head.min_24g, head.max_24g}, {head.cur_5g, head.min_5g, head.max_5g}}};
}

void print_as_json(const PowerSurvey &survey) {
    const ap::UniqueJson document(cJSON_CreateObject());
    add_text(document.get(), "mac", text_of(survey.head.mac));
    cJSON *bands = cJSON_AddArrayToObject(document.get(), "bands");
    const auto ranges = ranges_of(survey.head);
    for (size_t i = 0; i < ranges.size(); ++i) {
        cJSON *band = add_item(bands);
        add_text(band, "band", wifi::bands[i].text);
        add_number(band, "power", ranges[i].current);
        add_number(band, "least", ranges[i].least);
        add_number(band, "most", ranges[i].most);
    }
    add_neighbours(document.get(), survey.neighbours);
    print_json(document.get());
}

void print(const PowerSurvey &survey) {
    const auto ranges = ranges_of(survey.head);
    for (size_t i = 0; i < ranges.size(); ++i)
        std::printf("%s: power %d, from %d to %d\n", wifi::bands[i].text, ranges[i].current, ranges[i].least,
                    ranges[i].most);
    print_neighbours(survey.neighbours);
}

// ---- the commands ---------------------------------------------------------------------------------------------------

bool read_byte(const std::string &text, unsigned char &byte) {
    if (!wifi::is_number(text) || std::stoi(text) > UINT8_MAX) return false;
    byte = static_cast<unsigned char>(std::stoi(text));
    return true;
}

using StartSurvey = int (*)(rfo_callback callback, const void *request);

template <typename Survey> int run_one(StartSurvey start, const unsigned char (&request)[2], bool json) {
    LibraryLines lines;
    Survey survey;
    if (start(report, request) != 0 || !wait_for_records(1) || !decode(reporter.records().front(), survey))
        return lines.show(), std::fputs("apctl rfo: the survey brought no record\n", stderr), exit_failed;
    lines.restore();
    json ? print_as_json(survey) : print(survey);
    return exit_ok;
}

// A power survey at once would move both radios to its reference channels.
int run_survey(Words words) {
    const bool json = take_flag(words, "--json"), power = take_flag(words, "--power");
    std::string delay = "0";
    take_option(words, "--delay", delay);
    unsigned char request[2] = {power ? schedule : immediate, 0};
    if (!words.empty() || !read_byte(delay, request[1]))
        return usage_error("rfo", "survey takes --power, --delay and up to 255 seconds, and --json");
    return power ? run_one<PowerSurvey>(set_ap_power_optmz, request, json)
                 : run_one<ChannelSurvey>(set_ap_chan_optmz, request, json);
}

// The results of both bands. By schedule, a band that waits reports 0 at first and later in a record of its own.
struct BandResult {
    int code, channel, bandwidth;
};
std::array<BandResult, 2> results_of(const std::vector<Report> &records) {
    std::array<BandResult, 2> results = {};
    for (const Report &bytes : records) {
        ChannelSwitchResult r;
        if (!decode(bytes, r)) continue;
        if (r.result_24g != 0) results[0] = {r.result_24g, r.channel_24g, r.bandwidth_24g};
        if (r.result_5g != 0) results[1] = {r.result_5g, r.channel_5g, r.bandwidth_5g};
    }
    return results;
}

bool is_switched(const BandResult &result) { return result.code == 2 || result.code == 3; }

void print_results(const std::array<BandResult, 2> &results, bool json) {
    constexpr const char *texts[] = {"no result", "not switched", "applied", "applied with another bandwidth"};
    const ap::UniqueJson document(cJSON_CreateArray());
    std::vector<Row> rows = {{"BAND", "CHANNEL", "MHz", "RESULT"}};
    for (size_t i = 0; i < results.size(); ++i) {
        const auto &[code, channel, bandwidth] = results[i];
        const char *text = texts[static_cast<size_t>(code) < std::size(texts) ? code : 0];
        cJSON *object = add_item(document.get());
        add_text(object, "band", wifi::bands[i].text);
        add_number(object, "channel", channel);
        add_number(object, "bandwidth", bandwidth);
        add_text(object, "result", text);
        rows.push_back({wifi::bands[i].text, std::to_string(channel), std::to_string(bandwidth), text});
    }
    json ? print_json(document.get()) : print_table(rows);
}

int run_apply(Words words) {
    const bool json = take_flag(words, "--json"), by_schedule = take_flag(words, "--schedule");
    unsigned char request[5] = {by_schedule ? schedule : immediate};
    bool is_read = words.size() == 4;
    for (size_t i = 0; is_read && i < words.size(); ++i) is_read = read_byte(words[i], request[1 + i]);
    if (!is_read) return usage_error("rfo", "apply takes a channel and a bandwidth for each of the two radios");

    LibraryLines lines;
    if (set_ap_chan_optmzCfg(report, request) != 2) return lines.show(), exit_failed;
    const auto first = results_of(reporter.records());
    const auto waiting = std::ranges::count(first, 0, &BandResult::code);
    if (by_schedule) wait_for_records(1 + static_cast<size_t>(waiting));
    lines.restore();
    const auto results = results_of(reporter.records());
    print_results(results, json);
    return std::ranges::all_of(results, is_switched) ? exit_ok : exit_failed;
}

int run_power(const Words &words) {
    unsigned char request[2] = {};
    if (words.size() != 2 || !read_byte(words[0], request[0]) || !read_byte(words[1], request[1]))
        return usage_error("rfo", "power takes the 2.4 GHz power and the 5 GHz power");
    LibraryLines lines;
    set_ap_power_optmzCfg(request);
    lines.restore();
    for (const wifi::Band &band : wifi::bands)
        std::printf("%s: power %d\n", band.text, get_web_curpower(wifi::prefix_of(band.radio_keys).c_str()));
    return exit_ok;
}

// False when the text is not four numbers of a byte with commas between them.
bool read_limits(const std::string &text, std::array<unsigned char, 4> &limits) {
    std::istringstream stream(text);
    std::string part;
    size_t count = 0;
    while (std::getline(stream, part, ','))
        if (count == limits.size() || !read_byte(part, limits[count++])) return false;
    return count == limits.size();
}

// The element holds the limits in another order than people give them.
int run_scene(Words words) {
    constexpr const char *protocols[] = {"11k", "11v", "11r"};
    std::string limit_text;
    std::array<unsigned char, 4> limits;
    unsigned char bits = 0;
    take_option(words, "--limits", limit_text);
    for (size_t i = 0; i < std::size(protocols); ++i)
        if (take_flag(words, protocols[i])) bits = static_cast<unsigned char>(bits | 1U << i);
    if (!words.empty() || !read_limits(limit_text, limits))
        return usage_error("rfo",
                           "scene takes 11k, 11v, 11r and --limits with four numbers of dB, commas between them");

    const unsigned char message[] = {0, 0, 1, 0, 1, 0, 5, 0, bits, limits[0], limits[2], limits[1], limits[3]};
    LibraryLines lines;
    prod_cfm_init();
    set_ap_scence_optmzCfg(message);
    lines.restore();
    std::puts(prod_cfm_is_change() != 0 ? "committed" : "unchanged");
    return exit_ok;
}

int run_rfo(const Words &words) {
    const std::string name = words.empty() ? "" : words.front();
    const Words rest(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (!in_device_box("rfo")) return exit_failed;
    if (name == "survey") return run_survey(rest);
    if (name == "apply") return run_apply(rest);
    if (name == "power") return run_power(rest);
    if (name == "scene") return run_scene(rest);
    return usage_error("rfo", "says what to do: survey, apply, power, scene");
}

const Verb verb{"rfo", "radio optimiser: surveys, and channels, powers and scenes as a controller sends them", help,
                run_rfo};

}  // namespace
