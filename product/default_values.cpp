// default_values.cpp: the first line of a command's output, and single values of the factory configuration through it.

#include <array>
#include <cstdio>
#include <cstdlib>

#include "apsupport/product.h"
#include "foundation/owned.h"
#include "foundation/shell_word.h"
#include "foundation/text.h"

namespace ap {

namespace {

using Line = std::array<char, 128>;  // one line of output, or one command, with the NUL

// The first line of the command's output without its end; false when there is none.
bool first_line_of(const char *command, Line &line) {
    line.fill('\0');
    const UniquePipe pipe(popen(command, "re"));
    if (!pipe || std::fgets(line.data(), static_cast<int>(line.size()), pipe.get()) == nullptr) return false;
    if (line[0] == '\0') return false;
    line[std::strcspn(line.data(), "\r\n")] = '\0';
    return true;
}

// The value of the first line that contains the key anywhere, between its first and second "=". A key that a shell or
// grep would take for something else than a text to look for is not looked for.
bool default_value(const char *key, Line &value) {
    const ShellWord word(key);
    Line command;
    if (!word.ok() || looks_like_option(key)) return false;
    const int length = std::snprintf(command.data(), command.size(), "cat %s | grep %s | awk -F'=' '{print $2}'",
                                     "/webroot_ro/default.cfg", word.c_str());
    return static_cast<size_t>(length) < command.size() && first_line_of(command.data(), value);
}

// The characters without a terminator, as the caller clears the buffer first.
void copy_characters(char *out, const Line &line) { std::memcpy(out, line.data(), strnlen(line.data(), line.size())); }

}  // namespace

}  // namespace ap

using namespace ap;

int systool_get_value_with_popen(const char *command, char *out) {
    Line line;
    if (command == nullptr || out == nullptr || !first_line_of(command, line)) return 1;
    copy_characters(out, line);
    return 0;
}

int systool_get_value_in_default_cfg(const char *key, char *out) {
    Line value;
    if (out != nullptr && default_value(key, value)) copy_characters(out, value);
    return 0;
}

int systool_get_int_value_in_default_cfg(const char *key) {
    Line value;
    return default_value(key, value) ? to_int(value.data()) : 0;
}
