#pragma once

#include <trace/OneSegPGL.h>

// The player's trace macros, one per level. Messages begin with the function name and a colon:
//     ORV_LOGE("%s: mmap failed 1 fd = %d error code: %d\n", __func__, fd, errno);
// The compiler checks the format. A line below the chosen level costs one comparison.
#define ORV_TRACE(level, ...)                                  \
    do {                                                       \
        if (OneSegPGL_IsTraced((level) | 0x800u)) {            \
            OneSegPGL_TraceFile = __FILE__;                    \
            OneSegPGL_TraceLine = __LINE__;                    \
            OneSegPGL_TraceOut((level) | 0x800u, __VA_ARGS__); \
        }                                                      \
    } while (false)

#define ORV_LOGV(...) ORV_TRACE(0x10000000u, __VA_ARGS__)  // entry and arguments
#define ORV_LOGI(...) ORV_TRACE(0x20000000u, __VA_ARGS__)  // information
#define ORV_LOGW(...) ORV_TRACE(0x40000000u, __VA_ARGS__)  // warnings
#define ORV_LOGE(...) ORV_TRACE(0x80000000u, __VA_ARGS__)  // errors
