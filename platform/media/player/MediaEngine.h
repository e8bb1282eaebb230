#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvhost {

// The border between MediaPlayer and the module that plays files. The module is loaded with the
// first file: what it needs (over two hundred libraries) a process that plays television never
// loads. It calls nothing of this process but what is declared here.

enum class ColorMatrix { BT601, BT709, BT2020 };

// A decoded picture in the engine's memory, upright, at the size it was coded in.
struct MediaPicture {
    const uint8_t* pixels = nullptr;  // blue, green, red, unused; full range
    int strideBytes = 0;
    int width = 0;
    int height = 0;
    double sampleAspect = 0.0;                // width to height of a sample; 0 when unknown
    ColorMatrix matrix = ColorMatrix::BT709;  // that it was coded with
    bool isFullRange = false;
    bool isInterlaced = false;  // both fields in one picture, line by line
    bool isTopFieldFirst = false;
};

// Takes pictures, one at a time, on the engine's thread for pictures. No call waits longer than a
// surface lets a producer wait.
class PictureSink {
public:
    // Whether there is room for a picture of that size: if not, it need not be made.
    virtual bool reserve(int width, int height) = 0;
    // Takes it, ahead of its time. False: it is dropped.
    virtual bool prepare(const MediaPicture& picture) = 0;
    // Its time has come.
    virtual void present(int64_t timeUs) = 0;
    virtual ~PictureSink() = default;
};

enum class MediaFailure { OTHER, READING, FORMAT };

// What the engine tells, on a thread of its own; must not wait and not call the engine.
class MediaEngineClient {
public:
    virtual void onVideoSize(int width, int height) = 0;
    virtual void onBuffering(int percent) = 0;
    virtual void onPosition(int64_t ms) = 0;
    virtual void onEnd() = 0;
    // After a successful open(): the file cannot be played on.
    virtual void onFailure(MediaFailure failure, const std::string& reason) = 0;
    // What the engine says of the file, in its own words.
    virtual void onMessage(const char* text) = 0;
    virtual ~MediaEngineClient() = default;
};

// One open file. The destructor ends everything; neither client nor sink is called after it.
class MediaEngine {
public:
    struct Source {
        std::string location;
        bool isUrl = false;     // else a path, and nothing is asked of the network
        bool isSilent = false;  // no sound server is looked for
        double gain = 1.0;
        int timeoutMs = 0;
    };

    virtual ~MediaEngine() = default;

    // Reads the head of the file and stays paused at its first picture. True, or why not.
    virtual bool open(const Source& source, MediaFailure* failure, std::string* reason) = 0;

    virtual bool setPaused(bool paused) = 0;
    virtual bool seek(int64_t ms, bool exactly) = 0;
    virtual void setGain(double gain) = 0;   // linear
    virtual int64_t durationMs() const = 0;  // -1 when unknown
    // The sink has another place for pictures: shows the last one again.
    virtual void redraw() = 0;
};

// The module's one function; null when the engine cannot be set up.
inline constexpr char MEDIA_ENGINE_FUNCTION[] = "orvCreateMediaEngine";
using CreateMediaEngine = MediaEngine*(MediaEngineClient& client, PictureSink& sink);

}  // namespace orvhost
