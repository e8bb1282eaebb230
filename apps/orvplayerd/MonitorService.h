#pragma once

#include <orv/IMonitor.h>

#include <deque>
#include <mutex>

#include "SoundCounter.h"

namespace orvplayerd {

// "OrvMonitor": what this process counts, and the state of the player as text. Any thread.
class MonitorService : public orvhost::BnMonitor {
public:
    explicit MonitorService(SoundCounter& sound) : mSound(sound) {}

    android::status_t figures(orvhost::PlaybackFigures* figures) override;
    android::status_t presentation(orvhost::PresentationReport* report) override;

    // Whoever may play here may say how loud.
    android::status_t setVolume(int32_t percent, bool isMuted) override;

    // For this process's user, root and whoever holds "android.permission.DUMP"; others get
    // PERMISSION_DENIED. A reader that does not take the text within a second gets the beginning of
    // it, and TIMED_OUT.
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

private:
    void takeEvents(orvhost::PresentationReport* report);
    void noticeWindowDrops();
    bool takeWindowDrop(int64_t pts90k);

    SoundCounter& mSound;
    std::mutex mPresentationLock;      // one reader of the player's log at a time; the next two
    std::deque<int64_t> mWindowDrops;  // pictures that found no buffer, by their time of 90 kHz
    uint64_t mWindowDropsSeen = 0;
};

// The state of the player as text, written to a descriptor of any kind; false after a second
// without a reader. No lock of the player is held while writing.
bool writePlayerState(int fd);

}  // namespace orvplayerd
