#pragma once

#include <dtv/BroadcastTypes.h>

#include "PlayParts.h"
#include "PlaySource.h"
#include "RecordingControl.h"
#include "ScreenState.h"
#include "ServiceState.h"
#include "StreamSelection.h"
#include "SyncMeter.h"
#include "Transport.h"

namespace orvplay {

// Keeps the ScreenState of what plays, and shows it where there is a display. The service is asked
// for what is on air once a second at most. One thread.
class ScreenStateSource {
public:
    // What it looks at; all of it outlives it.
    struct Sources {
        const PlaySource& source;
        const StreamSelection& selection;
        const ServiceState& service;
        const RecordingControl& recording;
        const Transport& transport;
        const SyncMeter& sync;
    };

    ScreenStateSource(const PlayParts& parts, const Sources& sources)
        : mParts(parts), mSources(sources) {}
    ScreenStateSource(const ScreenStateSource&) = delete;  // shows what it keeps
    ScreenStateSource& operator=(const ScreenStateSource&) = delete;

    // To be called now and then with what came out: passed over within half a second, unless the
    // user changed something that is seen.
    void look(const PictureOutput::Figures& figures);

    // Something else plays: what was on air before is forgotten and the banner shown. `number` is
    // the channel's, empty without one, and `playing` its row of setChannels().
    void onChannel(const std::string& number, int playing);
    // The channels to choose from; those that are `isHere` are given what is on air.
    void setChannels(std::vector<ChannelRow> rows, int playing);

    // As the last look found it.
    const ScreenState& state() const { return mState; }
    const ChannelRows& channels() const { return mChannels; }

private:
    bool hasUserChange() const;
    void readBroadcast(int64_t nowNs);
    void fillChannels();

    const PlayParts mParts;
    const Sources mSources;
    ScreenState mState;
    orvhost::BroadcastInformation mInformation;
    ChannelRows mChannels;
    bool mChannelsChanged = false;
    bool mHasBegun = false;        // the first picture came
    int64_t mNextNs = 0;           // monotonic: of the next look
    int64_t mNextBroadcastNs = 0;  // likewise, at the broadcast
    int64_t mClockReadNs = 0;      // when mInformation was
};

}  // namespace orvplay
