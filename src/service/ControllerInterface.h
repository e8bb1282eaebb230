#pragma once

#include <gui/Surface.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "common/CaptureFrameListener.h"
#include "common/ClosedCaptionListener.h"
#include "common/ErrorListener.h"
#include "common/IPlayerListener.h"
#include "common/IRecorderListener.h"
#include "common/Uri.h"
#include "renderer/AudioRenderer.h"
#include "renderer/VideoRenderer.h"
#include "service/PlaybackFigures.h"
#include "servicecontroller/ServiceController.h"

namespace OrvPlayer {

// What every controller of a source offers to the service object. Statuses are 0 for success.
// Listeners are not owned; they are called on module threads and must outlive the controller. Held
// by strong pointers: the last one that goes takes the pipeline with it.
//
// Commands come from one thread at a time; getPCRValue(), stopTSReceiver() and bufferFills() also
// beside them.
class ControllerInterface : public virtual android::RefBase {
public:
    virtual int start() = 0;
    virtual int stop() = 0;
    // Builds the pipeline from keys and values, once.
    virtual int configure(std::map<std::string, std::string> config) = 0;
    virtual int setSurface(android::sp<android::Surface>& surface) = 0;
    // Asks for still frames: how many, and every how many milliseconds.
    virtual int getFrame(int /*count*/, int /*intervalMs*/) { return 1; }
    virtual int cancelCaptureFrame() = 0;
    virtual void setCaptureFrameListener(CaptureFrameListener* /*listener*/) {}
    virtual void setErrorListener(ErrorListener* listener) = 0;
    virtual void setAudioRenderedListener(AudioRenderer::AudioRenderedListener* listener) = 0;
    virtual void setVideoRenderedListener(VideoRenderer::FrameRenderedListener* listener) = 0;
    virtual void setServiceControllerListener(
        ServiceController::ServiceControllerListener* listener) = 0;
    // Pictures in the last second, -1 when nothing is known.
    virtual int getFrameRate() = 0;
    virtual int setSoundEffect(int effect) = 0;
    // Milliseconds by which pictures are shown later.
    virtual int setAVSync(int offsetMs) = 0;
    virtual int setAudioEnable(int on) = 0;
    virtual int setAudioOnlyMode(int on) = 0;
    // The stream time now, 33 bits at 90 kHz; 0 when there is none.
    virtual int64_t getPCRValue() { return 0; }
    // Milliseconds by which captions that wait come later.
    virtual int setCaptionSync(int offsetMs) = 0;
    virtual int dump(FILE* stream, const android::Vector<android::String16>& args, int indent) = 0;
    // How full the ring buffers are that were configured, at most `most` of them; their number.
    // After configure().
    virtual size_t bufferFills(BufferFill* /*fills*/, size_t /*most*/) { return 0; }
    virtual void setCaptionListener(ClosedCaptionListener* listener) = 0;
    virtual int setAudioPID(int pid) = 0;
    // Changes the caption PID, or adds one where there is none.
    virtual int setCCPID(int pid) = 0;
    virtual int stopTSReceiver() = 0;
    virtual int pause() = 0;
    // Recorded sources only: a position as their player takes it.
    virtual int seek(int position) = 0;
    virtual int resume() = 0;
    // Records the broadcast; one recording at a time. stopRecord() keeps it or discards it.
    virtual int startRecord(Uri* target) = 0;
    virtual int stopRecord(bool save) = 0;
    virtual void setRecorderListener(IRecorderListener* listener) = 0;
    virtual void setPlayerListener(IPlayerListener* listener) = 0;
    // A part of the picture in display coordinates, or the whole of it.
    virtual int setCropRect(int left, int top, int right, int bottom, int useOriginal) = 0;
    ~ControllerInterface() override = default;
};

}  // namespace OrvPlayer
