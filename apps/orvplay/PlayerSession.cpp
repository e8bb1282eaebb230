#include "PlayerSession.h"

#include <cstdlib>
#include <utility>

#include "MonotonicTime.h"

using orvclient::Player;
using orvclient::Status;

namespace orvplay {

namespace {

// A look costs the service's process two wake-ups.
constexpr int64_t LOOK_NS = 500'000'000;
constexpr int64_t LOOK_AT_END_NS = 100'000'000;  // when the last picture is waited for

Player::Service serviceOf(const std::string& connect) {
    return connect.empty()       ? Player::Service::EMBEDDED
           : connect == "system" ? Player::Service::SYSTEM_BUS
                                 : Player::Service::SESSION_BUS;
}

}  // namespace

PlayerSession::PlayerSession(ServiceOptions options, orvclient::Callbacks callbacks)
    : mOptions(std::move(options)), mCallbacks(std::move(callbacks)) {
    mCallbacks.onLost = [this](const std::string& reason) { onLost(reason); };
}

bool PlayerSession::connect(std::string* error) {
    return connect(true, error);
}

bool PlayerSession::connectAside(std::string* error) {
    return connect(false, error);
}

bool PlayerSession::connect(bool forEvents, std::string* error) {
    Player::Options options;
    options.registerForEvents = forEvents;
    options.service = serviceOf(mOptions.connect);
    options.restart = mOptions.restart;
    if (mOptions.silent && mOptions.connect.empty()) {
        setenv("ORV_AUDIO", "silent", 1);  // our service inherits it
    }
    if (mOptions.media && mOptions.connect.empty()) {
        options.errorOutput = mErrors.open();
    }
    mPlayer = Player::create(options, mCallbacks, error);
    if (mPlayer == nullptr) {
        *error += mOptions.connect.empty()
                      ? "; start orvplay again, or see what \"orvplayerd --check-config\" says"
                      : "; start orvplayerd there, or leave out --connect";
    }
    return mPlayer != nullptr;
}

Status PlayerSession::open(const PlaySource& source, const StreamSelection& selection,
                           orvclient::PictureQueue* queue, bool audio) {
    Status status = mPlayer->setSurface(queue);
    if (status.ok()) {
        status = mPlayer->setAudioEnabled(audio);
    }
    if (!status.ok()) {
        return status;
    }
    switch (source.kind) {
        case SourceKind::RECORDING:
            return mPlayer->openRecording(source.path, selection.liveSource());
        case SourceKind::MEDIA:
            return mPlayer->openFile(source.path);
        default:
            return mPlayer->open(selection.liveSource());
    }
}

Status PlayerSession::start() {
    if (!std::exchange(mStarted, true)) {
        mFigures.begin(mPlayer->figures());
    }
    mSourceEnded = false;
    return mPlayer->start();
}

bool PlayerSession::look(bool urgent) {
    mErrors.look();
    const int64_t now = monotonicNs();
    const int64_t intervalNs = mSourceEnded ? LOOK_AT_END_NS : LOOK_NS;
    if (mLost || (!urgent && now - mLastLookNs < intervalNs)) {
        return false;
    }
    mLastLookNs = now;
    mSourceEnded = tuner().signal().atEnd;
    return mFigures.update(mPlayer->figures());
}

void PlayerSession::onLost(const std::string& reason) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mLostReason = reason;
    }
    mLost = true;
}

std::string PlayerSession::lostMessage(const std::string& reason) const {
    std::lock_guard<std::mutex> guard(mLock);
    return (reason.empty() ? mLostReason : reason) + "; start orvplay again" +
           (mOptions.connect.empty() && !mOptions.restart ? ", or use --restart" : "");
}

bool PlayerSession::hasMediaFailed() const {
    return mErrors.hasFault() || !mOptions.connect.empty();
}

std::string PlayerSession::mediaMessage(const std::string& path) const {
    if (!hasMediaFailed()) {
        return lostMessage();
    }
    const std::string& reason = mErrors.reason();
    return path + ": the media player cannot play this" +
           (reason.empty() ? "; is it a media file, and whole?" : ": " + reason);
}

bool PlayerSession::replaceLost() {
    mLost = !mOptions.restart;
    return mOptions.restart;
}

}  // namespace orvplay
