// debug_log.cpp: prod_debug, one diagnostic line filtered by its module's level, and prod_hexdump.
//
// A line goes to standard output in its level's colour; an error line also goes to "/var/debug.MODULE.log", with month
// and day in front, and that file starts over when it has reached its limit. `debug_mutex` keeps whole lines together.

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "applatform/commands.h"
#include "apsupport/foundation.h"
#include "foundation/console.h"
#include "foundation/debug_table.h"
#include "foundation/owned.h"

pthread_mutex_t debug_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace ap {

namespace {

constexpr size_t line_size = 10240;
constexpr size_t month_and_day_length = 4 + 1;  // not shown on the console
constexpr off_t error_log_limit = 204800;

struct Source {
    const char *function;
    int line, level;
    const char *module;
};

// Where the text ends that `snprintf` left in `size` bytes, given its result.
size_t length_in(size_t size, int result) {
    if (result < 0) return 0;
    return static_cast<size_t>(result) < size ? static_cast<size_t>(result) : size - 1;
}

size_t format_prefix(char *out, size_t size, const dbg_info &table, const Source &source) {
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    const int result =
        std::snprintf(out, size, "%02d%02d %02d:%02d:%02d [%*s.%c] %4d %-25.25s: ", local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec, name_width_of(table), source.module,
                      mark_of(static_cast<unsigned int>(source.level)).letter, source.line, source.function);
    return length_in(size, result);
}

// Builds the whole line; it ends in exactly one line feed, whatever the message ends in and however long it is.
void format_line(char (&out)[line_size], const dbg_info &table, const Source &source, const char *format,
                 va_list arguments) {
    constexpr size_t room = line_size - 1;  // the line feed's place is kept
    size_t length = format_prefix(out, room, table, source);
    length += length_in(room - length, std::vsnprintf(out + length, room - length, format, arguments));
    while (length > 0 && out[length - 1] == '\n') --length;
    out[length] = '\n';
    out[length + 1] = '\0';
}

void append_to_error_log(const char *module, const char *line) {
    char path[62];
    std::snprintf(path, sizeof path, "/var/debug.%s.log", module);
    struct stat status = {};
    const bool is_full = stat(path, &status) == 0 && status.st_size >= error_log_limit;
    do_file_cmd(path, is_full ? 0 : 1, "%s", line);
}

void print_line(int level, const char *text) {
    const int colour = mark_of(static_cast<unsigned int>(level)).colour;
    if (colour == no_colour) {
        std::printf("\033[0m%s\033[0m", text);
        return;
    }
    std::printf("\033[1;%d;%dm%s\033[0m", 40, colour, text);
    std::fflush(stdout);
}

void emit(const dbg_info &table, const Source &source, const char *format, va_list arguments) {
    const KeepErrno keep;
    const MutexLock lock(debug_mutex);
    char line[line_size];
    format_line(line, table, source, format, arguments);
    print_line(source.level, line + month_and_day_length);
    if (source.level == error_level) append_to_error_log(source.module, line);
}

}  // namespace

}  // namespace ap

int prod_debug(const char *function, int line, int level, const char *module, const char *format, ...) {
    const dbg_info *table = ap::debug_table();
    if (table == nullptr || module == nullptr || function == nullptr) return 0;
    if (level != ap::error_level && level > static_cast<int>(ap::level_in(*table, module))) return 0;

    va_list arguments;
    va_start(arguments, format);
    ap::emit(*table, {function, line, level, module}, format, arguments);
    va_end(arguments);
    return 0;
}

namespace ap {

namespace {

constexpr int row_length = 16;

// One row of the dump: its bytes in hexadecimal and as text. Behind the eighth byte stands one more space in both,
// unless the data ends there.
struct HexRow {
    char hex[row_length * 3 + 1 + 1];
    char text[row_length + 1 + 1];

    HexRow(const unsigned char *bytes, int length, bool is_last) {
        char *hex_end = hex;
        char *text_end = text;
        for (int i = 0; i < length; ++i) {
            hex_end += std::snprintf(hex_end, 3 + 1, "%02hhx ", bytes[i]);
            *text_end++ = bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.';
            if (i == row_length / 2 - 1 && !(is_last && i == length - 1)) *hex_end++ = *text_end++ = ' ';
        }
        *hex_end = *text_end = '\0';
    }
};

}  // namespace

}  // namespace ap

void prod_hexdump(const char *title, const void *data, int length) {
    if (title == nullptr || data == nullptr || length < 1) return;

    std::printf("\033[1;%d;%dmHEXDUMP `%s`(length=%d):\n\033[0m", 40, 36, title, length);
    std::fflush(stdout);
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (int offset = 0; offset < length;) {
        const int left = length - offset;
        const int count = left < ap::row_length ? left : ap::row_length;
        const ap::HexRow row(bytes + offset, count, count == left);
        std::printf("%08x | %-49s | %s\n", static_cast<unsigned int>(offset), row.hex, row.text);
        if (count == left) return;
        offset += count;
    }
}
