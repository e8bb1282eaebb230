#pragma once

#include <atomic>
#include <string>

#include "EventLog.h"
#include "servicecontroller/ServiceController.h"

namespace orvplay {

// What the player's monitor tells of the service while it plays: each event goes to the log under
// the name of the player's callback, and what holds at the moment can be read for the status line.
// Any thread.
class ServiceState {
public:
    using Event = OrvPlayer::ServiceController::event_t;

    // The log must outlive it.
    explicit ServiceState(EventLog& events) : mEvents(events) {}

    void onEvent(Event event, unsigned int value1, unsigned int value2);

    // "buffering 40 %", "signal weak", "no signal"; empty when all is well.
    std::string text() const;

private:
    EventLog& mEvents;
    std::atomic<unsigned int> mSignal{0};  // a SignalStatus
    std::atomic<bool> mBuffering{false};
    std::atomic<unsigned int> mProgress{0};
};

}  // namespace orvplay
