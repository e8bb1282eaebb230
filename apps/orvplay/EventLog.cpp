#include "EventLog.h"

#include <cerrno>
#include <cmath>
#include <cstdio>

#include "MonotonicTime.h"

namespace orvplay {

void EventLog::begin() {
    mBeginNs = monotonicNs();
}

void EventLog::write(const std::string& event, nlohmann::ordered_json fields) {
    if (!isWanted()) {
        return;
    }
    const int64_t begin = mBeginNs;
    const double seconds = begin != 0 ? static_cast<double>(monotonicNs() - begin) * 1e-9 : 0.0;
    nlohmann::ordered_json line = {{"event", event}, {"t", std::round(seconds * 1000) / 1000}};
    line.update(fields);
    writeLine(line);
}

void EventLog::writeLine(const nlohmann::ordered_json& line) {
    if (!isWanted()) {
        return;
    }
    // What a stream names itself may be no valid UTF-8.
    const std::string text =
        line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::lock_guard<std::mutex> guard(mLock);
    mQueue.put(text);
    if (!mEnabled) {
        return;
    }
    if (fputs((text + "\n").c_str(), stdout) == EOF || fflush(stdout) != 0) {
        mWriteError = errno;
    }
}

}  // namespace orvplay
