#include <trace/OneSegPGL.h>

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

constinit thread_local const char* OneSegPGL_TraceFile = "";
constinit thread_local int OneSegPGL_TraceLine = 0;

namespace {

constexpr uint32_t LEVEL_MASK = 0xF0000000;
constexpr uint32_t INFORMATION = 0x20000000;
constexpr size_t QUEUED_LINES = 1024;
constexpr size_t LINE_BYTES = 1024;

// The levels that pass, as a set of mask bits. Errors and warnings until the environment is read.
std::atomic<uint32_t> gPassing{0xC0000000};
std::once_flag gInitialized;

// Keeps a stream that offends with every picture from burying everything else: of the lines of one
// place in the code ten pass at once and then one a second. Not when information is asked for:
// whoever reads that wants all of it.
class Repetitions {
public:
    // False when the line is to be left out. `*leftOut` is how many were before this one.
    bool passes(const char* file, int line, unsigned int* leftOut) {
        std::lock_guard<std::mutex> guard(mLock);
        Place& place = mPlaces[{file, line}];
        const int64_t now = seconds();
        place.allowed = std::min(place.allowed + (now - place.second), AT_ONCE);
        place.second = now;
        if (place.allowed == 0) {
            ++place.leftOut;
            return false;
        }
        --place.allowed;
        *leftOut = place.leftOut;
        place.leftOut = 0;
        return true;
    }

private:
    static constexpr int64_t AT_ONCE = 10;

    struct Place {
        int64_t allowed = AT_ONCE;
        int64_t second = seconds();
        unsigned int leftOut = 0;
    };

    static int64_t seconds() {
        return std::chrono::duration_cast<std::chrono::seconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

    std::mutex mLock;
    std::map<std::pair<const char*, int>, Place> mPlaces;  // as many as the code has lines of log
};

// Never destroyed while threads of the player may still trace: they live until the process ends.
struct Writer {
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
    Repetitions repetitions;
};
Writer* gWriter = nullptr;

uint32_t passingLevels(const char* name) {
    struct {
        const char* name;
        uint32_t passing;
    } static const LEVELS[] = {{"off", 0},
                               {"error", 0x80000000},
                               {"warning", 0xC0000000},
                               {"info", 0xE0000000},
                               {"entry", 0xF0000000}};
    for (const auto& level : LEVELS) {
        if (strcmp(level.name, name) == 0) {
            return level.passing;
        }
    }
    fprintf(stderr, "ORV_TRACE=%s: use off, error, warning, info or entry\n", name);
    return 0xC0000000;
}

spdlog::sink_ptr openSink() {
    const char* path = getenv("ORV_TRACE_FILE");
    if (path != nullptr && path[0] != '\0') {
        try {
            return std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
        } catch (const spdlog::spdlog_ex& error) {
            fprintf(stderr, "ORV_TRACE_FILE: %s; tracing to standard error\n", error.what());
        }
    }
    return std::make_shared<spdlog::sinks::stderr_sink_mt>();
}

void initialize() {
    if (const char* level = getenv("ORV_TRACE"); level != nullptr && level[0] != '\0') {
        gPassing.store(passingLevels(level), std::memory_order_relaxed);
    }
    auto* writer = new Writer;
    writer->pool = std::make_shared<spdlog::details::thread_pool>(QUEUED_LINES, 1);
    writer->logger = std::make_shared<spdlog::async_logger>(
        "orv", openSink(), writer->pool, spdlog::async_overflow_policy::overrun_oldest);
    writer->logger->set_level(spdlog::level::trace);
    writer->logger->set_pattern("%H:%M:%S.%e %t %L %v");
    writer->logger->flush_on(spdlog::level::warn);
    gWriter = writer;
    atexit(OneSegPGL_Flush);
}

spdlog::level::level_enum levelOf(uint32_t mask) {
    if (mask & 0x80000000) {
        return spdlog::level::err;
    }
    if (mask & 0x40000000) {
        return spdlog::level::warn;
    }
    return mask & 0x20000000 ? spdlog::level::info : spdlog::level::trace;
}

const char* baseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

void OneSegPGL_InitializeDebug() {
    std::call_once(gInitialized, initialize);
}

bool OneSegPGL_IsTraced(uint32_t mask) {
    return (gPassing.load(std::memory_order_relaxed) & mask & LEVEL_MASK) != 0;
}

void OneSegPGL_TraceOut(uint32_t mask, const char* format, ...) {
    OneSegPGL_InitializeDebug();
    if (!OneSegPGL_IsTraced(mask)) {
        return;
    }
    unsigned int leftOut = 0;
    const bool quiet = (gPassing.load(std::memory_order_relaxed) & INFORMATION) == 0;
    if (quiet && !gWriter->repetitions.passes(OneSegPGL_TraceFile, OneSegPGL_TraceLine, &leftOut)) {
        return;
    }
    char text[LINE_BYTES];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return;
    }
    size_t size = std::min(static_cast<size_t>(length), sizeof text - 1);
    while (size > 0 && text[size - 1] == '\n') {
        --size;  // messages end their own line or not; the writer always does
    }
    const std::string_view message(text, size);
    if (leftOut > 0) {
        gWriter->logger->log(levelOf(mask), "{}:{} {} ({} more like it before)",
                             baseName(OneSegPGL_TraceFile), OneSegPGL_TraceLine, message, leftOut);
    } else {
        gWriter->logger->log(levelOf(mask), "{}:{} {}", baseName(OneSegPGL_TraceFile),
                             OneSegPGL_TraceLine, message);
    }
}

void OneSegPGL_Flush() {
    if (gWriter == nullptr) {
        return;
    }
    gWriter->logger->flush();
    // The flush is queued behind the lines; an empty queue means that the last one is being
    // written.
    for (int waitedMs = 0; gWriter->pool->queue_size() > 0 && waitedMs < 1000; ++waitedMs) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
