#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "EventQueue.h"

namespace orvplay {

// The program's events, one JSON object a line on standard output, when that was asked for:
//     {"event":"startComplete","t":0.004,"result":0}
// `t` is in seconds since begin(). Whether or not that was asked for, other commands can have the
// same lines through the queue. Any thread.
class EventLog {
public:
    explicit EventLog(bool enabled) : mEnabled(enabled) {}

    EventQueue& queue() { return mQueue; }

    // The start of playback was commanded: time counts from here.
    void begin();
    int64_t beginNs() const { return mBeginNs; }

    void write(const std::string& event,
               nlohmann::ordered_json fields = nlohmann::ordered_json::object());
    // For a line that carries no time: the summary.
    void writeLine(const nlohmann::ordered_json& line);

    bool enabled() const { return mEnabled; }
    // Nothing more can be written: why, as an errno. EPIPE when whoever read it is gone.
    int writeError() const { return mWriteError; }

private:
    bool isWanted() const { return mEnabled || mQueue.isWanted(); }

    const bool mEnabled;
    EventQueue mQueue;
    std::atomic<int64_t> mBeginNs{0};
    std::atomic<int> mWriteError{0};
    std::mutex mLock;  // one line at a time
};

}  // namespace orvplay
