// foundation_debug_log_bench.cpp: what a line of the diagnostic log costs: filtered out, with four modules in turn,
// against a disabled spdlog line; asked for beforehand; and printed, against fprintf of the same text. Run it in a
// device box.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include "apsupport/foundation.h"
#include "bench/support/compare.h"

namespace {

constexpr const char *modules[] = {"prod", "rfo", "netctrl", "cfm"};
constexpr int other_modules = 16;  // in front of those four in the table

void FilteredLine(benchmark::State &state) {
    int i = 0;
    for (auto _ : state) {
        prod_debug(__func__, __LINE__, 5, modules[i & 3], "channel %d of %s", i, "radio");
        ++i;
    }
}
BENCHMARK(FilteredLine);

void LevelAskedFor(benchmark::State &state) {
    int i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(get_dbg_level(modules[i++ & 3]));
}
BENCHMARK(LevelAskedFor);

// One logger for each module, since spdlog keeps its levels there.
void DisabledSpdlogLine(benchmark::State &state) {
    std::shared_ptr<spdlog::logger> loggers[4];
    for (int i = 0; i < 4; ++i) {
        loggers[i] = std::make_shared<spdlog::logger>(modules[i], std::make_shared<spdlog::sinks::null_sink_mt>());
        loggers[i]->set_level(spdlog::level::info);
    }
    int i = 0;
    for (auto _ : state) {
        SPDLOG_LOGGER_CALL(loggers[i & 3], spdlog::level::trace, "channel {} of {}", i, "radio");
        ++i;
    }
}
BENCHMARK(DisabledSpdlogLine);

// Standard output goes to the null device while one lives.
class SilentOutput {
public:
    SilentOutput() : kept_((std::fflush(stdout), dup(STDOUT_FILENO))) {
        const int null_device = open("/dev/null", O_WRONLY);
        dup2(null_device, STDOUT_FILENO);
        close(null_device);
    }
    ~SilentOutput() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    SilentOutput(const SilentOutput &) = delete;
    SilentOutput &operator=(const SilentOutput &) = delete;

private:
    int kept_;
};

void EmittedLine(benchmark::State &state) {
    const SilentOutput silent;
    int i = 0;
    for (auto _ : state) prod_debug(__func__, 42, 3, "rfo", "channel %d of %s", i++, "radio");
}
BENCHMARK(EmittedLine);

void FprintfLine(benchmark::State &state) {
    const SilentOutput silent;
    int i = 0;
    for (auto _ : state) {
        std::fprintf(stdout, "\033[1;%d;%dm%02d:%02d:%02d [%*s.%c] %4d %-25.25s: channel %d of %s\n\033[0m", 40, 36, 23,
                     59, 59, 9, "rfo", 'D', 42, __func__, i++, "radio");
        std::fflush(stdout);
    }
}
BENCHMARK(FprintfLine);

}  // namespace

int main(int argc, char **argv) {
    if (access("/.apbox", F_OK) != 0) return std::fputs("run this in a device box: apbox run -- PROGRAM\n", stderr), 1;
    for (int i = 0; i < other_modules; ++i) set_dbg_level(("module" + std::to_string(i)).c_str(), 2);
    for (const char *module : modules) set_dbg_level(module, 3);
    return bench::run_and_compare(
        argc, argv,
        {{"filtered-out line : disabled spdlog line", "FilteredLine", "DisabledSpdlogLine", 0},
         {"emitted line : fprintf of the same text", "EmittedLine", "FprintfLine", 0}});
}
