#pragma once

#include <utils/RefBase.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/Uint33.h"
#include "renderer/AudioRenderer.h"
#include "renderer/VideoRenderer.h"

namespace OrvPlayer {

// Watches a running pipeline from outside and tells what becomes of the service: how far buffering
// is, whether pictures and sound still come, how large pictures are, that a recording has ended.
//
//   every picture, every audio report -> onFrameRendered, onAudioReady
//                                              |  times and counts
//      buffering     every    50 ms  ----------+-->  BUFFERING_EVENT while it rises
//      signal        every   300 ms  ----------+-->  SIGNAL_UPDATE_EVENT
//      end of content every  100 ms  ----------+-->  EOC_EVENT, once
//      frame rate    every  1000 ms  ----------+-->  getFrameRate()
//
//   signal:  good --3 s without data--> weak --5 s more--> lost, repeated every 3 s; the next
//            picture or audio report makes it good again
//
// Each check has a thread of its own while it is started. Held by strong pointers: a thread holds
// one during a check, so that the monitor outlives the check, and none while it waits.
//
// Events come on the thread that finds the reason: a polling thread, a renderer's, the one that
// stops buffering. The listener must not wait for the caller of a command, and must not start or
// stop checks.
class ServiceController : public VideoRenderer::FrameRenderedListener,
                          public AudioRenderer::AudioRenderedListener,
                          public virtual android::RefBase {
public:
    // With the two values of each; 0 where none is named.
    enum event_t {
        SIGNAL_UPDATE_EVENT = 0,     // the status before, the status now
        BUFFERING_BEGIN_EVENT = 1,   // never from the monitor
        BUFFERING_END_EVENT = 2,     // a running buffering check was stopped
        BUFFERING_EVENT = 3,         // progress, 0 to 100
        START_VIDEO_TASK_EVENT = 4,  // width, height: pictures begin, at first or after a loss
        EOC_EVENT = 5,
    };

    enum SignalStatus : uint8_t { SIGNAL_GOOD = 0, SIGNAL_WEAK = 1, SIGNAL_LOST = 2 };

    class ServiceControllerListener {
    public:
        virtual void onServiceControllerEvent(event_t event, unsigned int value1,
                                              unsigned int value2) = 0;
        virtual ~ServiceControllerListener() = default;
    };

    ServiceController();
    ServiceController(const ServiceController&) = delete;  // renderers know it by address
    ServiceController& operator=(const ServiceController&) = delete;

    // Not owned; null for none. It must outlive the running checks.
    void setListener(ServiceControllerListener* listener) { mListener = listener; }

    // A start replaces a check that runs; a stop joins it, within the time of one check. Controller
    // and gate; any thread but the checks' own. stopAll() ends with the end of content, and tells
    // the end of buffering as stopBuffering() does.
    void startBuffering();
    void stopBuffering();
    void startCheckSignal();
    void stopCheckSignal();
    void startCheckEndOfContent();
    void stopCheckEndOfContent();
    void startCheckFrameRate();
    void stopCheckFrameRate();
    void stopAll();

    // Pictures in the last second; -1 before the first second and from the fifth silent one on.
    int getFrameRate() const { return mFrameRate; }

    // Renderer threads, for every picture and every record of sound: no lock while the signal is
    // good. `msec` is how early the sound at hand is.
    void onFrameRendered(int width, int height, Uint33 pts) override;
    void onAudioReady(long msec) override;
    // The decoder knows the size: told at once while no picture has told it.
    void onVideoResolution(int width, int height);

    // What the threads do each time.
    void updateSignalTimer();
    void checkSignalStrength();
    void bufferingProcess();
    bool checkEndOfContent();  // false when the end was told
    void updateFrameRate();

protected:
    ~ServiceController() override;

private:
    class PollingThread;
    class BufferingThread;
    class CheckSignalThread;
    class CheckEndOfContentThread;
    class CheckFrameRateThread;

    void startThread(android::sp<PollingThread>& slot, const android::sp<PollingThread>& thread);
    bool stopThread(android::sp<PollingThread>& slot);
    void send(event_t event, unsigned int value1, unsigned int value2);
    void changeSignalStatus(SignalStatus to, uint64_t nowMs);

    std::atomic<ServiceControllerListener*> mListener{nullptr};

    std::mutex mThreadLock;  // for the four below; held across joins
    android::sp<PollingThread> mBufferingThread;
    android::sp<PollingThread> mCheckSignalThread;
    android::sp<PollingThread> mCheckFrameRateThread;
    android::sp<PollingThread> mCheckEndOfContentThread;

    std::mutex mBufferingLock;  // a leaf for mLastProgress
    uint32_t mLastProgress = 0;
    std::atomic<int64_t> mWaitToRender{0};  // ms that sound still waits

    // Held while the status changes and while that is told, so that the listener hears changes in
    // the order in which they happened.
    std::mutex mSignalLock;
    std::atomic<uint8_t> mSignalStatus{SIGNAL_GOOD};
    std::atomic<uint64_t> mLastSignalTime{0};  // monotonic ms: last data, or last change

    std::atomic<bool> mReportResolution{true};  // with the next picture
    std::atomic<uint32_t> mFrameCount{0};       // since the last second's tick, where there is one
    std::atomic<uint32_t> mLastFrameCount{0};   // at the last look for the end of content
    std::atomic<int32_t> mFrameRate{-1};
    uint32_t mNoFrameSeconds = 0;  // in a row, at most 4; frame rate thread
};

}  // namespace OrvPlayer
