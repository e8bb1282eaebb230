// What a change of channel does to a run of playback: what plays is left, and another service takes
// its place behind the same outputs.

#include "ChannelSource.h"
#include "MonotonicTime.h"
#include "PlayRun.h"
#include "ServiceChoice.h"
#include "SourceChoice.h"
#include "TuneFailure.h"
#include "dtv/SourceUri.h"

using orvclient::Status;

namespace orvplay {

void PlayRun::leaveChannel() {
    if (mSession->player().isRecording()) {
        if (const Status kept = mControl->stopRecording(true); !kept.ok()) {
            mMessages.say(kept.message);
        }
    }
    mControl->leaveChannel();
    mIsOpen = false;
    mPictures->showCaption("");
    mSession->player().stop();
}

ZapControl::Failure PlayRun::enterChannel(const Channel& channel, ZapTimes* times) {
    const std::optional<int> adapter = mOptions.adapter;
    if (ZapControl::Failure failure = tuneChannel(sourceOf(channel, adapter.value_or(0)));
        failure.code != EXIT_OK) {
        return failure;
    }
    times->reach(ZapPart::TUNE, monotonicNs());
    static_cast<StreamOptions&>(mOptions) = {};
    mOptions.adapter = adapter;
    mOptions.source = mSource.path;
    mOptions.service = channel.serviceId != 0 ? std::to_string(channel.serviceId) : "";
    StreamSelection selection;
    std::string error;
    if (const int code = findStreams(mSession->tuner(), mOptions, &selection, &error);
        code != EXIT_OK) {
        return {code, error};
    }
    times->reach(ZapPart::TABLES, monotonicNs());
    if (selection.serviceName.empty()) {
        selection.serviceName = channel.name;
    }
    mSelection = selection;
    forgetEvents();
    if (const Status status = openAndStart(); !status.ok()) {
        return {status.code == Status::LOST ? EXIT_SERVICE : EXIT_PLAYBACK,
                "the player cannot start" + (status.message.empty()
                                                 ? " (code " + std::to_string(status.code) + ")"
                                                 : ": " + status.message)};
    }
    mControl->enterChannel();
    return {};
}

// A file or a pipe that is tuned already goes on where it is. What a URI names is the tuner's to
// compare: the same one stays, too.
ZapControl::Failure PlayRun::tuneChannel(const std::string& source) {
    if (source.empty()) {
        return {EXIT_FAILED, "is not of ISDB-T, nothing else is received here"};
    }
    const bool isSame = mIsTuned && placeOf(source) == placeOf(mSource.path);
    mSource.path = source;
    if (!isSame || orvhost::SourceUri::isUri(source)) {
        const orvhost::TuneResult tuned = tuneTo(*mSession, mSource, mOptions.keepGaps);
        mIsTuned = tuned.ok();
        return {mIsTuned ? int{EXIT_OK} : exitCodeOf(tuned.status), tuned.message};
    }
    return {};
}

void PlayRun::showChannels(std::vector<ChannelRow> rows, int playing) {
    const std::string number = playing >= 0 ? rows[static_cast<size_t>(playing)].number : "";
    mScreen->setChannels(std::move(rows), playing);
    mScreen->onChannel(number, playing);
}

// Of the channel before.
void PlayRun::forgetEvents() {
    askService(true);
    mService.reset();
    mSourceEnd = {};
    mEndOfContent = false;
    mError = 0;
    mLastRestartNs = 0;
    mFramesAtRestart = mSession->figures().framesTimed;
}

}  // namespace orvplay
