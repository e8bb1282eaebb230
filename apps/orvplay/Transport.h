#pragma once

#include <cstdint>
#include <string>

#include "PlayParts.h"
#include "PlaySource.h"

namespace orvplay {

// Pause and seek of a run of playback, and where it is. From a pause or a seek to the first picture
// after it playback is broken: pictures that are thrown away meanwhile are none that were dropped,
// and times count from the next one on. One thread.
class Transport {
public:
    Transport(PlayParts parts, PlaySource source)
        : mParts(std::move(parts)), mSource(std::move(source)) {}

    orvclient::Status togglePause();
    orvclient::Status seekBy(int64_t ms);
    orvclient::Status seekTo(int64_t positionMs);

    // Goes on where playback of the recording stopped last, or says that this can be had.
    orvclient::Status resume(bool isWanted);
    // Has that kept for the next time; of one that was seen to its end, or to about there, nothing.
    void keepPosition();

    // What plays is about to be left for another channel, paused or not; the other one was started.
    void leaveChannel();
    void enterChannel() { expectOthers(); }

    // To be called now and then with what came out.
    void look(const PictureOutput::Figures& figures);

    bool isPaused() const { return mIsPaused; }
    // "0:12 / 1:30", "0:12" where the length is unknown; nothing for what has no position.
    std::string position() const;
    // How far it is, of how much; 0 where that is unknown.
    int64_t positionMs() const;
    int64_t durationMs() const;
    // How often it went elsewhere.
    uint32_t seeks() const { return mSeeks; }

private:
    orvclient::Status goOn();
    void beginBreak();
    void expectOthers();
    void showPosition(const std::string& what);

    const PlayParts mParts;
    const PlaySource mSource;
    bool mIsPaused = false;
    bool mIsBroken = false;
    static constexpr int64_t END_MS = 5'000;  // what is left there is no reason to come back

    bool isAboutTheEnd(int64_t positionMs) const {
        return mSource.durationMs > 0 && positionMs + END_MS >= mSource.durationMs;
    }

    uint64_t mFramesAtBreak = 0;
    uint32_t mSeeks = 0;
};

}  // namespace orvplay
