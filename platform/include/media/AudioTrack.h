#pragma once

#include <sys/types.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <memory>

namespace orvhost {
class PlaybackTrack;
class PulseStream;
}  // namespace orvhost

namespace android {

// Plays interleaved 16-bit PCM through the sound server, or in silence at the same pace.
//
// Time is the contract. The first byte after start() or flush() is heard L after it was written,
// on every device:
//   L = 201 ms - half the duration of 8,192 bytes   (180 ms for 48 kHz stereo)
//       + 170 ms while sound goes to a Bluetooth output
// and every later byte at its nominal distance from the first on the monotonic clock. What a pause
// of the writer made late is dropped instead of being played late. A writer can be L + 50 ms ahead
// of what is heard, then write() waits. A server that is missing, dies or hangs changes nothing of
// this: the track goes on in silence and is heard again when a server comes back.
//
// Any thread may call anything at any time; two concurrent writes are each taken in pieces.
class AudioTrack : public virtual RefBase {
public:
    typedef void (*callback_t)(int event, void* user, void* info);

    enum transfer_type { TRANSFER_DEFAULT = 0, TRANSFER_SYNC = 3 };

    // Does not wait for the sound server. `frameCount`, `flags`, `notificationFrames`, the caller's
    // identity and `maxRequiredSpeed` are accepted and have no effect on this host; a callback or
    // offload information is refused by initCheck().
    AudioTrack(audio_stream_type_t streamType, uint32_t sampleRate, audio_format_t format,
               audio_channel_mask_t channelMask, size_t frameCount = 0,
               audio_output_flags_t flags = AUDIO_OUTPUT_FLAG_NONE, callback_t callback = nullptr,
               void* user = nullptr, int32_t notificationFrames = 0,
               audio_session_t sessionId = AUDIO_SESSION_ALLOCATE,
               transfer_type transferType = TRANSFER_DEFAULT,
               const audio_offload_info_t* offloadInfo = nullptr, uid_t uid = uid_t(-1),
               pid_t pid = -1, const audio_attributes_t* attributes = nullptr,
               bool doNotReconnect = false, float maxRequiredSpeed = 1.0f);
    AudioTrack(const AudioTrack&) = delete;  // a track is one output of the device
    AudioTrack& operator=(const AudioTrack&) = delete;

    // NO_ERROR, or BAD_VALUE: rate outside 4,000..192,000 Hz, a format other than 16-bit PCM, a
    // channel mask without 1 to 8 loudspeakers. Every other call then answers NO_INIT.
    status_t initCheck() const;

    // Starts from an empty track. On a running track it does nothing.
    status_t start();

    // Ends playing at once; what was not heard yet is dropped. A waiting write returns.
    void stop();

    // Drops what was not heard yet. A write in progress is dropped whole and returns its full
    // count.
    void flush();

    // Linear gain of the left and the right channels (the others take the mean), each 0.0 to 1.0;
    // BAD_VALUE outside.
    status_t setVolume(float left, float right);

    // Returns `size`, whatever it is: data starts on a frame boundary and a partial frame at the
    // end is dropped. Less, or INVALID_OPERATION when nothing was taken, only when the track is
    // stopped; without `blocking` also when it is full (then WOULD_BLOCK for nothing taken).
    ssize_t write(const void* buffer, size_t size, bool blocking = true);

    // Positive, and another for each track that did not ask for a certain one.
    audio_session_t getSessionId() const;

protected:
    ~AudioTrack() override;

private:
    const audio_session_t mSessionId;
    // Both null when initCheck() fails; the stream also when sound is switched off.
    std::shared_ptr<orvhost::PlaybackTrack> mpTrack;
    std::unique_ptr<orvhost::PulseStream> mpStream;
};

}  // namespace android
