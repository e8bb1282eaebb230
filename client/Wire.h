#pragma once

#include <binder/IBinder.h>

#include <cstdint>

// The two interfaces between an application and the player service: descriptors and the numbers of
// the calls. Every request begins with the token of its interface; the fields named here follow in
// that order.
namespace orvclient::wire {

// "OrvPlayer", also the name of the service, and "OrvPlayerClient".
const android::String16& playerDescriptor();
const android::String16& clientDescriptor();

// What the service does; 12, 15 and 16 are not assigned. Calls with "->" answer that one number,
// the others nothing: they report by callback, or not at all.
enum Transaction : uint32_t {
    REGISTER_CLIENT = 1,        // binder of the client
    START = 2,                  // startComplete
    STOP = 3,                   // nothing; ends the service when it is idle
    PAUSE = 4,                  // onPaused
    RESUME = 5,                 // onResumed
    SEEK = 6,                   // int32 ms; onSeeked, or onEndOfContent when that is refused
    OPEN_URI = 7,               // int32 open type, String16 URI; openUriComplete
    CLOSE = 8,                  //
    SET_SURFACE = 9,            // String16, String16, int32, uint32, all without a meaning;
                                // binder of the producer or null -> int32
    GET_FRAME = 10,             // int32 count, int32 ms between; onCaptureFrame
    SET_SOUND_EFFECT = 11,      // int32 without a meaning, int32 option -> int32
    START_RECORDER = 13,        // String16 URI -> int32; onRecorderStarted
    STOP_RECORDER = 14,         // int32 keep -> int32; onRecorderStopped
    SET_AV_SYNC = 17,           // int32 ms + AV_SYNC_BIAS_MS -> int32
    SET_CAPTION_SYNC = 18,      // int32 -> int32; has no effect
    SET_CAPTION_LANGUAGE = 19,  // int32; has no effect
    SET_AUDIO_ENABLE = 20,      // int32
    SET_AUDIO_PID = 21,         // int32
    SET_AUDIO_PATH_FORCE = 22,  // int32
    SET_CC_PID = 23,            // int32
    GET_FRAME_RATE = 24,        // -> int32, -1: nothing is open
    GET_STATE = 25,             // -> int32
    SET_CROP_RECT = 26,         // int32 left, top, right, bottom, use the original -> int32
    SET_AUDIO_ONLY_MODE = 27,   // int32 -> int32
    GET_PCR_VALUE = 28,         // -> int64
    CANCEL_CAPTURE_FRAME = 29,  //
};

// What OPEN_URI takes.
enum OpenType : int32_t {
    OPEN_MEDIA_FILE = 0,
    OPEN_URI_SOURCE = 5,
};

constexpr int32_t AV_SYNC_BIAS_MS = 200;

// What the client is told, all of it one-way.
enum Callback : uint32_t {
    OPEN_URI_COMPLETE = 1,         // int32 result
    START_COMPLETE = 2,            // int32 result
    CLOSED_CAPTION_TEXT = 3,       // int32 length, the same again, so many bytes
    ON_CAPTURE_FRAME = 4,          // int32 width, height, 1 for two bytes a pixel or 0 for four;
                                   // descriptor of the pixels
    ON_SIGNAL_STATUS_CHANGED = 5,  // int32 previous, int32 current
    ON_STOP_COMPLETE = 6,          // int32 result; never sent
    ON_ERROR = 7,                  // int32 code
    ON_BUFFERING_BEGIN = 8,        //
    ON_BUFFERING_END = 9,          //
    ON_BUFFERING = 10,             // int32 percent
    ON_AUDIO_SESSION_ID = 11,      // int32
    ON_START_VIDEO_TASK = 12,      // int32 width, int32 height
    ON_TIME_UPDATE = 13,           // int32 seconds
    ON_END_OF_CONTENT = 14,        //
    ON_RECORDER_STARTED = 15,      // int32 number of the recording
    ON_RECORDER_STOPPED = 16,      // int32 1: as it should
    ON_PAUSED = 17,                // int32 result
    ON_RESUMED = 18,               // int32 result
    ON_SEEKED = 19,                // int32 ms
};

// Codes of ON_ERROR that tell of the recorder.
enum RecorderError : int32_t {
    RECORDER_STORAGE_FULL = 0x60001,
    RECORDER_NOT_WRITTEN = 0x60002,
    RECORDER_NOT_BEGUN = 0x60003,
    RECORDER_NO_INPUT = 0x60004,
};

}  // namespace orvclient::wire
