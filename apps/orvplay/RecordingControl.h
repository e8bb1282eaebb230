#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "EventLog.h"
#include "Messages.h"

namespace orvplay {

// The recording of what plays: begins and ends it, notices when it ends by itself, and says so.
// Events come on another thread than the rest.
class RecordingControl {
public:
    // Both must outlive it.
    RecordingControl(EventLog& events, Messages& messages) : mEvents(events), mMessages(messages) {}
    RecordingControl(const RecordingControl&) = delete;  // callbacks know it by address
    RecordingControl& operator=(const RecordingControl&) = delete;

    // Takes these events; it must outlive whoever calls them.
    void subscribe(orvclient::Callbacks* callbacks);

    orvclient::Status start(orvclient::Player& player, const orvclient::RecordingLabels& labels);
    // To be called now and then: ends, and keeps, a recording that failed. One that goes on with a
    // hole in it is left alone; of its holes the first is told.
    void look(orvclient::Player& player);
    // One did.
    bool hasFailed() const { return mHasFailed; }

    // Of the recording that is under way, or was last; 0: none, or unknown.
    int number() const { return mNumber; }
    // Since it began; "0:12".
    int64_t lengthMs() const;
    std::string lengthText() const;

private:
    static constexpr int NO_FAILURE = -1;

    bool goesOn(orvclient::Player& player) const;

    EventLog& mEvents;
    Messages& mMessages;
    std::atomic<int> mFailure{NO_FAILURE};  // not looked at yet
    bool mHasBegun = false;                 // by the events
    std::atomic<int> mNumber{0};
    int mHoleToldOf = 0;  // the recording
    bool mHasFailed = false;
    int64_t mBeginNs = 0;
};

// What the broadcast names something, as the recorder takes it: without what parts its parameters.
std::string toLabel(const std::string& name);

}  // namespace orvplay
