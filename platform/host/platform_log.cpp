// platform_log.cpp: the platform's log, one file in memory that every process appends to.
//
// A line of "/var/logs.txt" reads "YYYY-MM-DD HH:MM:SS [LEVEL] PROCESS[MODULE]: FUNCTION(LINE): text", the form in
// which the system log list shows daemons' lines, and has at most 255 characters with its line feed, which is what that
// list reads at once. Lines above level 5 (function entry and exit) are left out. A file that has reached 200 KiB
// becomes
// "/var/logs.txt.0", in place of the one before it. Each line is one write, so lines of several processes never mix.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <sys/file.h>
#include <sys/stat.h>

#include "applatform/commands.h"
#include "foundation/file_io.h"
#include "platform/host/log_archive.h"

namespace {

constexpr const char *log_path = "/var/logs.txt", *older_log_path = "/var/logs.txt.0";
constexpr off_t log_size_limit = off_t{200} << 10;
constexpr int most_verbose_level = 5;
constexpr size_t line_size = 255 + 1;

const char *level_name(int level) {
    constexpr const char *names[] = {"panic", "fatal", "error", "warning", "notice", "info"};
    static_assert(sizeof names / sizeof *names == most_verbose_level + 1);
    return names[level < 0 ? 0 : level];
}

const char *or_dash(const char *name) { return name == nullptr || *name == '\0' ? "-" : name; }

// Appends to the text in `line` of `length` characters what fits before the line feed; the new length.
size_t append(char (&line)[line_size], size_t length, const char *format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
size_t append(char (&line)[line_size], size_t length, const char *format, va_list arguments) {
    const size_t room = line_size - 1 - length;
    const int wanted = vsnprintf(line + length, room, format, arguments);
    if (wanted < 0) return length;
    return length + std::min(static_cast<size_t>(wanted), room - 1);
}
size_t append(char (&line)[line_size], size_t length, const char *format, ...) __attribute__((format(printf, 3, 4)));
size_t append(char (&line)[line_size], size_t length, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    length = append(line, length, format, arguments);
    va_end(arguments);
    return length;
}

size_t append_time(char (&line)[line_size]) {
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    return strftime(line, line_size, "%Y-%m-%d %H:%M:%S", &local);
}

bool is_full(int file) {
    struct stat status;
    return fstat(file, &status) == 0 && status.st_size >= log_size_limit;
}

bool is_still_the_log(int file) {
    struct stat opened, named;
    return fstat(file, &opened) == 0 && stat(log_path, &named) == 0 && opened.st_ino == named.st_ino;
}

ap::UniqueFd open_log() { return ap::open_fd(log_path, O_WRONLY | O_CREAT | O_APPEND, 0644); }

// One process renames the full file; the others see under the lock that it has another name now.
ap::UniqueFd open_log_with_room() {
    ap::UniqueFd file = open_log();
    if (!file || !is_full(file.get())) return file;
    if (ap::retry_interrupted([&] { return flock(file.get(), LOCK_EX); }) == 0 && is_still_the_log(file.get()))
        std::rename(log_path, older_log_path);
    return open_log();
}

}  // namespace

void log_debug_print(const char *function, int line, int level, const char *module, const char *format, ...) {
    if (level > most_verbose_level || format == nullptr) return;
    const ap::KeepErrno keep;
    char text[line_size];
    size_t length = append_time(text);
    length = append(text, length, " [%s] %s[%s]: %s(%d): ", level_name(level), or_dash(program_invocation_short_name),
                    or_dash(module), or_dash(function), line);
    va_list arguments;
    va_start(arguments, format);
    length = append(text, length, format, arguments);
    va_end(arguments);
    std::replace(text, text + length, '\n', ' ');
    text[length++] = '\n';

    const ap::UniqueFd file = open_log_with_room();
    if (file) ap::write_full(file.get(), text, length);
}

void log_file_sync_to_flash(void) {
    try {
        ap::host::archive_logs();
    } catch (const std::exception &error) {
        log_debug_print(__func__, __LINE__, 2, "log", "the log is not kept: %s", error.what());
    }
}
