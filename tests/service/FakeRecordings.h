#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "service/MainController.h"

// A player and a recorder of recordings that do nothing but take down what they are asked for, and
// tell their listener what the test wants.

namespace orvtest {

template <typename Listener, typename Base>
class FakeCompanion : public Base {
public:
    void setListener(Listener* listener) override {
        std::lock_guard<std::mutex> running(mTelling);  // as promised: waits for a call
        mListener = listener;
    }
    // Calls the listener, if there still is one.
    template <typename Call>
    void tell(Call call) {
        std::lock_guard<std::mutex> guard(mTelling);
        if (mListener != nullptr) {
            call(*mListener);
        }
    }
    // The calls since the last time, with blanks between.
    std::string take() {
        std::lock_guard<std::mutex> guard(mLock);
        return std::exchange(mCalls, "");
    }

protected:
    void add(const std::string& call) {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls += (mCalls.empty() ? "" : " ") + call;
    }

private:
    std::mutex mTelling;
    Listener* mListener = nullptr;
    std::mutex mLock;
    std::string mCalls;
};

class FakePlayer : public FakeCompanion<IPlayerListener, OrvPlayer::Player> {
public:
    void setFilePath(const std::string& path) override { add("path(" + path + ")"); }
    void start() override { add("start"); }
    void stop() override { add("stop"); }
    void pause() override { add("pause"); }
    void resume() override { add("resume"); }
    bool isPossibleSeek() override { return canSeek; }
    void seek(int positionMs) override {
        add("seek(" + std::to_string(positionMs) + ")");
        if (seekEnds) {
            tell([](IPlayerListener& listener) { listener.onEndOfContent(); });
        }
    }
    void updateCurTime(OrvPlayer::Uint33 pts) override { add("at(" + std::to_string(pts) + ")"); }
    unsigned int getCurrentTimeMs() override { return currentTimeMs; }

    bool canSeek = true;
    bool seekEnds = false;
    std::atomic<unsigned int> currentTimeMs{0};
};

class FakeRecorder : public FakeCompanion<IRecorderListener, OrvPlayer::Recorder> {
public:
    void start(const OrvPlayer::Uri* target, int videoPid, int audioPid, int captionPid,
               int audioFraming) override {
        std::string call = "start(" + target->mPath;
        for (const int value : {videoPid, audioPid, captionPid, audioFraming}) {
            call += "," + std::to_string(value);
        }
        add(call + ")");
    }
    void stop(int save) override { add("stop(" + std::to_string(save) + ")"); }
};

// The controller with somebody who plays and makes recordings.
class RecordingController : public OrvPlayer::MainController {
public:
    const android::sp<FakePlayer> player = new FakePlayer;
    const android::sp<FakeRecorder> recorder = new FakeRecorder;

protected:
    android::sp<OrvPlayer::Player> createPlayer() override { return player; }
    android::sp<OrvPlayer::Recorder> createRecorder() override { return recorder; }
};

}  // namespace orvtest
