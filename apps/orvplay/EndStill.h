#pragma once

#include <orvclient/Player.h>

#include <string>

#include "EventLog.h"
#include "PictureOutput.h"
#include "PngEncoder.h"
#include "Still.h"

namespace orvplay {

// The still that a run of playback may leave: what is on the screen at its end. Calls come from one
// thread, stills on another.
class EndStill {
public:
    // Nothing happens with an empty path.
    explicit EndStill(std::string path) : mPath(std::move(path)) {}
    EndStill(const EndStill&) = delete;  // callbacks know it by address
    EndStill& operator=(const EndStill&) = delete;

    // Takes what comes; it must outlive whoever calls it.
    void subscribe(orvclient::Callbacks* callbacks);

    // The source has nothing more: with the last picture the chance of a still has gone, so from
    // here on one replaces another.
    void keepLatest(orvclient::Player& player);
    // Has what is on the screen now, for which it waits; where no picture comes any more, or there
    // is no player to ask (null), what came last.
    void take(orvclient::Player* player);
    // The same of a media file, whose stills the player does not make.
    void take(const PictureOutput& pictures);
    // Writes it. False, and one line on standard error, when there is none or that fails.
    bool save(const StillLabels& labels, EventLog& events);

private:
    const std::string mPath;
    StillTray mTray{1};
    Still mStill;
    bool mTaken = false;
};

}  // namespace orvplay
