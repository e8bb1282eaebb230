#pragma once

#include <gui/Surface.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "common/CaptureFrameListener.h"
#include "common/ErrorListener.h"
#include "renderer/AudioRenderer.h"
#include "renderer/VideoRenderer.h"

namespace OrvPlayer {

// What every controller of a source offers to the service object. Statuses are 0 for success.
// Listeners are not owned; they are called on module threads and must outlive the controller.
class ControllerInterface {
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
    virtual int setSoundEffect(int effect) = 0;
    // Milliseconds by which pictures are shown later.
    virtual int setAVSync(int offsetMs) = 0;
    virtual int setAudioEnable(int on) = 0;
    virtual int setAudioOnlyMode(int on) = 0;
    // The stream time now, 33 bits at 90 kHz; 0 when there is none.
    virtual int64_t getPCRValue() { return 0; }
    virtual int dump(FILE* stream, const android::Vector<android::String16>& args, int indent) = 0;
    virtual int setAudioPID(int pid) = 0;
    virtual int stopTSReceiver() = 0;
    virtual int pause() = 0;
    virtual int resume() = 0;
    // A part of the picture in display coordinates, or the whole of it.
    virtual int setCropRect(int left, int top, int right, int bottom, int useOriginal) = 0;
    virtual ~ControllerInterface() = default;
};

}  // namespace OrvPlayer
