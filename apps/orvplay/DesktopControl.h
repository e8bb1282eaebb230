#pragma once

#include <poll.h>

#include <string>

#include "MprisPlayer.h"
#include "PlayControl.h"
#include "PlaySource.h"
#include "ScreenStateSource.h"

namespace orvplay {

// Ties a run of playback to the user's desktop: tells it what plays, and does what it asks for.
// Without a desktop's bus nothing happens. One thread.
class DesktopControl {
public:
    // All of it outlives it.
    DesktopControl(PlayControl& control, const ScreenStateSource& screen, const PlaySource& source)
        : mControl(control), mScreen(screen), mSource(source) {
        mDesktop.open();
    }

    // To be waited for before look().
    pollfd watched() const { return mDesktop.watched(); }
    // To be called often. Where the player had to be made anew for what was asked for and could
    // not, PlayControl tells it.
    void look();
    bool quitRequested() const { return mIsQuitRequested; }

private:
    MprisState state();

    PlayControl& mControl;
    const ScreenStateSource& mScreen;
    const PlaySource& mSource;
    MprisPlayer mDesktop;
    std::string mPath;  // of the source, as the URI has it
    std::string mUri;
    bool mIsQuitRequested = false;
};

// A source as the desktop is told of it: an absolute URI, empty for what has none.
std::string uriOf(const std::string& path);

}  // namespace orvplay
