#pragma once

#include <utils/Thread.h>

#include "decoder/MediaCodecDecoder.h"

namespace OrvPlayer {

// The decoder's workers. Each is joined before the decoder goes, hence the plain pointers.

class MediaCodecDecoder::InputThread : public android::Thread {
public:
    explicit InputThread(MediaCodecDecoder* decoder) : mDecoder(decoder) {}
    bool isExiting() const { return exitPending() || mDecoder->mExiting; }

    // The input buffer that found no unit on the last pass and waits for the next.
    uint32_t keptIndex = NO_INDEX;

private:
    bool threadLoop() override { return !isExiting() && mDecoder->feedCodec(*this); }

    MediaCodecDecoder* const mDecoder;
};

class MediaCodecDecoder::OutputThread : public android::Thread {
public:
    explicit OutputThread(MediaCodecDecoder* decoder) : mDecoder(decoder) {}

private:
    bool threadLoop() override {
        if (exitPending() || mDecoder->mExiting) {
            return false;
        }
        mDecoder->takeOutput();
        return true;
    }

    MediaCodecDecoder* const mDecoder;
};

class MediaCodecDecoder::RestartThread : public android::Thread {
public:
    // It sees the end of the one before, so that to join the last is to join all.
    RestartThread(MediaCodecDecoder* decoder, const android::sp<RestartThread>& previous)
        : mDecoder(decoder), mPrevious(previous) {}

private:
    bool threadLoop() override {
        if (mPrevious != nullptr) {
            mPrevious->join();
            mPrevious = nullptr;
        }
        mDecoder->runRestart();
        return false;
    }

    MediaCodecDecoder* const mDecoder;
    android::sp<RestartThread> mPrevious;
};

}  // namespace OrvPlayer
