// netcfg_lan_move_bench.cpp: a LAN move over five lists of 1,000 entries each, against reading and rewriting the same
// keys bare, both on the working set of a device box.

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/netcfg.h"
#include "bench/support/compare.h"

namespace {

constexpr int entries = 1000;
constexpr char mask[] = "255.255.0.0";

struct List {
    const char *name, *before, *behind;
};
constexpr List lists[] = {
    {"adv.snat.list", "", ";203.0.113.7;1"},
    {"adv.logs.list", "", ";514;1"},
    {"adv.virtualser.list", "1;80;8080;", ";tcp"},
    {"security.ipbind.list", "1;client;", ";02:00:00:00:00:01"},
    {"bandwidth.mode.list", "1;rule;both;", "-@;1024"},
};

// The entry with the host in both networks; "@" is the host once more.
std::string entry(const List &list, const std::string &network, int i) {
    const std::string host = network + std::to_string(i / 250) + "." + std::to_string(1 + i % 250);
    std::string behind = list.behind;
    if (const size_t at = behind.find('@'); at != std::string::npos) behind.replace(at, 1, host);
    return list.before + host + behind;
}

struct Keys {
    std::vector<std::string> names;
    std::array<std::vector<std::string>, 2> values;  // in the one network and in the other
};

const Keys &stored_keys() {
    static const Keys keys = [] {
        Keys made;
        SetValue("bandwidth.gst.en", "0");  // else rule 1 stays
        for (const auto &list : lists) {
            SetValue((std::string(list.name) + "num").c_str(), std::to_string(entries).c_str());
            for (int i = 1; i <= entries; ++i) {
                made.names.push_back(list.name + std::to_string(i));
                made.values[0].push_back(entry(list, "10.1.", i));
                made.values[1].push_back(entry(list, "10.2.", i));
                SetValue(made.names.back().c_str(), made.values[0].back().c_str());
            }
        }
        return made;
    }();
    return keys;
}

void LanMove(benchmark::State &state) {
    stored_keys();
    int turn = 0;
    for (auto _ : state) {
        turn = 1 - turn;
        check_change_lanip_handle(turn == 1 ? "10.2.0.1" : "10.1.0.1", mask, turn == 1 ? "10.1.0.1" : "10.2.0.1", mask);
    }
    if (turn == 1) check_change_lanip_handle("10.1.0.1", mask, "10.2.0.1", mask);
    char value[2308];
    GetValue("bandwidth.mode.list1000", value);
    if (value != stored_keys().values[0].back()) state.SkipWithError("the rules did not come back");
}

void BareRewrite(benchmark::State &state) {
    const Keys &keys = stored_keys();
    size_t turn = 0;
    char value[2308];
    for (auto _ : state) {
        turn = 1 - turn;
        for (size_t i = 0; i < keys.names.size(); ++i) {
            GetValue(keys.names[i].c_str(), value);
            SetValue(keys.names[i].c_str(), keys.values[turn][i].c_str());
        }
    }
    for (size_t i = 0; turn == 1 && i < keys.names.size(); ++i)
        SetValue(keys.names[i].c_str(), keys.values[0][i].c_str());
}

BENCHMARK(LanMove)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BareRewrite)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    if (access("/.apbox", F_OK) != 0) return std::fputs("run this in a device box: apbox run -- PROGRAM\n", stderr), 1;
    return bench::run_and_compare(argc, argv,
                                  {{"LAN move, 5 lists of 1,000", "LanMove/real_time", "BareRewrite/real_time", 1.3}});
}
