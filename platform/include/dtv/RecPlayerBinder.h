#pragma once

#include <cstddef>
#include <cstdint>

// The recorder service: makes one recording at a time of what the tuner of this process is tuned
// to, and feeds a recording that the tuner is tuned to instead of a broadcast.
//
// Recording:  CreateTSRecorder -> StartTSRecorder -> StopTSRecorder (kept) or CancelTSRecorder
//             (thrown away) -> DeleteTSRecorder
// Playback:   the tuner is tuned to the recording; IsTSPlayerActive -> PID filters start, and with
//             the first one the feed -> Pause, Resume, Repositioning -> the last filter stops
//
// Functions that return a byte: 1 for success, 0 for failure. All may be called from any thread,
// one after the other. None waits for storage on a thread that feeds the player.
//
// Events come on a thread of the service, never inside a call of these functions, and with no lock
// held that one of these functions takes. A call that ends events waits for a callback that runs,
// unless it is made by that callback.

// What is known of a recording. Strings are UTF-8, end with a zero and may be null; lengths do
// not count the zero.
struct recDetails {
    uint8_t reserved[8];  // the service's own: to be handed back as it came
    char* stationName;
    char* prgName;
    uint32_t stationNameLength;
    uint32_t prgNameLength;
    uint32_t creationTime;      // s since 1970
    uint32_t durationOfRec;     // s
    uint32_t sizeOfRec;         // KiB
    int32_t recMode;            // 0
    int32_t recLocation;        // storage type
    uint32_t bCanPlay;          // 1 or 0
    uint32_t playbackDuration;  // ms; 0 while it is recorded
    uint32_t recStartTime;      // s since 1970, as is the next
    uint32_t recEndTime;
    int32_t iV_PID;
    int32_t iA_PID;
    int32_t isLATM;          // sound: 0 AAC in LATM, 1 AAC in ADTS, 2 MPEG audio
    int32_t fileNumName;     // the number of the recording in the catalogue
    uint8_t reserved84[12];  // as the first
};

static_assert(sizeof(recDetails) == 96);
static_assert(offsetof(recDetails, stationName) == 8);
static_assert(offsetof(recDetails, stationNameLength) == 24);
static_assert(offsetof(recDetails, playbackDuration) == 56);
static_assert(offsetof(recDetails, fileNumName) == 80);
static_assert(offsetof(recDetails, reserved84) == 84);

// What a recording can tell while it is made. One that ends by itself tells one reason for that and
// nothing after it; what was written is kept as if it had been stopped, until StopTSRecorder or
// CancelTSRecorder decides.
enum RecPlayerBinder_RecorderEvent {
    // It ended: the storage refused the first write.
    RECORDER_EVENT_START_FAILED = 0,
    // It ended: the storage refuses (an error of the device, or read-only by now), or the file was
    // removed, perhaps with its folder.
    RECORDER_EVENT_WRITE_FAILED = 1,
    // It ended: no more may be written. Some space is left to the system.
    RECORDER_EVENT_STORAGE_FULL = 2,
    // Packets are missing. It goes on where the storage was too slow for them, told once a second
    // at most; it ended where the tuner left the source.
    RECORDER_EVENT_INPUT_LOST = 3,
};

// What a recording that is played can tell. Others than these have no meaning to the player.
enum RecPlayerBinder_PlayerEvent {
    PLAYER_EVENT_READ_FAILED = 4,     // the file cannot be read (any more)
    PLAYER_EVENT_BAD_RECORDING = 5,   // what is read is no transport stream
    PLAYER_EVENT_END_OF_CONTENT = 6,  // at the paced time of the last PCR
};

using RecPlayerBinder_EventCallback = void (*)(int event, void* userData);

extern "C" {

// ---- The recorder

// Makes the recorder: which PIDs of the tuned source to record, how its sound is framed (see
// isLATM), which storage, and who is told events, from StartTSRecorder until StopTSRecorder,
// CancelTSRecorder or DeleteTSRecorder returns, whatever these return. `mode` is 0. Fails when
// there is one already, or for an unknown storage type.
unsigned char RecPlayerBinder_CreateTSRecorder(int mode, int storageType, int videoPid,
                                               int audioPid, int audioFraming,
                                               RecPlayerBinder_EventCallback callback,
                                               void* userData);

// 1 while the storage of the recorder has room for another recording.
unsigned char RecPlayerBinder_AnyMoreRecordings();

// Begins to write the service of the tuned source that has these PIDs, all of it, from its next
// picture with which a decoder can begin, or in two seconds. Fails without a recorder, while it
// records already, without such a service, and when the storage refuses the recording's files.
unsigned char RecPlayerBinder_StartTSRecorder();

// A new record of the recording under way, to be released with free(); null when there is none.
// Its names lie in the same allocation: they go with it.
recDetails* RecPlayerBinder_GetCurrTSRecDetails();

// Replaces what is known of the recording under way; names are copied. recMode, bCanPlay and the
// times stay the service's own to update while it records.
unsigned char RecPlayerBinder_SetCurrTSRecDetails(const recDetails* details);

// The recording is finished and kept. Waits, a bounded time, until it is on the storage. Fails, and
// the recorder is gone, when there is nothing to keep: no packet was written, or the file was
// removed.
unsigned char RecPlayerBinder_StopTSRecorder();

// The recording is finished and thrown away.
unsigned char RecPlayerBinder_CancelTSRecorder();

// The recorder is gone. A recording under way is finished and kept.
unsigned char RecPlayerBinder_DeleteTSRecorder();

// ---- The playback of recordings

// Tells where playback events go; replaces who was told before. Events come only while a PID
// filter runs: the stop of the last one waits for a callback that runs. 1 when the tuner is tuned
// to a recording; the registration holds either way.
unsigned char RecPlayerBinder_IsTSPlayerActive(RecPlayerBinder_EventCallback callback,
                                               void* userData);

// What is known of the recording at this path, as a new record: the caller releases its two names
// and the record itself with free(), each if not null. Null when no recording is there. The flag
// is 1 for a file outside the external storage card, where there is one; it changes nothing here.
recDetails* RecPlayerBinder_GetRecClipDetails(const char* path, int outsideCard);

// Stops the feed where it is, and goes on from there. Repositioning keeps a paused feed paused.
// Each fails while no recording is tuned.
unsigned char RecPlayerBinder_PauseTSPlayer();
unsigned char RecPlayerBinder_ResumeTSPlayer();

// Not 0 when the feed can go to another place: the recording's index is there.
unsigned char RecPlayerBinder_IsPossibleSeek();

// The feed goes on from the last picture at or before `targetMs` at which a decoder can begin.
// What filters still hold of the old place is dropped. On failure nothing has changed.
unsigned char RecPlayerBinder_RepositioningTSPlayer(int elapsedSeconds, int targetMs);

// How far the player is: since the beginning, and the time stamp it shows. Once a second of
// playback, from the thread that presents pictures: never waits.
unsigned char RecPlayerBinder_SetCurrLapTime(uint32_t elapsedMs, uint64_t ptsMs);

// The time stamp of the audio PES that was received last, in milliseconds. Called for every audio
// PES: never waits. The host keeps the last value, see dtv/RecPlayerState.h.
void RecPlayerBinder_NotifyAudioPTS(unsigned long ms);

}  // extern "C"
