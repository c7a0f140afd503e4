// system.cpp: the firmware's process monitor, played over /proc, and the time since the system started.
//
// A process has a name when its command name (at most 15 characters) or the last part of its first argument is equal to
// it. Zombies do not run. Stopping works only inside a device box: a service of the machine itself is never stopped.

#include "applatform/system.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/sysinfo.h>
#include <unistd.h>
#include <vector>

#include "applatform/commands.h"
#include "foundation/file_io.h"

namespace {

constexpr const char *box_mark = "/.apbox";
constexpr int stop_steps = 100;  // of 10 ms each, before a process that ignores SIGTERM is killed
constexpr useconds_t stop_step_us = 10'000;

struct CloseFolder {
    void operator()(DIR *folder) const { closedir(folder); }
};

std::string read_process_file(pid_t process, const char *name) {
    char path[sizeof "/proc//" + 3 * sizeof(pid_t) + sizeof "cmdline"];
    std::snprintf(path, sizeof path, "/proc/%d/%s", process, name);
    const ap::UniqueFd file = ap::open_fd(path, O_RDONLY);
    std::string content(4096, '\0');
    const ssize_t length = file ? ap::read_full(file.get(), content.data(), content.size()) : -1;
    content.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return content;
}

std::string_view last_part(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// "PID (NAME) STATE ...": the name may hold anything, so it ends at the last ")".
bool runs_under_name(pid_t process, std::string_view name) {
    const std::string stat = read_process_file(process, "stat");
    const size_t begin = stat.find('('), end = stat.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end + 2 >= stat.size()) return false;
    if (stat[end + 2] == 'Z' || stat[end + 2] == 'X') return false;
    if (std::string_view(stat).substr(begin + 1, end - begin - 1) == name) return true;
    const std::string arguments = read_process_file(process, "cmdline");
    return !arguments.empty() && last_part(arguments.c_str()) == name;
}

std::vector<pid_t> processes_named(const char *name) {
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir("/proc"));
    if (!folder) return found;
    while (const dirent *entry = readdir(folder.get())) {
        char *end = nullptr;
        const long process = std::strtol(entry->d_name, &end, 10);
        if (process <= 0 || *end != '\0') continue;
        if (runs_under_name(static_cast<pid_t>(process), name)) found.push_back(static_cast<pid_t>(process));
    }
    return found;
}

int runs(const char *name) {
    if (name == nullptr || *name == '\0') return 0;
    try {
        return processes_named(name).empty() ? 0 : 1;
    } catch (const std::exception &) {
        return 0;
    }
}

// Signals every process of that name but process 1 and the caller; the number of those that it found.
int signal_all(const char *name, int signal) {
    int signalled = 0;
    for (const pid_t process : processes_named(name))
        if (process != 1 && process != getpid() && kill(process, signal) == 0) ++signalled;
    return signalled;
}

int stop_all(const char *name) {
    if (signal_all(name, SIGTERM) == 0) return 0;
    for (int step = 0; step < stop_steps; ++step) {
        usleep(stop_step_us);
        if (signal_all(name, 0) == 0) return 0;
    }
    signal_all(name, SIGKILL);
    for (int step = 0; step < stop_steps; ++step) {
        if (signal_all(name, 0) == 0) return 0;
        usleep(stop_step_us);
    }
    return -1;
}

}  // namespace

int proc_check_app(const char *name) { return runs(name); }

int monitor_check_exist(const char *name) { return runs(name); }

int monitor_stop(const char *name) {
    if (name == nullptr || *name == '\0') return -1;
    if (access(box_mark, F_OK) != 0) {
        log_debug_print(__func__, __LINE__, 2, "monitor", "%s is not stopped: this is no device box", name);
        return -1;
    }
    try {
        return stop_all(name);
    } catch (const std::exception &) {
        return -1;
    }
}

unsigned int system_get_uptime(void) {
    struct sysinfo info;
    return sysinfo(&info) == 0 ? static_cast<unsigned int>(info.uptime) : 0;
}
