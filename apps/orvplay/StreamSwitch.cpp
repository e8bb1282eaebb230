#include "StreamSwitch.h"

using orvclient::Status;

namespace orvplay {

void StreamSwitch::nextCaptions() {
    const Track* next = mSelection.nextCaptions(mCaptionsShown);
    if (next != nullptr && next->pid != mSelection.captionPid) {
        if (!mParts.session.player().setCaptionPid(next->pid).ok()) {
            mParts.messages.say("the captions cannot be changed to " + describe(*next));
            return;
        }
        mSelection.captionPid = next->pid;
        mParts.pictures.showCaption("");
    }
    mCaptionsShown = next != nullptr;
    mCaptionsWanted = mCaptionsShown || mSelection.captions.empty();
    mParts.pictures.setCaptionsVisible(mCaptionsWanted);
    mParts.messages.say(next != nullptr               ? "captions: " + describe(*next)
                        : mSelection.captions.empty() ? "the service has no captions"
                                                      : "captions: off");
}

// The decoder keeps the coding that it was made for.
Status StreamSwitch::nextSound() {
    const Track* next = mSelection.nextSound();
    if (next == nullptr) {
        mParts.messages.say("the service has no other sound");
        return {};
    }
    const bool sameCoding = mSelection.audioPid != 0 && next->kind == mSelection.audioKind;
    const Track track = *next;
    if (sameCoding && mParts.session.player().setAudioPid(track.pid).ok()) {
        mSelection.audioPid = track.pid;
    } else {
        mParts.session.player().stop();
        mSelection.audioPid = track.pid;
        mSelection.audioKind = track.kind;
        if (const Status status = mParts.playAgain(); !status.ok()) {
            return status;
        }
    }
    mParts.messages.say("sound: " + describe(track));
    return {};
}

}  // namespace orvplay
