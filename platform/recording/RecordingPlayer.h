#pragma once

#include <dtv/RecPlayerBinder.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "dtv/Tuner.h"
#include "recording/PlaybackEvents.h"
#include "recording/RecordingDetails.h"

namespace orvhost {

class PlayedRecording;

// The playback half of the recorder service: what <dtv/RecPlayerBinder.h> promises of it, over the
// recording that a tuner is tuned to. Any thread.
//
// Two positions meet here. The player says how far it is; the feed is seconds ahead of that. When
// the player starts again without having asked for a position, the feed goes back to where the
// player was.
class RecordingPlayer : private PlaybackListener {
public:
    static RecordingPlayer& instance();

    // Nothing is tuned yet, and no filter runs when this one ends.
    explicit RecordingPlayer(Tuner& tuner);
    ~RecordingPlayer() override;
    RecordingPlayer(const RecordingPlayer&) = delete;  // the tuner knows us by address
    RecordingPlayer& operator=(const RecordingPlayer&) = delete;

    // The player begins, or goes on.
    bool begin(RecPlayerBinder_EventCallback callback, void* userData);

    // By the name of the tuned source, then from its own descriptor, or by path.
    bool details(const std::string& path, RecordingDetails* details);

    bool setPaused(bool paused);
    bool canSeek();
    bool seek(int64_t positionMs);

    // Where the player is. Never waits.
    void setPosition(uint32_t elapsedMs) { mPositionMs = elapsedMs; }
    uint32_t positionMs() const { return mPositionMs; }

private:
    void onPlaybackEvent(int event) override;
    void onFiltersStopped() override;
    std::shared_ptr<PlayedRecording> played(const RecordedSource& source);
    bool goTo(const RecordedSource& source, int64_t positionMs);

    Tuner& mTuner;
    PlaybackEvents mEvents;
    std::atomic<uint32_t> mPositionMs{0};
    std::atomic<bool> mSeekAsked{false};  // since the player began last
    std::mutex mMutex;                    // the two below
    uint64_t mTuning = 0;
    std::shared_ptr<PlayedRecording> mPlayed;
};

}  // namespace orvhost
