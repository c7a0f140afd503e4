// msgserver_loop_bench.cpp: what an event costs while 1,000 idle connections are held, against none; and 10,000 timers
// added and run, against an ordered map that reads the same clock as often.

#include <algorithm>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "apsupport/msgserver.h"
#include "bench/support/compare.h"

namespace {

constexpr int idle_connections = 1000, timer_count = 10'000;

jmp_buf leave_loop;
int idle_waits = -1;  // how many waits of this process are idle before it leaves the loop; negative: real waits

}  // namespace

extern "C" int epoll_wait(int set, epoll_event *events, int most, int timeout_ms) {
    if (idle_waits < 0)
        return static_cast<int>(syscall(SYS_epoll_pwait, set, events, most, timeout_ms, nullptr, _NSIG / 8));
    if (idle_waits-- == 0) longjmp(leave_loop, 1);
    return 0;
}

namespace {

int echo(ms_session *session, char *data, int length) { return length > 0 ? ms_send(session, data, length) : 0; }

void start_daemon(const char *address) {
    if (fork() != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (std::freopen("/dev/null", "w", stdout) == nullptr || ms_server(address, echo) == nullptr) _exit(1);
    ms_run();
}

bool connect_to(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    return fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

void Dialog(benchmark::State &state, const char *address) {
    char answer[16];
    for (auto _ : state)
        if (ms_dialog(address, "event", 5, answer, sizeof answer) != 5) state.SkipWithError("no echo");
}

void ignore(void *argument, int) { benchmark::DoNotOptimize(argument); }

void run_due_timers() {
    idle_waits = 1;
    if (setjmp(leave_loop) == 0) ms_run();
}

// Each round keeps its argument copies: they are never given back.
void Timers(benchmark::State &state) {
    for (auto _ : state) {
        for (int i = 0; i < timer_count; ++i) ms_add_timer(ignore, &i, sizeof i, 0, 0);
        run_due_timers();
    }
}

void TimerMap(benchmark::State &state) {
    std::multimap<uint64_t, std::vector<char>> timers;
    const auto now = [] {
        ms_uptime uptime;
        ms_get_uptime(&uptime);
        return uint64_t{uptime.seconds} << 32 | uptime.subseconds;
    };
    for (auto _ : state) {
        for (int i = 0; i < timer_count; ++i) timers.emplace(now(), std::vector<char>(sizeof i));
        while (!timers.empty() && timers.begin()->first <= now()) {
            ignore(timers.begin()->second.data(), 0);
            timers.erase(timers.begin());
        }
    }
}

BENCHMARK_CAPTURE(Dialog, none_idle, "unix:none_idle")->UseRealTime()->Repetitions(10);
BENCHMARK_CAPTURE(Dialog, many_idle, "unix:many_idle")->UseRealTime()->Repetitions(10);
BENCHMARK(Timers)->Unit(benchmark::kMillisecond);
BENCHMARK(TimerMap)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, rlim_t{2} * idle_connections));
    setrlimit(RLIMIT_NOFILE, &limit);
    start_daemon("unix:none_idle");
    start_daemon("unix:many_idle");
    usleep(200'000);
    for (int i = 0; i < idle_connections; ++i)
        if (!connect_to("/var/socket/many_idle")) return std::perror("idle connection"), 1;
    return bench::run_and_compare(argc, argv,
                                  {
                                      {"an event with 1,000 idle connections", "Dialog/many_idle/repeats:10/real_time",
                                       "Dialog/none_idle/repeats:10/real_time", 1.1},
                                      {"10,000 timers added and run, an ordered map", "Timers", "TimerMap", 0},
                                  });
}
