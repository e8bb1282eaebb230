#include "PlayerSession.h"

#include "MonotonicTime.h"
#include "client/CaptionText.h"

namespace orvplay {

PlayerSession::PlayerSession(const android::sp<android::IGraphicBufferProducer>& producer,
                             Events events)
    : mEvents(std::move(events)), mSurface(new android::Surface(producer)) {}

PlayerSession::~PlayerSession() {
    stop();
    mController = nullptr;  // its threads call this object
}

int PlayerSession::open(const std::map<std::string, std::string>& configuration) {
    mController = nullptr;  // one at a time has the surface
    mController = new OrvPlayer::MainController;
    if (const int status = mController->configure(configuration); status != 0) {
        return status;
    }
    mController->setErrorListener(this);
    mController->setAudioRenderedListener(this);
    mController->setVideoRenderedListener(this);
    mController->setCaptionListener(this);
    mController->setServiceControllerListener(this);
    if (mEvents.onStill) {
        mController->setCaptureFrameListener(this);
    }
    return mController->setSurface(mSurface);
}

int PlayerSession::start() {
    mStarted = true;
    return mController->start();
}

int PlayerSession::stop() {
    if (!mStarted) {
        return 0;
    }
    mStarted = false;
    return mController->stop();
}

void PlayerSession::setAudioEnabled(bool enabled) {
    mController->setAudioEnable(enabled ? 1 : 0);
}

void PlayerSession::onFrameRendered(int, int, OrvPlayer::Uint33) {
    ++mFramesTimed;
    mLastFrameTimedNs = monotonicNs();
}

void PlayerSession::onAudioReady(long msec) {
    mEvents.onAudioReady(msec);
}

void PlayerSession::onAudioSessionId(int id) {
    mEvents.onAudioSessionId(id);
}

void PlayerSession::onClosedCaptionReceived(unsigned char* text, int length) {
    if (mEvents.onCaption && length > 0) {
        mEvents.onCaption(orvclient::captionUtf8(text, static_cast<size_t>(length)),
                          streamTime90k());
    }
}

void PlayerSession::onServiceControllerEvent(ServiceEvent event, unsigned int value1,
                                             unsigned int value2) {
    if (mEvents.onServiceEvent) {
        mEvents.onServiceEvent(event, value1, value2);
    }
}

void PlayerSession::onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                                   bool /*twoBytesPerPixel*/) {
    mEvents.onStill(pixels, width, height);
}

void PlayerSession::onError(unsigned int code, const OrvPlayer::Module* module) const {
    mEvents.onError(code, module != nullptr ? module->getModuleName() : std::string());
}

}  // namespace orvplay
