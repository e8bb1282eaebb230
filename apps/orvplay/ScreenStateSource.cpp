#include "ScreenStateSource.h"

#include <algorithm>

#include "GuideText.h"
#include "MonotonicTime.h"

namespace orvplay {

namespace {

constexpr int64_t LOOK_NS = 500'000'000;
constexpr int64_t BROADCAST_NS = 1'000'000'000;

std::optional<Programme> programmeOf(const orvhost::BroadcastInformation& information,
                                     uint16_t serviceId, bool following) {
    const orvhost::BroadcastEvent* const event = eventOf(information, serviceId, following);
    if (event == nullptr) {
        return std::nullopt;
    }
    Programme programme{eventName(information, *event), eventText(information, *event),
                        event->startUtcS, -1};
    if (event->startUtcS >= 0 && event->durationS >= 0) {
        programme.endUtcS = event->startUtcS + event->durationS;
    }
    return programme;
}

}  // namespace

void ScreenStateSource::look(const PictureOutput::Figures& figures) {
    const int64_t nowNs = monotonicNs();
    if (nowNs < mNextNs && !hasUserChange()) {
        return;
    }
    mNextNs = nowNs + LOOK_NS;
    orvclient::Player& player = mParts.session.player();
    mState.volumePercent = player.volume();
    mState.isMuted = player.isMuted();
    mState.madeNs = nowNs;
    mState.kind = mSources.source.kind;
    mState.name =
        !mSources.source.title.empty() ? mSources.source.title : mSources.selection.serviceName;
    mState.serviceId = mSources.selection.serviceId;
    mState.signalText = mState.kind != SourceKind::MEDIA ? mSources.service.text() : "";
    const bool isRecording = player.isRecording();
    mState.recordingNumber = isRecording ? mSources.recording.number() : 0;
    mState.recordingMs = isRecording ? mSources.recording.lengthMs() : 0;
    mState.isPaused = mSources.transport.isPaused();
    mState.positionMs = mState.kind != SourceKind::LIVE
                            ? mSources.transport.positionMs()
                            : (figures.lastFrameNs - figures.firstFrameNs) / 1'000'000;
    mState.durationMs = mSources.transport.durationMs();
    mState.width = figures.width;
    mState.height = figures.height;
    mState.isInterlaced = figures.interlaced;
    mState.picturesDropped = mParts.summary.dropped(mParts.session.figures());
    const Distribution skew = mSources.sync.skew();
    mState.skewMs = skew.count() > 0 ? std::optional<double>(skew.meanMs()) : std::nullopt;
    if (mState.kind == SourceKind::LIVE && nowNs >= mNextBroadcastNs) {
        mNextBroadcastNs = nowNs + BROADCAST_NS;
        readBroadcast(nowNs);
    }
    if (mInformation.clock.utcS >= 0) {
        mState.clockUtcS = mInformation.clock.utcS +
                           (mInformation.clock.ageMs + (nowNs - mClockReadNs) / 1'000'000) / 1000;
    }
    mParts.pictures.showState(mState);
    if (figures.frames > 0 && !std::exchange(mHasBegun, true)) {
        mParts.pictures.showBanner();
    }
    if (std::exchange(mChannelsChanged, false)) {
        mParts.pictures.showChannels(mChannels);
    }
}

bool ScreenStateSource::hasUserChange() const {
    const orvclient::Player& player = mParts.session.player();
    return player.volume() != mState.volumePercent || player.isMuted() != mState.isMuted ||
           player.isRecording() != (mState.recordingNumber != 0) ||
           mSources.transport.isPaused() != mState.isPaused;
}

void ScreenStateSource::readBroadcast(int64_t nowNs) {
    orvclient::Player& player = mParts.session.player();
    mState.reception = player.tuner().signal();
    mState.picturesPerSecond = std::max(player.frameRate(), 0);
    orvhost::BroadcastInformation information = player.tuner().information(0);
    if (!information.result.ok()) {
        return;  // what was told before still stands
    }
    mInformation = std::move(information);
    mClockReadNs = nowNs;
    mState.localOffsetMinutes = mInformation.clock.localOffsetMinutes;
    mState.now = programmeOf(mInformation, mState.serviceId, false);
    mState.next = programmeOf(mInformation, mState.serviceId, true);
    fillChannels();
}

void ScreenStateSource::fillChannels() {
    for (size_t i = 0; i < mChannels.rows.size(); ++i) {
        ChannelRow& row = mChannels.rows[i];
        const bool isPlaying = static_cast<int>(i) == mChannels.playing;
        const uint16_t serviceId = isPlaying ? mState.serviceId : row.serviceId;
        const orvhost::BroadcastEvent* const event = (row.isHere || isPlaying) && serviceId != 0
                                                         ? eventOf(mInformation, serviceId, false)
                                                         : nullptr;
        if (event != nullptr) {
            std::string title = eventName(mInformation, *event);
            mChannelsChanged |= title != row.now;
            row.now = std::move(title);
        }
    }
}

void ScreenStateSource::onChannel(const std::string& number, int playing) {
    mState.channelNumber = number;
    mState.now.reset();
    mState.next.reset();
    mState.clockUtcS = -1;
    mState.picturesPerSecond = 0.0;
    mInformation = {};
    mChannels.playing = playing;
    mChannelsChanged = true;
    mNextNs = 0;
    mNextBroadcastNs = 0;
    mParts.pictures.showBanner();
}

void ScreenStateSource::setChannels(std::vector<ChannelRow> rows, int playing) {
    mChannels = {std::move(rows), playing};
    mChannelsChanged = true;
    fillChannels();
}

}  // namespace orvplay
