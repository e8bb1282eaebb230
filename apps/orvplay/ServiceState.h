#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <string>

#include "EventLog.h"

namespace orvplay {

// What the player's monitor tells of the service while it plays: each event goes to the log under
// the name of the player's callback, and what holds at the moment can be read for the status line.
// Any thread.
class ServiceState {
public:
    // The log must outlive it.
    explicit ServiceState(EventLog& events) : mEvents(events) {}

    // Takes these events; it must outlive whoever calls them.
    void subscribe(orvclient::Callbacks* callbacks);

    // Something else plays: all is well there until it is told otherwise.
    void reset();

    // "buffering 40 %", "signal weak", "no signal"; empty when all is well.
    std::string text() const;
    // "good", "weak", "lost".
    const char* signalName() const;
    // How full the buffers are, of 100; 100 when it is not buffering.
    int bufferedPercent() const { return mBuffering ? mProgress.load() : 100; }

private:
    void onSignal(unsigned int previous, unsigned int current);

    EventLog& mEvents;
    std::atomic<orvclient::Signal> mSignal{orvclient::Signal::GOOD};
    std::atomic<bool> mBuffering{false};
    std::atomic<int> mProgress{0};
};

}  // namespace orvplay
