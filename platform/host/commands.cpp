// commands.cpp: shell commands from a format, small files written in one piece, values of `key=value` files, and the
// checks on texts that the firmware's programs share. Nothing here keeps state; every function may run on any thread.

#include "applatform/commands.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/text.h"

namespace {

constexpr size_t ini_value_size = 256;

struct FormattedText {
    ap::HeapPtr<char> text;  // null when the format or the memory failed
    size_t length = 0;
};

FormattedText format_text(const char *format, va_list arguments) {
    char *text = nullptr;
    if (format == nullptr) return {};
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) return {};
    return {ap::HeapPtr<char>(text), static_cast<size_t>(length)};
}

std::string_view without_blanks(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n\v\f";
    const size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// True when the line is "key = value"; comments, sections and other lines have no key that could match.
bool line_has_key(std::string_view line, std::string_view key, std::string_view &value) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || without_blanks(line.substr(0, equals)) != key) return false;
    value = without_blanks(line.substr(equals + 1));
    return true;
}

}  // namespace

int doSystemCmd(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const FormattedText command = format_text(format, arguments);
    va_end(arguments);
    return command.text ? system(command.text.get()) : -1;
}

int do_file_cmd(const char *path, int mode, const char *format, ...) {
    if (path == nullptr || (mode != 0 && mode != 1)) return -1;
    va_list arguments;
    va_start(arguments, format);
    const FormattedText content = format_text(format, arguments);
    va_end(arguments);
    if (!content.text) return -1;

    // One write for the whole text, so that lines of several processes do not mix in a file that they append to.
    const ap::UniqueFd file = ap::open_fd(path, O_WRONLY | O_CREAT | (mode == 0 ? O_TRUNC : O_APPEND));
    return file && ap::write_full(file.get(), content.text.get(), content.length) ? 0 : -1;
}

int file_check_exist_or_not(const char *path) { return path != nullptr && access(path, F_OK) == 0 ? 1 : 0; }

int file_get_value_from_ini(const char *path, const char *key, char *value) {
    if (path == nullptr || ap::is_empty(key) || value == nullptr) return -1;
    const ap::UniqueFile file = ap::open_file(path);
    if (!file) return -1;

    char *line = nullptr;
    size_t line_size = 0;
    int result = -1;
    std::string_view found;
    for (ssize_t length; result != 0 && (length = getline(&line, &line_size, file.get())) >= 0;) {
        if (!line_has_key({line, static_cast<size_t>(length)}, key, found)) continue;
        ap::copy_text(value, ini_value_size, found);
        result = 0;
    }
    free(line);
    return result;
}

char *string_str_trim(char *text) {
    if (text == nullptr) return nullptr;
    const std::string_view kept = without_blanks(text);
    ap::copy_text(text, strlen(text) + 1, kept);
    return text;
}

int is_invalid_ip(const char *ip) {
    in_addr address;
    return ip != nullptr && inet_pton(AF_INET, ip, &address) == 1 ? 0 : 1;
}
