// console.h: the coloured "[PROD]" console line, and the macros through which the rooms log.
#pragma once

#include "applatform/commands.h"
#include "apsupport/foundation.h"

namespace ap {

enum class Colour : int { black = 30, red = 31, yellow = 33, blue = 34, magenta = 35, cyan = 36, white = 37 };

// Prints and flushes "\033[1;40;COLOURm[PROD] LINE FUNCTION: text\n\033[0m". The function's name is cut or padded to
// `name_width` columns.
void print_prod_line(Colour colour, int name_width, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

inline constexpr int error_level = 2;

// A step that a helper's lines of the log are written in the name of: the helper's last parameter is
// `Caller caller = Caller::here()`.
struct Caller {
    static Caller here(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
        return {function, line};
    }
    const char *function;
    int line;
};

}  // namespace ap

#define AP_CONSOLE(colour, ...) ::ap::print_prod_line(colour, 20, __func__, __LINE__, __VA_ARGS__)

// A line of the diagnostic log, with the caller's name and line.
#define AP_DEBUG(level, module, ...) prod_debug(__func__, __LINE__, level, module, __VA_ARGS__)
#define AP_ERROR(module, ...) AP_DEBUG(::ap::error_level, module, __VA_ARGS__)
#define AP_DEBUG_OF(caller, level, module, ...) prod_debug((caller).function, (caller).line, level, module, __VA_ARGS__)

// A line of the platform's logger.
#define AP_PLATFORM_LOG(level, module, ...) log_debug_print(__func__, __LINE__, level, module, __VA_ARGS__)
