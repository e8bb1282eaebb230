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
    const Status status = pause ? player.pause() : goOn();
    if (!status.ok()) {
        return status;
    }
    mParts.events.write(pause ? "onPaused" : "onResumed", {{"result", 0}});
    mIsPaused = pause;
    if (pause) {
        expectOthers();
        mParts.pictures.showStatus("paused  " + position(), true);
    } else {
        beginBreak();  // what follows is later than it would have been
        showPosition("");
    }
    return status;
}

// What was sent to a paused broadcast is late, and the player lets sound stay up to 0.2 s late from
// then on; from a new beginning it is exact. That would end a recording under way.
Status Transport::goOn() {
    orvclient::Player& player = mParts.session.player();
    if (mSource.kind != SourceKind::LIVE || player.isRecording()) {
        return player.resume();
    }
    const Status status = player.stop();
    return status.ok() ? mParts.playAgain() : status;
}

Status Transport::seekBy(int64_t ms) {
    if (mSource.kind == SourceKind::LIVE) {
        return {Status::REFUSED, "live television cannot go elsewhere; play a recording of it"};
    }
    return seekTo(std::max<int64_t>(mParts.session.player().elapsed().count() + ms, 0));
}

Status Transport::seekTo(int64_t positionMs) {
    beginBreak();
    const Status status = mParts.session.player().seek(milliseconds(positionMs));
    if (!status.ok()) {
        return status;
    }
    expectOthers();
    ++mSeeks;
    mParts.events.write("onSeeked", {{"position", positionMs}});
    showPosition(mIsPaused ? "paused  " : "");
    return status;
}

Status Transport::resume(bool isWanted) {
    if (mSource.positionMs == 0) {
        return {};
    }
    if (isWanted) {
        return seekTo(mSource.positionMs);
    }
    mParts.messages.say("playback stopped at " + timeText(mSource.positionMs) +
                        " last time; --resume goes on there");
    return {};
}

void Transport::keepPosition() {
    const milliseconds elapsed = mParts.session.player().elapsed();
    if (mSource.kind != SourceKind::RECORDING || elapsed.count() == 0) {
        return;
    }
    const auto kept = mParts.session.player().recordings().setPosition(
        mSource.number, isAboutTheEnd(elapsed.count()) ? milliseconds(0) : elapsed);
    if (!kept.ok()) {
        mParts.messages.say("where playback stopped is not kept: " + kept.message);
    }
}

void Transport::beginBreak() {
    mParts.askService();
    mParts.summary.beginBreak(mParts.session.figures());
    expectOthers();
}

void Transport::leaveChannel() {
    mIsPaused = false;
    beginBreak();
}

// To be said once more when playback stands: until then a picture of before may come.
void Transport::expectOthers() {
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
    const int64_t length = durationMs();
    return length > 0 ? timeText(positionMs()) + " / " + timeText(length) : timeText(positionMs());
}

int64_t Transport::positionMs() const {
    const int64_t elapsedMs = mParts.session.player().elapsed().count();
    const int64_t length = durationMs();
    return length > 0 ? std::min(elapsedMs, length) : elapsedMs;
}

int64_t Transport::durationMs() const {
    return mSource.kind == SourceKind::MEDIA ? mParts.session.figures().mediaDurationMs
                                             : mSource.durationMs;
}

}  // namespace orvplay
