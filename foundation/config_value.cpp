// config_value.cpp: formatted keys, and reading a value under one.

#include "foundation/config_value.h"

#include <cstdio>

namespace ap {

ConfigKey::ConfigKey(const char *format, va_list arguments) {
    if (std::vsnprintf(text_, sizeof text_, format, arguments) < 0) text_[0] = '\0';
}

bool ConfigValue::read_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ConfigKey key(format, arguments);
    va_end(arguments);
    return read(key.c_str());
}

}  // namespace ap
