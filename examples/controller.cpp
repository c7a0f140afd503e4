// controller.cpp: settles the channels and powers of a group of access points, each of which runs ap_agent.
//
//   controller 192.168.0.1 192.168.0.2:7001 ...
//
// All access points survey at the same time; the records are decoded with the library's public types. Channels are a
// greedy colouring: the access point that hears most is served first and takes the channel that costs it least, where a
// channel costs one point for each per cent of load, and one for each dB above the noise of those served before that
// lie on the same spectrum. A power is lowered (or raised) until the nearest access point is heard at the edge of a
// cell. The sum before and after is what two surveys measured. The exit status is 0 when it fell.

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

#include "apsupport/msgserver.h"
#include "apsupport/rfo.h"
#include "examples/ap_messages.h"
#include "tools/apctl/rfo_records.h"

namespace {

using namespace ap_messages;
using namespace rfo_records;
using Message = std::vector<uint8_t>;

constexpr int noise_dbm = -95, cell_edge_dbm = -65;
constexpr int longest_survey_seconds = 180;
constexpr uint8_t immediate = 0, schedule = 1;  // a power survey by schedule leaves the channels as they are

struct Setting {
    int channel = 0, bandwidth = 20, extension = 0;
};

// What differs between the bands. The candidates lie apart from each other and are free of radar.
struct Band {
    const char *name;
    int16_t NeighbourRecord::*rssi;
    std::vector<Setting> candidates;
};
const std::array<Band, 2> bands = {{
    {"2.4 GHz", &NeighbourRecord::rssi_24g, {{1, 20, 0}, {6, 20, 0}, {11, 20, 0}}},
    {"5 GHz", &NeighbourRecord::rssi_5g, {{36, 40, 40}, {44, 40, 48}, {149, 40, 153}, {157, 40, 161}}},
}};
constexpr size_t band_5g = 1;

struct Survey : ChannelSurvey {
    std::string identity() const { return text_of(head.mac); }
    Setting setting(size_t band) const {  // all zero when the radio is off
        if (channels[band].empty()) return {};
        const ChannelRecord &first = channels[band].front();
        return {first.own_channel, first.own_bandwidth, first.own_extension};
    }
};

struct AccessPoint {
    std::string address;
    Survey before, after;
    PowerSurvey power;
    std::array<Setting, 2> chosen;
    std::array<int, 2> chosen_power;
};
using Group = std::vector<AccessPoint>;

// ---- the agents -----------------------------------------------------------------------------------------------------

// The answer's first byte is an AgentAnswer; empty when the agent does not answer.
Message ask(const AccessPoint &point, Question question, const Message &argument = {}) {
    Message message(1 + argument.size(), question), answer(largest_message);
    std::ranges::copy(argument, message.begin() + 1);
    const int length = ms_dialog(point.address.c_str(), message.data(), static_cast<int>(message.size()), answer.data(),
                                 largest_message);
    answer.resize(static_cast<size_t>(std::max(length, 0)));
    return answer;
}

bool complain(const AccessPoint &point, const char *what) {
    return std::fprintf(stderr, "controller: %s: %s\n", point.address.c_str(), what), false;
}

bool command(const AccessPoint &point, Question question, const Message &argument) {
    const Message answer = ask(point, question, argument);
    if (answer.empty()) return complain(point, "no answer");
    return answer.front() == done || complain(point, "refused, another run may be active");
}

// Waits for a record and decodes it into `decoded`.
template <typename Decoded> bool fetch(const AccessPoint &point, Question question, Decoded &decoded) {
    for (int waited = 0; waited < longest_survey_seconds; ++waited) {
        const Message answer = ask(point, question);
        if (answer.empty()) return complain(point, "no answer");
        if (answer.front() == done)
            return decode(std::span(answer).subspan(1), decoded) || complain(point, "a record of another length");
        sleep(1);
    }
    return complain(point, "the survey brings no record");
}

// One survey at all access points, at the same time.
template <typename Decoded>
bool survey_all(Group &group, Question start, uint8_t mode, Question fetched, Decoded AccessPoint::*where) {
    for (const AccessPoint &point : group)
        if (!command(point, start, {mode, 0})) return false;
    return std::ranges::all_of(group, [&](AccessPoint &point) { return fetch(point, fetched, point.*where); });
}

// ---- spectrum -------------------------------------------------------------------------------------------------------

struct Span {
    int low_mhz, high_mhz;
};

Span span_of(size_t band, const Setting &setting) {
    const int channel = setting.channel, width = std::max(setting.bandwidth, 20);
    if (band == band_5g) {  // blocks of 40 MHz and more begin at 36 or 149
        const int origin = channel >= 149 ? 149 : 36, step = width / 5;
        const int first = origin + (channel - origin) / step * step, low = 5000 + 5 * first - 10;
        return {low, low + width};
    }
    const int low_channel = setting.extension == 0 ? channel : std::min(channel, setting.extension);
    const int low = 2407 + 5 * low_channel - 10;
    return {low, low + width};
}

// The share of the first that lies in the second.
double overlap(const Span &part, const Span &whole) {
    const int shared = std::min(part.high_mhz, whole.high_mhz) - std::max(part.low_mhz, whole.low_mhz);
    return std::max(0, shared) / static_cast<double>(part.high_mhz - part.low_mhz);
}

// The heaviest load, in per cent, that was measured where a setting lies.
double load_at(const Survey &survey, size_t band, const Setting &setting) {
    const Span span = span_of(band, setting);
    uint32_t heaviest = 0;
    for (const ChannelRecord &record : survey.channels[band]) {
        const int centre = (band == band_5g ? 5000 : 2407) + 5 * record.channel;
        if (centre > span.low_mhz && centre < span.high_mhz) heaviest = std::max(heaviest, record.busy);
    }
    return heaviest;
}

// How strongly one access point hears another, in dB above the noise; 0: not at all.
double heard(const Survey &survey, const std::string &identity, size_t band) {
    for (const NeighbourRecord &neighbour : survey.neighbours) {
        const int rssi = neighbour.*bands[band].rssi;
        if (text_of(neighbour.identity) == identity && rssi != 0) return std::max(0, rssi - noise_dbm);
    }
    return 0;
}

double cost(const AccessPoint &point, size_t band, const Setting &setting, const AccessPoint &other,
            const Setting &its_setting) {
    if (its_setting.channel == 0) return 0;
    return heard(point.before, other.before.identity(), band) *
           overlap(span_of(band, setting), span_of(band, its_setting));
}

// What the group disturbs each other and is disturbed, as one survey saw it.
double interference(const Group &group, size_t band, Survey AccessPoint::*survey) {
    double sum = 0;
    for (const AccessPoint &point : group) {
        const Survey &own = point.*survey;
        const Setting setting = own.setting(band);
        if (setting.channel == 0) continue;
        sum += load_at(own, band, setting);
        for (const AccessPoint &other : group) {
            const Setting its = (other.*survey).setting(band);
            if (&other != &point && its.channel != 0)
                sum +=
                    heard(own, (other.*survey).identity(), band) * overlap(span_of(band, setting), span_of(band, its));
        }
    }
    return sum;
}

// ---- decisions ------------------------------------------------------------------------------------------------------

std::vector<AccessPoint *> most_hearing_first(Group &group, size_t band) {
    std::vector<AccessPoint *> order;
    for (AccessPoint &point : group) order.push_back(&point);
    const auto total = [&](const AccessPoint *point) {
        double sum = 0;
        for (const AccessPoint &other : group) sum += heard(point->before, other.before.identity(), band);
        return -sum;
    };
    std::ranges::stable_sort(order, {}, total);
    return order;
}

Setting cheapest(const AccessPoint &point, size_t band, const std::vector<const AccessPoint *> &served) {
    std::optional<Setting> best;
    double lowest = 0;
    for (const Setting &candidate : bands[band].candidates) {
        const auto &measured = point.before.channels[band];
        if (std::ranges::find(measured, candidate.channel, &ChannelRecord::channel) == measured.end()) continue;
        double sum = load_at(point.before, band, candidate);
        for (const AccessPoint *other : served)
            sum += cost(point, band, candidate, *other, other->chosen[band]) +
                   cost(*other, band, other->chosen[band], point, candidate);
        if (!best || sum < lowest) best = candidate, lowest = sum;
    }
    return best.value_or(point.before.setting(band));
}

void choose_channels(Group &group, size_t band) {
    std::vector<const AccessPoint *> served;
    for (AccessPoint *point : most_hearing_first(group, band)) {
        if (point->before.setting(band).channel == 0) continue;
        point->chosen[band] = cheapest(*point, band, served);
        served.push_back(point);
    }
}

// The strongest that any other access point hears of this one; 0: none does.
int strongest_rssi(const Group &group, const AccessPoint &point, size_t band) {
    int strongest = 0;
    for (const AccessPoint &other : group) {
        for (const NeighbourRecord &neighbour : other.power.neighbours) {
            const int rssi = neighbour.*bands[band].rssi;
            if (&other == &point || rssi == 0 || text_of(neighbour.identity) != point.before.identity()) continue;
            strongest = strongest == 0 ? rssi : std::max(strongest, rssi);
        }
    }
    return strongest;
}

void choose_power(const Group &group, AccessPoint &point) {
    const ap_rf_power_info &range = point.power.head;
    const uint8_t now[] = {range.cur_24g, range.cur_5g}, least[] = {range.min_24g, range.min_5g};
    const uint8_t most[] = {range.max_24g, range.max_5g};
    for (size_t band = 0; band < bands.size(); ++band) {
        const int strongest = strongest_rssi(group, point, band);
        if (strongest == 0 || least[band] > most[band]) continue;  // 0 leaves the band alone
        point.chosen_power[band] = std::clamp<int>(now[band] - (strongest - cell_edge_dbm), least[band], most[band]);
    }
}

uint8_t byte(int number) { return static_cast<uint8_t>(number); }

bool apply(const AccessPoint &point) {
    const auto &[low, high] = point.chosen;
    if (!command(point, apply_channels,
                 {immediate, byte(low.channel), byte(low.bandwidth), byte(high.channel), byte(high.bandwidth)}))
        return false;
    ChannelSwitchResult result;
    const Message answer = ask(point, fetch_result);
    if (answer.empty() || !decode(std::span(answer).subspan(1), result))
        return complain(point, "no result of the switch");
    constexpr const char *texts[] = {"not handled", "not switched", "applied", "applied with another bandwidth"};
    const auto text = [&](uint8_t code) { return code < std::size(texts) ? texts[code] : "unknown"; };
    std::printf("  %s  %u/%u %s, %u/%u %s\n", text_of(result.mac).c_str(), result.channel_24g, result.bandwidth_24g,
                text(result.result_24g), result.channel_5g, result.bandwidth_5g, text(result.result_5g));
    return command(point, apply_power, {byte(point.chosen_power[0]), byte(point.chosen_power[1])});
}

// ---- what is shown --------------------------------------------------------------------------------------------------

std::string on_channel(const Setting &setting) {
    return setting.channel == 0 ? "off" : std::to_string(setting.channel) + "/" + std::to_string(setting.bandwidth);
}

// Who hears whom how strongly, with everyone's channel: a row hears a column.
void print_map(const Group &group, size_t band, Survey AccessPoint::*survey) {
    std::printf("  %-8s channel", bands[band].name);
    for (size_t i = 0; i < group.size(); ++i) std::printf("  hears %zu", i + 1);
    for (size_t i = 0; i < group.size(); ++i) {
        const Survey &own = group[i].*survey;
        std::printf("\n  %-8zu %-7s", i + 1, on_channel(own.setting(band)).c_str());
        for (const AccessPoint &other : group) {
            const double above_noise = heard(own, (other.*survey).identity(), band);
            const std::string text = above_noise == 0 ? "." : std::to_string(static_cast<int>(above_noise) + noise_dbm);
            std::printf("  %7s", text.c_str());
        }
    }
    std::puts("");
}

double print_state(const Group &group, Survey AccessPoint::*survey) {
    double sum = 0;
    for (size_t band = 0; band < bands.size(); ++band) {
        print_map(group, band, survey);
        sum += interference(group, band, survey);
    }
    return sum;
}

// The powers come first: their survey notes the channels in use, and the next channel survey reports what was noted.
int settle(Group &group) {
    std::puts("survey of the powers");
    if (!survey_all(group, start_power_survey, schedule, fetch_power, &AccessPoint::power)) return 1;
    std::puts("survey of the channels");
    if (!survey_all(group, start_channel_survey, immediate, fetch_channels, &AccessPoint::before)) return 1;
    const double before = print_state(group, &AccessPoint::before);
    for (size_t band = 0; band < bands.size(); ++band) choose_channels(group, band);
    for (AccessPoint &point : group) choose_power(group, point);
    std::puts("applying");
    if (!std::ranges::all_of(group, apply)) return 1;
    for (const AccessPoint &point : group)
        std::printf("  %s  power %d and %d\n", point.before.identity().c_str(), point.chosen_power[0],
                    point.chosen_power[1]);
    std::puts("survey of the channels, again");
    if (!survey_all(group, start_channel_survey, immediate, fetch_channels, &AccessPoint::after)) return 1;
    const double after = print_state(group, &AccessPoint::after);
    std::printf("interference before %.0f, after %.0f\n", before, after);
    return after < before ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Group group;
    for (int i = 1; i < argc; ++i) {
        const std::string address = argv[i];
        const bool has_port = address.find(':') != std::string::npos;
        group.push_back({"tcp:" + address + (has_port ? "" : ":" + std::to_string(agent_port)), {}, {}, {}, {}, {}});
    }
    if (group.empty()) return std::fputs("usage: controller ADDRESS[:PORT]...\n", stderr), 2;
    return settle(group);
}
