#pragma once

#include <gui/Surface.h>
#include <media/stagefright/MediaCodec.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/TestStreams.h"

namespace orvtest {

constexpr int64_t WAIT_US = 10000000;  // nothing takes that long unless it is broken

struct Output {
    int64_t timeUs;
    size_t bytes;
    std::vector<int16_t> pcm;
};

// A codec on its own looper, driven as the player does: one thread feeds, another takes.
class CodecDriver {
public:
    explicit CodecDriver(const char* mime, const android::sp<android::Surface>& surface = nullptr,
                         bool adts = false);
    ~CodecDriver();

    android::status_t configureAndStart();

    // Feeds the whole stream and its end, and takes until everything has come out.
    void play(const Stream& stream);

    // One unit, or the end for null, waiting for a buffer. False when none came.
    bool feed(const Unit* unit, uint32_t flags = 0, int64_t timeoutUs = WAIT_US);

    // Takes everything up to the end of the stream.
    void takeAll();

    android::sp<android::ALooper> looper;
    android::sp<android::MediaCodec> codec;
    bool render = false;
    std::function<void(const Output&)> onOutput;

    std::vector<Output> outputs;
    std::vector<int64_t> times() const;
    // What came in which order: "F" format, "B" buffers changed, "." an output; repeats of outputs
    // count as one.
    std::string events;
    std::vector<android::sp<android::AMessage>> formats;

    // dequeueOutputBuffer() again and again until something else than -EAGAIN comes.
    android::status_t awaitOutput(size_t* index, Output* output, uint32_t* flags);

private:
    void note(char event);

    const char* mMime;
    android::sp<android::Surface> mSurface;
    bool mAdts;
    android::Vector<android::sp<android::MediaCodecBuffer>> mInputBuffers;
    android::Vector<android::sp<android::MediaCodecBuffer>> mOutputBuffers;
};

int32_t int32Of(const android::sp<android::AMessage>& format, const char* key);

// Threads of this process.
size_t threadCount();

}  // namespace orvtest
