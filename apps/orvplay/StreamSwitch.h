#pragma once

#include "PlayParts.h"
#include "StreamSelection.h"

namespace orvplay {

// Changes between the sounds and the captions of the service that plays. One thread.
class StreamSwitch {
public:
    // `selection` is what is played, and is kept so.
    StreamSwitch(PlayParts parts, StreamSelection& selection)
        : mParts(std::move(parts)), mSelection(selection) {}

    void nextCaptions();
    // Another service plays; its captions are shown unless the user had them hidden.
    void enterChannel() { mCaptionsShown = mSelection.captionPid != 0 && mCaptionsWanted; }
    // A sound of another coding needs the player made anew. Its status; the rest was told.
    orvclient::Status nextSound();

private:
    const PlayParts mParts;
    StreamSelection& mSelection;
    bool mCaptionsWanted = true;
    bool mCaptionsShown = mSelection.captionPid != 0;
};

}  // namespace orvplay
