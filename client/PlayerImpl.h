#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "CallbackQueue.h"
#include "ClientEvents.h"
#include "ClientRecordings.h"
#include "ClientTuner.h"
#include "Session.h"

namespace orvclient {

// The application's player: commands to whichever service there is, settings that outlive it, and
// the callbacks. Locks, taken in this order and never while a callback runs: mCommandLock for a
// whole command, mStartLock while a service starts, mLock for a moment.
class Player::Impl {
public:
    // How a service is had; tests have their own.
    using StartSession = std::function<std::shared_ptr<Session>(std::string* error)>;

    Impl(const Options& options, Callbacks callbacks, StartSession start);
    ~Impl();
    Impl(const Impl&) = delete;  // sessions know it by address
    Impl& operator=(const Impl&) = delete;

    // The service that is there, or a new one where there is none yet or `restart` allows it; null,
    // and one line, when there is none.
    std::shared_ptr<Session> session(std::string* error);
    // The same without starting one.
    std::shared_ptr<Session> present() const;

    ClientTuner& tuner() { return mTuner; }
    ClientRecordings& recordings() { return mRecordings; }

    // What is open, as far as its length goes.
    enum class Content { LIVE, RECORDING, FILE };

    Status openUri(wire::OpenType type, const std::string& uri, Content content = Content::LIVE);
    void setRecordingLength(std::chrono::milliseconds length) { mRecordingMs = length.count(); }
    std::chrono::milliseconds duration();
    Status start();
    Status stop();
    Status close();
    Status pause();
    Status resume();
    Status seek(std::chrono::milliseconds position);
    State state();

    Status setSurface(PictureQueue* queue);
    Status setCrop(int left, int top, int right, int bottom, bool useOriginal);
    Status setAudioEnabled(bool enabled);
    Status setAudioOnly(bool audioOnly);
    Status setAudioPid(uint16_t pid);
    Status setCaptionPid(uint16_t pid);
    Status setAvOffset(std::chrono::milliseconds offset);
    void setCaptionDelay(std::chrono::milliseconds delay) { mQueue.setCaptionDelay(delay); }

    struct Volume {
        int percent = 100;
        bool isMuted = false;
    };
    // What is not given stays.
    Status setVolume(std::optional<int> percent, std::optional<bool> isMuted);
    Volume volume() const;

    Status requestStills(int count, std::chrono::milliseconds every);
    Status cancelStills();
    Status startRecording(const std::string& uri, int* number);
    Status stopRecording(bool keep);

    int frameRate();
    int64_t streamTime90k();
    PlaybackFigures figures();
    bool presentation(orvhost::PresentationReport* report);
    Status dump(int fd);

private:
    // A call that answers by its status alone, or with a number beside it.
    using Call = std::function<android::status_t(BpCOrvPlayer&)>;
    using Question = std::function<android::status_t(BpCOrvPlayer&, int32_t*)>;

    struct Settings {
        PictureQueue* surface = nullptr;
        std::optional<bool> audioEnabled;
        std::optional<int32_t> avOffsetMs;  // within what the wire holds
        std::optional<Volume> volume;
    };

    bool begin(const std::shared_ptr<Session>& session, std::string* error);
    void listen(const std::shared_ptr<Session>& session);
    android::status_t apply(const Settings& settings, Session& session);

    // Gives a command and waits for its result: 0 is success.
    Status command(ClientEvents::Result result, const Call& call, const char* failure);
    // The same for a result that says more. A positive status of the call: the service refused,
    // by that code, and no result comes.
    Status await(ClientEvents::Result result, const Call& call, const char* failure, int* code);
    // Gives one that has none.
    Status tell(const Call& call);
    Status ask(const Question& question, const char* failure);
    // What the service would throw away with the end of playback.
    static void keepRecording(Session& session);
    Status failed(android::status_t status, Session& session) const;
    static Status toStatus(int code, const char* failure);
    Settings settings() const;

    const Options mOptions;
    const std::shared_ptr<const Callbacks> mCallbacks;
    const StartSession mStartSession;
    ClientTuner mTuner;
    ClientRecordings mRecordings;

    std::mutex mCommandLock;
    std::mutex mStartLock;
    mutable std::mutex mLock;  // the rest
    std::shared_ptr<Session> mSession;
    Settings mSettings;
    bool mEnding = false;

    std::atomic<Content> mContent{Content::LIVE};
    std::atomic<int64_t> mRecordingMs{0};  // of the one that was tuned last

    CallbackQueue mQueue;  // last: its callbacks may use all of the above until they have run
};

}  // namespace orvclient
