#pragma once

#include <gui/IGraphicBufferProducer.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "common/CaptureFrameListener.h"
#include "common/ErrorListener.h"
#include "service/MainController.h"

namespace orvplay {

// One source played by the player in this process.
//
//   PlayerSession session(producer, events);
//   session.open(selection.configuration());  session.start();  ...  session.stop();
//
// open() builds the pipeline, and another one when it is called again after stop(); start() and
// stop() may alternate any number of times. Commands come from one thread; events come on the
// player's threads and must not wait.
class PlayerSession : private OrvPlayer::VideoRenderer::FrameRenderedListener,
                      private OrvPlayer::AudioRenderer::AudioRenderedListener,
                      private OrvPlayer::ClosedCaptionListener,
                      private OrvPlayer::ServiceController::ServiceControllerListener,
                      private OrvPlayer::ErrorListener,
                      private OrvPlayer::CaptureFrameListener {
public:
    using ServiceEvent = OrvPlayer::ServiceController::event_t;

    struct Events {
        // An asynchronous failure: its code and the module that reports it.
        std::function<void(unsigned int code, const std::string& module)> onError;
        std::function<void(int id)> onAudioSessionId;
        // How far ahead of the sound clock the sound at hand is.
        std::function<void(long earlyMs)> onAudioReady;
        // The next two may be left out. A caption is due: rows of text in UTF-8, and the stream
        // time now.
        std::function<void(const std::string& utf8, int64_t pcr90k)> onCaption = {};
        // What the player's monitor sees.
        std::function<void(ServiceEvent event, unsigned int value1, unsigned int value2)>
            onServiceEvent = {};
        // A still, as rows of blue, green, red and alpha: the pixels are lent for the call. On a
        // thread of its own; may be empty when no still is ever requested.
        std::function<void(const unsigned char* pixels, unsigned int width, unsigned int height)>
            onStill = {};
    };

    PlayerSession(const android::sp<android::IGraphicBufferProducer>& producer, Events events);
    ~PlayerSession() override;
    PlayerSession(const PlayerSession&) = delete;  // the player knows it by address
    PlayerSession& operator=(const PlayerSession&) = delete;

    // 0, or the player's code.
    int open(const std::map<std::string, std::string>& configuration);
    int start();
    int stop();

    void setAudioEnabled(bool enabled);
    // Changes to other sound of the same coding; there must be one already. Else open() again.
    int setAudioPid(uint16_t pid) { return mController->setAudioPID(pid); }
    // Changes to other captions, or begins with some where there were none.
    int setCaptionPid(uint16_t pid) { return mController->setCCPID(pid); }
    // Writes what is in the buffers, modules and the clock, for engineers.
    void dump(FILE* stream) { mController->dump(stream, {}, 0); }
    // So many stills, one every so many milliseconds, beginning with what is on the screen. Passed
    // over while earlier ones are still to come. One that cannot be taken is given up after three
    // pictures.
    void requestStills(int count, int everyMs) { mController->getFrame(count, everyMs); }
    void cancelStills() { mController->cancelCaptureFrame(); }
    int64_t streamTime90k() { return mController->getPCRValue(); }

    // Pictures whose time came, with the outputs shut or open.
    uint64_t framesTimed() const { return mFramesTimed; }
    int64_t lastFrameTimedNs() const { return mLastFrameTimedNs; }

private:
    void onFrameRendered(int width, int height, OrvPlayer::Uint33 pts) override;
    void onAudioReady(long msec) override;
    void onAudioSessionId(int id) override;
    void onClosedCaptionReceived(unsigned char* text, int length) override;
    void onServiceControllerEvent(ServiceEvent event, unsigned int value1,
                                  unsigned int value2) override;
    void onError(unsigned int code, const OrvPlayer::Module* module) const override;
    void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                        bool twoBytesPerPixel) override;

    const Events mEvents;
    android::sp<android::Surface> mSurface;
    android::sp<OrvPlayer::MainController> mController;
    std::atomic<uint64_t> mFramesTimed{0};
    std::atomic<int64_t> mLastFrameTimedNs{0};
    bool mStarted = false;
};

}  // namespace orvplay
