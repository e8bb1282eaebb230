#pragma once

#include <trace/OneSegPGL.h>

// Trace lines of the host's side. The component bit sets them apart from the player's own (0x800).
#define ORV_HOST_TRACE(level, ...)                             \
    do {                                                       \
        if (OneSegPGL_IsTraced((level) | 0x400u)) {            \
            OneSegPGL_TraceFile = __FILE__;                    \
            OneSegPGL_TraceLine = __LINE__;                    \
            OneSegPGL_TraceOut((level) | 0x400u, __VA_ARGS__); \
        }                                                      \
    } while (false)

#define HOST_LOGV(...) ORV_HOST_TRACE(0x10000000u, __VA_ARGS__)
#define HOST_LOGI(...) ORV_HOST_TRACE(0x20000000u, __VA_ARGS__)
#define HOST_LOGW(...) ORV_HOST_TRACE(0x40000000u, __VA_ARGS__)
#define HOST_LOGE(...) ORV_HOST_TRACE(0x80000000u, __VA_ARGS__)
