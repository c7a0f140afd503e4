// scripted_commands.h: shell commands and the process monitor as one list of what would have happened; they win over
// the host platform's. Include it in one source of a test program.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "applatform/commands.h"
#include "applatform/system.h"

namespace test {

inline std::vector<std::string> commands;  // "stop NAME" for the monitor's
inline int command_result = 0;

}  // namespace test

// NOLINTBEGIN(misc-definitions-in-headers): included in one source of a program
extern "C" {
int doSystemCmd(const char *format, ...) {
    char command[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command, sizeof command, format, arguments);
    va_end(arguments);
    test::commands.emplace_back(command);
    return test::command_result;
}
int monitor_stop(const char *name) {
    test::commands.push_back("stop " + std::string(name));
    return 0;
}
}
// NOLINTEND(misc-definitions-in-headers)
