// product_log_list_bench.cpp: the newest lines of a 10 MiB system log, against `cat FILE | tail -n N`.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "applatform/config_store.h"
#include "apsupport/product.h"
#include "bench/support/compare.h"

namespace {

constexpr char path[] = "/var/logs.txt";

void write_log() {
    SetValue("syslogs.system.path", path);
    FILE *file = std::fopen(path, "w");
    for (size_t size = 0, i = 0; size < 10U << 20; ++i) {
        const int written =
            i % 2 == 0 ? std::fprintf(file, "2024-01-01 10:00:00;%zu;lease granted to client number %zu\n", i % 9, i)
                       : std::fprintf(file, "Jan  1 10:00:00 [kernel] [eth%zu]: link is up, count %zu\n", i % 4, i);
        size += static_cast<size_t>(written);
    }
    std::fclose(file);
}

void LogList(benchmark::State &state) {
    const int lines = static_cast<int>(state.range(0));
    std::vector<log_entry> list(static_cast<size_t>(lines));
    int count = 0;
    for (auto _ : state) file_syslog_get_lists(list.data(), 0, &count, lines);
    if (count != lines) state.SkipWithError("lines are missing");
}

void CatTail(benchmark::State &state) {
    const std::string command = std::string("cat ") + path + " | tail -n " + std::to_string(state.range(0));
    std::vector<char> output(1U << 20);
    for (auto _ : state) {
        FILE *pipe = popen(command.c_str(), "r");
        while (std::fread(output.data(), 1, output.size(), pipe) > 0) {}
        pclose(pipe);
    }
}

BENCHMARK(LogList)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(CatTail)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    if (access("/.apbox", F_OK) != 0) return std::fputs("run this in a device box: apbox run -- PROGRAM\n", stderr), 1;
    write_log();
    return bench::run_and_compare(
        argc, argv,
        {{"log list, 20 lines of 10 MiB", "LogList/20/real_time", "CatTail/20/real_time", 1.0},
         {"log list, 200 lines of 10 MiB", "LogList/200/real_time", "CatTail/200/real_time", 1.0},
         {"log list, 2000 lines of 10 MiB", "LogList/2000/real_time", "CatTail/2000/real_time", 1.0}});
}
