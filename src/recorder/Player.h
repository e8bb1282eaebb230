#pragma once

#include <utils/RefBase.h>

#include <string>

#include "common/IPlayerListener.h"
#include "common/Uint33.h"

namespace OrvPlayer {

// The companion of a pipeline that plays a recording: it talks to the service that feeds the
// recording, and tells how far playback is. The controller makes one for each recording.
//
// Commands come from one thread; updateCurTime() comes from the thread that presents pictures. The
// listener is called on any thread, during a command as well.
class Player : public virtual android::RefBase {
public:
    // Not owned. Once setListener(nullptr) has returned no call runs and none comes.
    virtual void setListener(IPlayerListener* listener) = 0;
    virtual void setFilePath(const std::string& path) = 0;

    virtual void start() = 0;
    virtual void stop() = 0;
    virtual void pause() = 0;
    virtual void resume() = 0;

    virtual bool isPossibleSeek() = 0;
    // A target at the end is no seek: the listener is told the end of the content.
    virtual void seek(int positionMs) = 0;

    // The time stamp of the picture that is shown.
    virtual void updateCurTime(Uint33 pts) = 0;
    // How far playback is.
    virtual unsigned int getCurrentTimeMs() = 0;
};

}  // namespace OrvPlayer
