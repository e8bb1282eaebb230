#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "TimingFile.h"

namespace orvplay {

// How a run of playback is timed, as data: what the player service notes of each frame, block of
// sound and caption, the fill of its buffers, and what goes wrong, one JSON object a line
// (docs/timing.md).
//
// look() comes from the thread that plays, ten times a second; the other operations from any. None
// waits for the storage.
class TimingLog {
public:
    TimingLog() = default;
    TimingLog(const TimingLog&) = delete;  // callbacks know it by address
    TimingLog& operator=(const TimingLog&) = delete;

    // 0, or an errno.
    int open(const std::string& path) { return mFile.open(path); }
    // Hears of buffering and of the signal besides whoever hears of them already.
    void subscribe(orvclient::Callbacks* callbacks);

    // Times count from here. To be called before the player starts: it notes nothing before.
    // `isSteady`: packets come all the time, so that their absence is a fault.
    void begin(orvclient::Player& player, const std::string& source, int64_t beginNs,
               bool isSteady);
    // Takes what the service noted; nothing before begin().
    void look(orvclient::Player& player);
    // The same once it was stopped, which ends its clock.
    void lookAtEnd(orvclient::Player& player);

    void onCaption(const std::string& utf8);
    // Of a media file, whose player notes nothing: a picture came, due at that time.
    void onPicture(int64_t timestampNs);
    // Something went wrong at that moment (CLOCK_MONOTONIC), with more to say about it.
    void onFault(const std::string& what, int64_t timeNs, const nlohmann::ordered_json& more = {});

    // Writes what is left; 0, or an errno.
    int finish();

private:
    using Json = nlohmann::ordered_json;

    struct Text {
        int64_t timeNs;
        std::string utf8;
    };

    void onEvent(const orvhost::PresentationEvent& event, double latencyMs);
    void writeCaptions(bool all);
    std::optional<std::string> takeText(int64_t timeNs);
    void writeFills(const orvhost::PresentationReport& report, int64_t nowNs);
    void compareSignals(const orvhost::TunerSignal& signal, int64_t nowNs);
    void watchPackets(const orvhost::TunerSignal& signal, int64_t nowNs);
    void write(const char* kind, int64_t timeNs, const Json& fields);

    TimingFile mFile;
    std::atomic<int64_t> mBeginNs{0};

    // Of the thread that plays.
    bool mIsSteady = false;
    bool mHasReported = false;
    bool mIsStopped = false;
    orvhost::TunerSignal mSignal;  // the last one
    int64_t mPacketsNs = 0;        // when packets came last; 0: none yet
    bool mIsGap = false;
    std::deque<orvhost::PresentationEvent> mCaptions;  // shown, and their texts to come

    std::mutex mTextLock;
    std::deque<Text> mTexts;
};

}  // namespace orvplay
