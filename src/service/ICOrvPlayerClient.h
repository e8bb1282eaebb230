#pragma once

#include <binder/IInterface.h>

#include <cstdint>
#include <initializer_list>

namespace OrvPlayer {

// The application's side of the player: results of commands, and events. The application
// implements it; the service has a proxy.
class ICOrvPlayerClient : public android::IInterface {
public:
    DECLARE_META_INTERFACE(COrvPlayerClient)

    // Codes of the calls, all of them one-way. Not the order of the operations: 3 to 5 differ.
    // After the interface token a call holds the fields named here, int32 where none is told.
    enum Transaction : uint32_t {
        OPEN_URI_COMPLETE = 1,         // result
        START_COMPLETE = 2,            // result
        CLOSED_CAPTION_TEXT = 3,       // length, length again (deliberate), that many bytes
        ON_CAPTURE_FRAME = 4,          // width, height, 1 for two bytes a pixel or 0 for four,
                                       // descriptor of the pixels, to be mapped for reading
        ON_SIGNAL_STATUS_CHANGED = 5,  // previous, current
        ON_STOP_COMPLETE = 6,          // result; the service never sends it
        ON_ERROR = 7,                  // code
        ON_BUFFERING_BEGIN = 8,        //
        ON_BUFFERING_END = 9,          //
        ON_BUFFERING = 10,             // progress
        ON_AUDIO_SESSION_ID = 11,      // id
        ON_START_VIDEO_TASK = 12,      // width, height
        ON_TIME_UPDATE = 13,           // seconds
        ON_END_OF_CONTENT = 14,        //
        ON_RECORDER_STARTED = 15,      // result
        ON_RECORDER_STOPPED = 16,      // result
        ON_PAUSED = 17,                // result
        ON_RESUMED = 18,               // result
        ON_SEEKED = 19,                // milliseconds
    };

    virtual void openUriComplete(int result) = 0;
    virtual void startComplete(int result) = 0;
    // The pixels stay the caller's.
    virtual void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                                bool twoBytesPerPixel) = 0;
    virtual void onSignalStatusChanged(unsigned int previous, unsigned int current) = 0;
    virtual void closedCaptionText(unsigned char* text, int length) = 0;
    virtual void onStopComplete(int result) = 0;
    virtual void onError(int code) = 0;
    virtual void onBufferingBegin() = 0;
    virtual void onBufferingEnd() = 0;
    virtual void onBuffering(int progress) = 0;
    virtual void onAudioSessionId(int id) = 0;
    virtual void onStartVideoTask(int width, int height) = 0;
    virtual void onTimeUpdate(int elapsedSeconds) = 0;
    virtual void onEndOfContent() = 0;
    virtual void onRecorderStarted(int result) = 0;
    virtual void onRecorderStopped(int result) = 0;
    virtual void onPaused(int result) = 0;
    virtual void onResumed(int result) = 0;
    virtual void onSeeked(int positionMs) = 0;
};

// Sends each call as a parcel and returns at once, whatever the application does; what cannot be
// sent is lost. Any thread: calls of one thread arrive in their order.
class BpCOrvPlayerClient : public android::BpInterface<ICOrvPlayerClient> {
public:
    explicit BpCOrvPlayerClient(const android::sp<android::IBinder>& remote)
        : android::BpInterface<ICOrvPlayerClient>(remote) {}

    void openUriComplete(int result) override;
    void startComplete(int result) override;
    // The pixels travel in shared memory that the application cannot write to.
    void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                        bool twoBytesPerPixel) override;
    void onSignalStatusChanged(unsigned int previous, unsigned int current) override;
    void closedCaptionText(unsigned char* text, int length) override;
    void onStopComplete(int result) override;
    void onError(int code) override;
    void onBufferingBegin() override;
    void onBufferingEnd() override;
    void onBuffering(int progress) override;
    void onAudioSessionId(int id) override;
    void onStartVideoTask(int width, int height) override;
    void onTimeUpdate(int elapsedSeconds) override;
    void onEndOfContent() override;
    void onRecorderStarted(int result) override;
    void onRecorderStopped(int result) override;
    void onPaused(int result) override;
    void onResumed(int result) override;
    void onSeeked(int positionMs) override;

private:
    void send(Transaction code, std::initializer_list<int32_t> numbers);
};

}  // namespace OrvPlayer
