#pragma once

namespace OrvPlayer {

// Receives a still frame: the pixel buffer, its width and height in pixels, and true for two bytes
// a pixel (else four). Called on the capture thread, which owns the pixels and releases them after
// the call.
class CaptureFrameListener {
public:
    virtual void onCaptureFrame(unsigned char* pixels, unsigned int width, unsigned int height,
                                bool twoBytesPerPixel) = 0;

protected:
    ~CaptureFrameListener() = default;  // never destroyed through this interface
};

}  // namespace OrvPlayer
