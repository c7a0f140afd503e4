// compare.h: the closing lines of a benchmark program: what was compared, ours, the peer or floor, and their ratio.
//
//   int main(int argc, char **argv) {
//       return bench::run_and_compare(argc, argv, {{"typed read", "TypedRead", "RawLmdbRead", 2.0}});
//   }
#pragma once

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace bench {

struct Comparison {
    const char *what;         // printed
    const char *ours, *peer;  // names of two benchmarks of this program, with their arguments ("Read/64")
    double aim;               // the ratio that we want to stay at or below; 0: reported without an aim
};

class TimeCollector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const auto &run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                keep_fastest(run.run_name.str(), run.GetAdjustedRealTime());
        ConsoleReporter::ReportRuns(runs);
    }
    double time_of(const std::string &name) const {
        const auto found = times_.find(name);
        return found == times_.end() ? 0 : found->second;
    }

private:
    void keep_fastest(const std::string &name, double time) {
        const auto [entry, is_new] = times_.try_emplace(name, time);
        if (!is_new && time < entry->second) entry->second = time;
    }
    std::map<std::string, double> times_;
};

inline int run_and_compare(int argc, char **argv, const std::vector<Comparison> &comparisons) {
    benchmark::Initialize(&argc, argv);
    TimeCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    for (const auto &c : comparisons) {
        const double ours = collector.time_of(c.ours), peer = collector.time_of(c.peer);
        if (ours == 0 || peer == 0) continue;
        std::printf("compare: %-44s ours %.1f  peer %.1f  ratio %.2f", c.what, ours, peer, ours / peer);
        std::puts(c.aim > 0 ? (" (aim " + std::to_string(c.aim).substr(0, 4) + ")").c_str() : "");
    }
    return 0;
}

}  // namespace bench
