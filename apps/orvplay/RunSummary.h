#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "PictureOutput.h"
#include "SyncMeter.h"

namespace orvplay {

// What a run came to: figures at the outputs, and what this process and the player service used for
// them. What the service counted is given as it stands since playback started.
class RunSummary {
public:
    using ServiceCounts = orvclient::PlaybackFigures;

    // Playback starts: usage counts from here.
    void begin();
    // What plays the sound does not count it, nor when it is heard.
    void leaveOutSound() { mHasSound = false; }
    // The outputs opened: pictures thrown away count from here.
    void outputsOpened(const ServiceCounts& service);
    // Playback is paused or goes elsewhere, and shows pictures again: what is thrown away in
    // between was not dropped. The first beginning of several counts.
    void beginBreak(const ServiceCounts& service);
    void endBreak(const ServiceCounts& service);
    // Any thread.
    void countCaption() { ++mCaptions; }
    // As it stands: pictures that were dropped, captions that came, processor time of this program.
    uint64_t dropped(const ServiceCounts& service) const;
    uint64_t captions() const { return mCaptions; }
    double ownCpuSeconds() const;
    // Playback is about to stop: what is thrown away later does not count.
    void end(const ServiceCounts& service);

    // How the source came in; told of networks and adapters.
    void setReception(const orvhost::TunerSignal& signal) { mReception = signal; }

    nlohmann::ordered_json toJson(const PictureOutput::Figures& pictures,
                                  const SyncMeter& sync) const;
    // A few lines for people.
    std::string toText(const PictureOutput::Figures& pictures, const SyncMeter& sync) const;

private:
    double firstFrameMs(const PictureOutput::Figures& pictures) const;

    int64_t mBeginNs = 0;
    double mCpuAtBegin = 0.0;
    double mCpuSeconds = 0.0;
    int64_t mSwitchesAtBegin = 0;
    int64_t mSwitches = 0;
    int64_t mMaxRssKb = 0;
    nlohmann::ordered_json mFirstIdrMs;  // null: none came
    uint64_t mAudioFrames = 0;
    uint64_t mDroppedAtOpening = 0;
    uint64_t mDropped = 0;
    bool mOpened = false;
    bool mHasSound = true;
    std::optional<uint64_t> mThrownAwayAtBreak;  // while there is one
    uint64_t mThrownAwayInBreaks = 0;
    orvhost::TunerSignal mReception;
    std::atomic<uint64_t> mCaptions{0};
};

}  // namespace orvplay
