#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/KeyedVector.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <memory>

namespace android {

class Parcel;

// What a MediaPlayer tells its listener.
enum media_event_type {
    MEDIA_PLAYBACK_COMPLETE = 2,
    MEDIA_BUFFERING_UPDATE = 3,  // ext1: percent
    MEDIA_SET_VIDEO_SIZE = 5,    // ext1, ext2: width and height, pixels as coded
    MEDIA_ERROR = 100,           // ext1: media_error_type, ext2: the platform's own code
    MEDIA_INFO = 200,            // ext1: media_info_type
};

enum media_error_type {
    MEDIA_ERROR_UNKNOWN = 1,
};

// The second number of a MEDIA_ERROR.
enum {
    MEDIA_ERROR_IO = -1004,           // not there, not readable
    MEDIA_ERROR_UNSUPPORTED = -1010,  // no media file, or of a kind that cannot be played
    MEDIA_ERROR_TIMED_OUT = -110,
};

enum media_info_type {
    MEDIA_INFO_RENDERING_START = 3,  // the first picture is on the surface
};

enum class MediaPlayerSeekMode : int32_t {
    SEEK_PREVIOUS_SYNC = 0,  // to the last picture before that can be decoded alone
    SEEK_CLOSEST = 3,        // exactly, decoding what lies between
};

class MediaPlayerListener : virtual public RefBase {
public:
    // On a thread of the player, one call at a time; `obj` is always null on this host.
    virtual void notify(int msg, int ext1, int ext2, const Parcel* obj) = 0;
};

// What would fetch the data; on this host the player does it itself.
class IMediaHTTPService : public virtual RefBase {};

// Plays a media file by itself: it reads, decodes, keeps sound and picture in step, and draws into
// a surface.
//
//   setDataSource   setVideoSurfaceTexture   setListener
//   prepare         opens the file and shows its first picture
//   start  pause  seekTo ...
//   stop            closes it; prepare begins anew, from the start
//   disconnect      for good
//
// Commands come from any thread and are executed one at a time; only prepare() waits, for the file,
// READ_TIMEOUT_MS at most. None waits for the application, nor for a notification in progress: a
// picture that finds no free buffer in the surface is dropped. What fails after setDataSource() is
// also told as MEDIA_ERROR, once; nothing more comes then until the next prepare().
class MediaPlayer : public virtual RefBase {
public:
    static constexpr int READ_TIMEOUT_MS = 8000;

    MediaPlayer();
    MediaPlayer(const MediaPlayer&) = delete;  // a player is one output of the device
    MediaPlayer& operator=(const MediaPlayer&) = delete;

    // A path or a URL, looked at by prepare(). BAD_VALUE for an empty one, INVALID_OPERATION when
    // there is one. Service and headers have no effect.
    status_t setDataSource(const sp<IMediaHTTPService>& httpService, const char* url,
                           const KeyedVector<String8, String8>* headers);

    // Where pictures go, from now on; null for nowhere. Becomes the surface's one producer, else
    // the surface's error, and pictures go nowhere.
    status_t setVideoSurfaceTexture(const sp<IGraphicBufferProducer>& bufferProducer);

    // Who is told; null for nobody. A notification in progress may still reach the one before.
    status_t setListener(const sp<MediaPlayerListener>& listener);

    // Linear gain, 0.0 to 1.0, BAD_VALUE outside. Both channels take the louder of the two.
    status_t setVolume(float leftVolume, float rightVolume);

    // 0; INVALID_OPERATION without a data source or when prepared already; else why the file
    // cannot be played.
    status_t prepare();

    // Plays on; from the beginning after the end, unless a seek came between.
    status_t start();
    status_t stop();
    status_t pause();

    // Also beyond the end, which then is told. INVALID_OPERATION before prepare() and for what
    // cannot be sought in.
    status_t seekTo(int msec, MediaPlayerSeekMode mode = MediaPlayerSeekMode::SEEK_PREVIOUS_SYNC);

    // In milliseconds, answered at once whatever command is in progress. The position is 0 before
    // prepare(), the duration -1 where the file does not tell it.
    status_t getCurrentPosition(int* msec);
    status_t getDuration(int* msec);

    audio_session_t getAudioSessionId();

    // Ends everything; every other command answers INVALID_OPERATION from then on.
    void disconnect();

protected:
    ~MediaPlayer() override;

private:
    class Impl;
    const std::unique_ptr<Impl> mImpl;
};

}  // namespace android
