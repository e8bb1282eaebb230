// Services come and go; commands and their results.

#include "PlayerImpl.h"

#include <algorithm>
#include <utility>

#include "PictureHalves.h"
#include "binder/CallTimeout.h"

using android::sp;
using android::status_t;
using orvhost::CallTimeout;

namespace orvclient {

namespace {

// A service that does not close in time is ended all the same.
constexpr std::chrono::seconds CLOSING{2};
// A process that starts has more to do than a command.
constexpr std::chrono::seconds STARTING{10};

Status lost(std::string message) {
    return {Status::LOST, std::move(message)};
}

}  // namespace

Player::Impl::Impl(const Options& options, Callbacks callbacks, StartSession start)
    : mOptions(options),
      mCallbacks(std::make_shared<const Callbacks>(std::move(callbacks))),
      mStartSession(std::move(start)),
      mTuner([this](std::string* error) { return session(error); }, options.commandTimeout),
      mRecordings([this](std::string* error) { return session(error); }, options.commandTimeout),
      mQueue(options.executor) {}

Player::Impl::~Impl() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mEnding = true;
    }
    std::lock_guard<std::mutex> starting(mStartLock);
    const std::shared_ptr<Session> last = present();
    if (last != nullptr && last->isAlive() && mOptions.registerForEvents) {
        const CallTimeout bound(CLOSING);
        keepRecording(*last);
        last->player().close();
        if (settings().surface != nullptr) {
            int32_t unused = 0;
            last->player().setSurface(nullptr, &unused);
        }
    }
    if (last != nullptr) {
        last->end();
    }
}

std::shared_ptr<Session> Player::Impl::present() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSession;
}

Player::Impl::Settings Player::Impl::settings() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSettings;
}

std::shared_ptr<Session> Player::Impl::session(std::string* error) {
    std::lock_guard<std::mutex> starting(mStartLock);
    std::shared_ptr<Session> session = present();
    if (session != nullptr && session->isAlive()) {
        return session;
    }
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mEnding) {
            *error = "the player is being closed";
            return nullptr;
        }
    }
    if (session != nullptr) {
        if (!mOptions.restart) {
            *error = session->reasonOfEnd();
            return nullptr;
        }
        session->end();
    }
    const CallTimeout bound(std::max<std::chrono::milliseconds>(mOptions.commandTimeout, STARTING));
    session = mStartSession(error);
    return session != nullptr && begin(session, error) ? session : nullptr;
}

// With mStartLock held.
bool Player::Impl::begin(const std::shared_ptr<Session>& session, std::string* error) {
    listen(session);
    status_t status = android::OK;
    if (mOptions.registerForEvents) {
        status = session->player().registerClient(session->client());
    }
    if (status == android::OK) {
        status = apply(settings(), *session);
    }
    if (status != android::OK) {
        *error = failed(status, *session).message;
        session->end();
        return false;
    }
    mQueue.reopen();
    std::lock_guard<std::mutex> guard(mLock);
    mSession = session;
    return true;
}

void Player::Impl::listen(const std::shared_ptr<Session>& session) {
    const std::weak_ptr<Session> gone = session;
    session->listen(new ClientEvents(mCallbacks, mQueue, session->player().binder()), [this, gone] {
        mQueue.post(CallbackQueue::Kind::LAST, [callbacks = mCallbacks, gone] {
            const auto ended = gone.lock();
            if (callbacks->onLost && ended != nullptr) {
                callbacks->onLost(ended->reasonOfEnd());
            }
        });
    });
}

status_t Player::Impl::apply(const Settings& settings, Session& session) {
    BpCOrvPlayer& player = session.player();
    int32_t unused = 0;
    status_t status = android::OK;
    if (settings.surface != nullptr) {
        session.events().setPictures(settings.surface);
        const auto producer = android::IInterface::asBinder(settings.surface->halves().producer());
        status = player.setSurface(producer, &unused);
    }
    if (status == android::OK && settings.audioEnabled.has_value()) {
        status = player.setAudioEnable(*settings.audioEnabled ? 1 : 0);
    }
    if (status == android::OK && settings.avOffsetMs.has_value()) {
        status = player.setAVSync(*settings.avOffsetMs + wire::AV_SYNC_BIAS_MS, &unused);
    }
    if (status == android::OK && settings.volume.has_value()) {
        std::string error;
        const auto monitor = session.monitor(&error);
        // One without it plays all the same.
        if (monitor != nullptr) {
            monitor->setVolume(settings.volume->percent, settings.volume->isMuted);
        }
    }
    return status;
}

Status Player::Impl::failed(status_t status, Session& session) const {
    switch (status) {
        case android::TIMED_OUT:
            return {Status::TIMEOUT, "the player service does not answer"};
        case android::PERMISSION_DENIED:
            return {Status::REFUSED,
                    "the player service refuses this user; run it as the same one"};
        case android::DEAD_OBJECT:
            return lost(session.reasonOfEnd());
        default:
            // What was not understood was not done.
            return session.isAlive()
                       ? Status{Status::REFUSED, "the player service did not take the call (" +
                                                     std::to_string(status) + ")"}
                       : lost(session.reasonOfEnd());
    }
}

void Player::Impl::keepRecording(Session& session) {
    if (session.events().isRecording()) {
        int32_t unused = 0;
        session.player().stopRecorder(1, &unused);
    }
}

Status Player::Impl::toStatus(int code, const char* failure) {
    return code == 0 ? Status()
                     : Status{code, std::string(failure) + " (code " + std::to_string(code) + ")"};
}

Status Player::Impl::command(ClientEvents::Result result, const Call& call, const char* failure) {
    int code = 0;
    const Status status = await(result, call, failure, &code);
    return status.ok() ? toStatus(code, failure) : status;
}

Status Player::Impl::await(ClientEvents::Result result, const Call& call, const char* failure,
                           int* code) {
    if (!mOptions.registerForEvents) {
        return {Status::REFUSED, "this player only looks on: it takes no events"};
    }
    std::lock_guard<std::mutex> commanding(mCommandLock);
    std::string error;
    const std::shared_ptr<Session> session = this->session(&error);
    if (session == nullptr) {
        return lost(error);
    }
    ClientEvents& events = session->events();
    const auto deadline = ClientEvents::Clock::now() + mOptions.commandTimeout;
    events.begin(result);
    status_t status = android::OK;
    {
        const CallTimeout bound(mOptions.commandTimeout);
        status = call(session->player());
    }
    if (status != android::OK) {
        status == android::TIMED_OUT ? events.abandon(result) : events.cancel();
        return status > 0 ? toStatus(status, failure) : failed(status, *session);
    }
    if (const auto told = events.await(result, deadline); told.has_value()) {
        *code = *told;
        return {};
    }
    return failed(session->isAlive() ? android::TIMED_OUT : android::DEAD_OBJECT, *session);
}

Status Player::Impl::tell(const Call& call) {
    std::lock_guard<std::mutex> commanding(mCommandLock);
    std::string error;
    const std::shared_ptr<Session> session = this->session(&error);
    if (session == nullptr) {
        return lost(error);
    }
    const CallTimeout bound(mOptions.commandTimeout);
    const status_t status = call(session->player());
    return status == android::OK ? Status() : failed(status, *session);
}

Status Player::Impl::ask(const Question& question, const char* failure) {
    int32_t code = 0;
    const Status status = tell([&](BpCOrvPlayer& player) { return question(player, &code); });
    return status.ok() ? toStatus(code, failure) : status;
}

}  // namespace orvclient
