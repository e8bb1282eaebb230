#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/COrvPlayer.h"

namespace orvtest {

// What controllers were asked for, and what they answer. One for all controllers of a player.
struct Script {
    std::string take() {
        const std::lock_guard<std::mutex> guard(lock);
        return std::exchange(calls, "");
    }
    void add(const std::string& call) {
        const std::lock_guard<std::mutex> guard(lock);
        calls += (calls.empty() ? "" : " ") + call;
    }

    std::atomic<int> configureResult{0};
    std::atomic<int> startResult{0};
    std::atomic<int> stopResult{0};
    std::atomic<int> seekResult{0};
    std::atomic<int> recordResult{0};
    std::atomic<int> living{0};      // controllers
    std::atomic<bool> isLoud{true};  // take calls down
    // Run by threads of a started controller, again and again, until it is stopped.
    std::vector<std::function<void(OrvPlayer::COrvPlayer&)>> events;

    std::mutex lock;
    std::string calls;
};

// A controller that takes down what it is asked for, and finds commands that overlap. While it is
// started its threads raise events, as those of a pipeline do; stop() and the destructor join them.
class ScriptedController : public OrvPlayer::ControllerInterface {
public:
    ScriptedController(Script& script, OrvPlayer::COrvPlayer& player)
        : mScript(script), mPlayer(player) {
        ++mScript.living;
    }
    ~ScriptedController() override {
        add("~");
        join();
        --mScript.living;
    }

    int configure(std::map<std::string, std::string> config) override {
        std::string text = "configure(";
        for (const auto& [key, value] : config) {
            text += (text.back() == '(' ? "" : ",") + key + "=" + value;
        }
        return add(text + ")", mScript.configureResult);
    }
    int start() override {
        if (const int result = add("start", mScript.startResult); result != 0) {
            return result;
        }
        mRunning = true;
        for (const auto& event : mScript.events) {
            mThreads.emplace_back([this, event] {
                while (mRunning) {
                    event(mPlayer);
                    std::this_thread::yield();
                }
            });
        }
        return 0;
    }
    int stop() override {
        const int result = add("stop", mScript.stopResult);
        if (result == 0) {
            join();
        }
        return result;
    }
    int setSurface(android::sp<android::Surface>& surface) override {
        return add(surface != nullptr ? "setSurface(some)" : "setSurface(none)");
    }
    int getFrame(int count, int intervalMs) override {
        return add("getFrame" + numbers({count, intervalMs}));
    }
    int cancelCaptureFrame() override { return add("cancelCaptureFrame"); }
    void setCaptureFrameListener(OrvPlayer::CaptureFrameListener* l) override {
        listener("capture", l);
    }
    void setErrorListener(OrvPlayer::ErrorListener* l) override { listener("error", l); }
    void setAudioRenderedListener(OrvPlayer::AudioRenderer::AudioRenderedListener* l) override {
        listener("audio", l);
    }
    void setVideoRenderedListener(OrvPlayer::VideoRenderer::FrameRenderedListener* l) override {
        listener("video", l);
    }
    void setServiceControllerListener(
        OrvPlayer::ServiceController::ServiceControllerListener* l) override {
        listener("monitor", l);
    }
    int getFrameRate() override { return add("getFrameRate", 30); }
    int setSoundEffect(int effect) override { return add("setSoundEffect" + numbers({effect})); }
    int setAVSync(int offsetMs) override { return add("setAVSync" + numbers({offsetMs})); }
    int setAudioEnable(int on) override { return add("setAudioEnable" + numbers({on}), 11); }
    int setAudioOnlyMode(int on) override { return add("setAudioOnlyMode" + numbers({on}), 12); }
    int64_t getPCRValue() override { return 0x1'2345'6789; }
    int setCaptionSync(int offsetMs) override {
        return add("setCaptionSync" + numbers({offsetMs}));
    }
    int dump(FILE* stream, const android::Vector<android::String16>&, int indent) override {
        fprintf(stream, "state %d\n", indent);
        return add("dump");
    }
    void setCaptionListener(OrvPlayer::ClosedCaptionListener* l) override {
        listener("captions", l);
    }
    int setAudioPID(int pid) override { return add("setAudioPID" + numbers({pid}), 13); }
    int setCCPID(int pid) override { return add("setCCPID" + numbers({pid}), 14); }
    int stopTSReceiver() override {
        if (mScript.isLoud) {
            mScript.add("stopTSReceiver");
        }
        return 0;
    }
    int pause() override { return add("pause", 15); }
    int seek(int position) override {
        return add("seek" + numbers({position}), mScript.seekResult);
    }
    int resume() override { return add("resume", 16); }
    int startRecord(OrvPlayer::Uri* target) override {
        return add("startRecord(" + target->mPath + ")", mScript.recordResult);
    }
    int stopRecord(bool save) override { return add("stopRecord" + numbers({save}), 1); }
    void setRecorderListener(IRecorderListener* l) override { listener("recorder", l); }
    void setPlayerListener(IPlayerListener* l) override { listener("player", l); }
    int setCropRect(int left, int top, int right, int bottom, int useOriginal) override {
        return add("setCropRect" + numbers({left, top, right, bottom, useOriginal}), 17);
    }

    static std::string numbers(std::initializer_list<int> values) {
        std::string text = "(";
        for (const int value : values) {
            text += (text.size() > 1 ? "," : "") + std::to_string(value);
        }
        return text + ")";
    }

private:
    int add(const std::string& call, int result = 0) {
        EXPECT_FALSE(mInCommand.exchange(true)) << call << " beside another command";
        std::this_thread::yield();
        if (mScript.isLoud) {
            mScript.add(call);
        }
        mInCommand = false;
        return result;
    }
    template <typename Listener>
    void listener(const char* kind, Listener* listener) {
        add(listener == &mPlayer ? kind : std::string("no ") + kind);
    }
    void join() {
        mRunning = false;
        for (std::thread& thread : mThreads) {
            thread.join();
        }
        mThreads.clear();
    }

    Script& mScript;
    OrvPlayer::COrvPlayer& mPlayer;
    std::atomic<bool> mInCommand{false};
    std::atomic<bool> mRunning{false};
    std::vector<std::thread> mThreads;
};

// The service object with such controllers.
class ScriptedPlayer : public OrvPlayer::COrvPlayer {
public:
    Script script;
    bool hasFileController = true;

protected:
    ~ScriptedPlayer() override {
        if (getState() != ORVPLAYER_STATE_IDLE) {
            close();  // while there is a script
        }
    }
    android::sp<OrvPlayer::ControllerInterface> createMainController() override {
        script.add("main");
        return new ScriptedController(script, *this);
    }
    android::sp<OrvPlayer::ControllerInterface> createFileController() override {
        if (!hasFileController) {
            return nullptr;
        }
        script.add("file");
        return new ScriptedController(script, *this);
    }
};

}  // namespace orvtest
