// console.cpp: prints the "[PROD]" console line.

#include "foundation/console.h"

#include <cstdarg>
#include <cstdio>

namespace ap {

void print_prod_line(Colour colour, int name_width, const char *function, int line, const char *format, ...) {
    flockfile(stdout);
    std::printf("\033[1;%d;%dm[PROD] %04d %-*.*s: ", 40, static_cast<int>(colour), line, name_width, name_width,
                function);
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fputs("\n\033[0m", stdout);
    std::fflush(stdout);
    funlockfile(stdout);
}

}  // namespace ap
