#include "Transport.h"

#include <algorithm>
#include <chrono>

#include "HumanText.h"

using orvclient::Status;
using std::chrono::milliseconds;

namespace orvplay {

Status Transport::togglePause() {
    orvclient::Player& player = mParts.session.player();
    const bool pause = !mIsPaused;
    if (pause) {
        beginBreak();
    }
    const Status status = pause ? player.pause() : player.resume();
    if (!status.ok()) {
        return status;
    }
    mParts.events.write(pause ? "onPaused" : "onResumed", {{"result", 0}});
    mIsPaused = pause;
    if (pause) {
        mParts.pictures.showStatus("paused  " + position(), true);
    } else {
        beginBreak();  // what follows is later than it would have been
        showPosition("");
    }
    return status;
}

Status Transport::seekBy(int64_t ms) {
    if (mSource.kind == SourceKind::LIVE) {
        return {Status::REFUSED, "live television cannot go elsewhere; play a recording of it"};
    }
    orvclient::Player& player = mParts.session.player();
    const int64_t target = std::max<int64_t>(player.elapsed().count() + ms, 0);
    beginBreak();
    const Status status = player.seek(milliseconds(target));
    if (!status.ok()) {
        return status;
    }
    mParts.events.write("onSeeked", {{"position", target}});
    showPosition(mIsPaused ? "paused  " : "");
    return status;
}

void Transport::beginBreak() {
    mParts.askService();
    mParts.summary.beginBreak(mParts.session.figures());
    mParts.pictures.expectBreak();
    mFramesAtBreak = mParts.pictures.figures().frames;
    mIsBroken = true;
}

void Transport::look(const PictureOutput::Figures& figures) {
    if (!mIsBroken || mIsPaused || figures.frames == mFramesAtBreak) {
        return;
    }
    mIsBroken = false;
    mParts.askService();
    mParts.summary.endBreak(mParts.session.figures());
}

void Transport::showPosition(const std::string& what) {
    mParts.pictures.showStatus(what + position(), mIsPaused);
}

std::string Transport::position() const {
    if (mSource.kind == SourceKind::LIVE) {
        return "";
    }
    const int64_t elapsedMs = mParts.session.player().elapsed().count();
    const int64_t durationMs = mSource.kind == SourceKind::MEDIA
                                   ? mParts.session.figures().mediaDurationMs
                                   : mSource.durationMs;
    return durationMs > 0 ? timeText(std::min(elapsedMs, durationMs)) + " / " + timeText(durationMs)
                          : timeText(elapsedMs);
}

}  // namespace orvplay
