#pragma once

#include <pulse/pulseaudio.h>
#include <system/audio.h>

#include <array>
#include <cstdint>
#include <memory>

#include "audio/RateControl.h"

namespace orvhost {

class PlaybackTrack;
class PulseServer;

// Makes a track heard: the server asks for sound, and gets of the track what is due at the time at
// which the server says it will be heard. Where nothing is due the stream carries silence, so that
// it never runs dry and its latency is known before the first sound comes.
//
// The server is asked for its indexes all the time. (libpulse can interpolate them, but stands
// still for up to a second after each change of the rate.) In between, the time at which the next
// frame is heard moves by what is written and by nothing else, since the stream never stops.
//
// Small differences between the server's clock and ours go into the stream's rate (RateControl),
// large ones are jumped over. Losing the server loses nothing but this stream: the track does not
// notice.
class PulseStream {
public:
    PulseStream(PulseServer& server, std::shared_ptr<PlaybackTrack> pTrack);
    ~PulseStream();
    PulseStream(const PulseStream&) = delete;  // the server's callbacks hold its address
    PulseStream& operator=(const PulseStream&) = delete;

    // Any thread but the server's. None waits for the server.
    void start();
    void stop();
    void flush();  // what the server still holds is not heard

    // For the server, locked.
    void connect();  // nothing to do unless started, connected and without a working stream
    void disconnect();
    void onDeviceChanged(audio_devices_t device);
    void applyVolume();  // what was chosen, see MasterVolume
    bool isPlaying() const;
    uint32_t sinkIndex() const;
    uint32_t streamIndex() const;
    bool isMoved() const { return mIsMoved; }
    void setMoved(bool isMoved) { mIsMoved = isMoved; }

private:
    static void onState(pa_stream* pStream, void* pSelf);
    static void onWritable(pa_stream* pStream, size_t bytes, void* pSelf);
    static void onTiming(pa_stream* pStream, int isSuccess, void* pSelf);
    static void onMoved(pa_stream* pStream, void* pSelf);

    void askForTiming();
    void dropTimingRequest();
    void fill(int16_t* pPcm, size_t frames);
    void correct(int64_t nowNs);
    void noteLatency();
    void forgetDevice();

    PulseServer& mServer;
    const std::shared_ptr<PlaybackTrack> mpTrack;

    // Locked.
    pa_stream* mpStream = nullptr;
    bool mIsWanted = false;
    bool mIsMoved = false;                  // by a forced route
    bool mIsTimed = false;                  // mNextHeardNs is known
    pa_operation* mpTimingAsked = nullptr;  // outlives its stream unless it is cancelled
    int64_t mNextHeardNs = 0;               // when the next frame that is written will be heard
    bool mIsAligned = false;                // mNextFrame is of the run mRun
    uint64_t mRun = 0;
    int64_t mNextFrame = 0;  // of the track, to be written next
    int mFarOffCount = 0;
    uint32_t mRate;
    RateControl mRateControl;
    std::array<int64_t, 8> mLatenciesNs{};  // after each of the last fills
    size_t mFills = 0;
};

}  // namespace orvhost
