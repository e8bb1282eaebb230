#pragma once

#include <cstdint>

// The trace library: one function through which every log line of the player goes.
//
// A caller stores where it stands in the two location variables and then calls
// OneSegPGL_TraceOut. The variables belong to the calling thread, so lines of different threads
// never mix. A line that the filter rejects costs one comparison: nothing is formatted.
//
// Filter and target come from the environment, read once by OneSegPGL_InitializeDebug (or by the
// first line): ORV_TRACE is "error", "warning" (the default), "info", "entry" or "off", and
// ORV_TRACE_FILE names a file to write to instead of standard error. Lines are handed to a writer
// thread over a bounded queue that drops its oldest line when full: tracing never blocks a caller.
// Below "info" a place in the code that repeats itself is cut to a line a second.

extern "C" {

extern constinit thread_local const char* OneSegPGL_TraceFile;
extern constinit thread_local int OneSegPGL_TraceLine;

// Reads the environment and starts the writer. Further calls do nothing. Thread-safe.
void OneSegPGL_InitializeDebug();

// True when a line of this mask would be written. Lock-free.
bool OneSegPGL_IsTraced(uint32_t mask);

// Writes one line, format and arguments as for printf. The mask's top nibble is the level
// (0x1 entry, 0x2 information, 0x4 warning, 0x8 error), its low part the component.
void OneSegPGL_TraceOut(uint32_t mask, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Writes out what is queued; at most a second. For the end of a program.
void OneSegPGL_Flush();

// Small files that the machine's setup leaves for the player; regular files only.

// 1 when the file exists, else 0.
int OneSegPGL_CheckFile(const char* path);

// Its size in bytes, -1 when there is none.
long OneSegPGL_GetFileSize(const char* path);

// Reads its first bytes, at most `size`. Returns how many there were, -1 when it cannot be read.
long OneSegPGL_ReadFile(const char* path, void* buffer, long size);
}
