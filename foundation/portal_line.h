// portal_line.h: the two forms in which the captive portal and what belongs to it print on standard output. The first
// word names the source file as the device's log readers know it.
#pragma once

#include <cstdio>

#define AP_PORTAL_DEBUG(file, format, ...)                                                                             \
    std::printf("Debug->%s: %s(%d)--" format, file, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define AP_PORTAL_ERROR(file, format, ...)                                                                             \
    std::printf("Error->%s: %s(%d)--" format, file, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
