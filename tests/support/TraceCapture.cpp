#include "support/TraceCapture.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <utility>

#include "trace/OneSegPGL.h"

namespace {

std::mutex gMutex;
bool gCapturing = false;
std::vector<std::string> gLines;  // each after the letter of its level and a blank

char levelOf(uint32_t mask) {
    switch (mask >> 28) {
        case 1:
            return 'V';
        case 2:
            return 'I';
        case 4:
            return 'W';
        default:
            return 'E';
    }
}

}  // namespace

extern "C" {

void __real_OneSegPGL_TraceOut(uint32_t mask, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void __wrap_OneSegPGL_TraceOut(uint32_t mask, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

void __wrap_OneSegPGL_TraceOut(uint32_t mask, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::string line(text);
    while (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    const std::scoped_lock lock(gMutex);
    if (gCapturing) {
        gLines.push_back(levelOf(mask) + (" " + line));
    } else {
        __real_OneSegPGL_TraceOut(mask, "%s", line.c_str());
    }
}
}

namespace orvtest {

TraceCapture::TraceCapture() {
    const std::scoped_lock lock(gMutex);
    gCapturing = true;
    gLines.clear();
}

TraceCapture::~TraceCapture() {
    const std::scoped_lock lock(gMutex);
    gCapturing = false;
}

std::vector<std::string> TraceCapture::take() {
    std::vector<std::string> lines = takeWithLevels();
    for (std::string& line : lines) {
        line.erase(0, 2);
    }
    return lines;
}

std::vector<std::string> TraceCapture::takeWithLevels() {
    const std::scoped_lock lock(gMutex);
    return std::exchange(gLines, {});
}

}  // namespace orvtest
