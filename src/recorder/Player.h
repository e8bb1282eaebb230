#pragma once

#include <utils/RefBase.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "common/IPlayerListener.h"
#include "common/Uint33.h"
#include "recorder/ListenerGuard.h"

namespace OrvPlayer {

// The companion of a pipeline that plays a recording: it talks to the service that feeds the
// recording, and tells how far playback is. The controller makes one for each recording.
//
// Elapsed time is counted in whole seconds from time stamps of what is shown: the first one after
// the start, after a seek or after a step back is taken for the time that was told last, and only a
// later second is told.
//
//   time stamp / 90,000      50.0   50.5   51.2   51.3   | seek to 30 s |   12.0   13.1
//   told                     -      -      1      -                         -      31
//
// Commands come from one thread; updateCurTime() comes from the thread that presents pictures, and
// never waits for a command. The listener is called on any thread, during a command as well.
class Player : public virtual android::RefBase {
public:
    enum Error : int { PLAYER_ERROR_SERVICE = 0x21001 };

    Player() = default;
    Player(const Player&) = delete;  // its listener is known to the service
    Player& operator=(const Player&) = delete;

    // Not owned. Once setListener(nullptr) has returned no call runs and none comes. Before
    // start().
    void setListener(IPlayerListener* listener);
    void setFilePath(const std::string& path);

    // Registers for the service's events and asks for the duration; one it cannot tell stays what
    // it was.
    void start();
    // From here on time stamps are passed over. The service is not told: it stops with its filters.
    void stop();
    void pause();
    void resume();

    bool isPossibleSeek();
    // A target within the last 1.5 s, beyond the end or below 0 is no seek: the listener is told
    // the end of the content.
    void seek(int positionMs);

    // The time stamp of the picture that is shown.
    void updateCurTime(Uint33 pts);
    // How far playback is, as told last.
    unsigned int getCurrentTimeMs();

protected:
    ~Player() override = default;

private:
    // Playback is there from here on, in whole seconds, which it returns; the next time stamp is
    // taken for it.
    uint32_t moveTo(int positionMs);
    // The new second to tell; false when there is none.
    bool countTime(Uint33 pts, uint32_t* elapsedMs, uint32_t* elapsedSec);

    ListenerGuard<IPlayerListener> mListener;
    IPlayerListener* mListenerKey = nullptr;  // what the service hands to the callback

    // With mTimeLock, but for the path.
    uint32_t m_elapsedTimeSec = 0;
    bool mStopped = false;
    std::string mFilePath;
    uint32_t mDuration = 0;   // ms; 0: unknown
    uint64_t m_startPTS = 0;  // at elapsed time 0, 90 kHz; 0: not known

    std::mutex mTimeLock;  // a leaf
};

// What the recorder service calls while it feeds a recording; `listener` is an IPlayerListener that
// may be gone.
void playerCallback(int event, void* listener);

}  // namespace OrvPlayer
