#pragma once

#include <orv/PresentationTypes.h>
#include <orvclient/Export.h>
#include <orvclient/PictureQueue.h>
#include <orvclient/Recordings.h>
#include <orvclient/Tuner.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvclient {

// How a command ended: 0, or a code of the player or of this library, with one line for people.
struct Status {
    int code = 0;
    std::string message;

    bool ok() const { return code == 0; }

    // Codes of this library; those of the player are positive.
    static constexpr int LOST = -1;     // the service is gone, or never was there
    static constexpr int TIMEOUT = -2;  // the service did not answer in time
    static constexpr int REFUSED = -3;  // the request makes no sense as things stand
};

enum class State { IDLE = 1, OPEN = 2, PLAYING = 3, PAUSED = 4 };

// Signal as the player's monitor tells it.
enum class Signal { GOOD = 0, WEAK = 1, LOST = 2 };

// A still: rows of pixels in read-only shared memory, valid during the call.
struct StillView {
    const uint8_t* pixels = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bytesPerPixel = 4;  // 4: blue, green, red, alpha; 2: as the service's screen has it
    Picture source;              // the picture that it shows, without its pixels
};

// Why a recording ended before it was stopped, or lacks packets. What was written until then is
// kept.
enum class RecordingFailure {
    NOT_BEGUN,     // nothing could be written
    NOT_WRITTEN,   // the storage refuses, or is gone
    STORAGE_FULL,  //
    NO_INPUT,      // packets are missing: it goes on where its storage was too slow for them (its
                   // state, see Recordings, is Recording still), else the source was left
};
ORVCLIENT_API const char* describe(RecordingFailure failure);  // one line for people

// What the player tells. Every function may be empty. All are called by the executor (see
// Player::Options), one at a time and in the order in which the service sent them.
struct Callbacks {
    // What open and start came to, in its place among the events: the command may return earlier.
    std::function<void(int result)> onOpened;
    std::function<void(int result)> onStarted;
    std::function<void()> onBufferingBegin;
    std::function<void(int percent)> onBuffering;
    std::function<void()> onBufferingEnd;
    // The size of the picture, at its first appearance and again after a lost signal.
    std::function<void(int width, int height)> onStartVideo;
    std::function<void(unsigned previous, unsigned current)> onSignal;
    // Rows of text in UTF-8; empty: the screen was cleared. `pcr90k`: the stream time, 33 bits.
    std::function<void(const std::string& text, int64_t pcr90k)> onCaption;
    std::function<void(const StillView& still)> onStill;
    std::function<void(int id)> onAudioSession;
    // Of a recording or a media file: how far it was played.
    std::function<void(int seconds)> onTime;
    // The content came to its end; once, until it is started again or goes elsewhere. Never for a
    // seek that was refused.
    std::function<void()> onEnd;
    // The number by which the recording is found again, 0 when the service cannot tell it.
    std::function<void(int number)> onRecordingStarted;
    // Whoever stopped it. `cleanly`: the service ended it as it should.
    std::function<void(bool cleanly)> onRecordingStopped;
    // Comes besides onError; stopRecording() is due all the same.
    std::function<void(RecordingFailure failure)> onRecordingFailed;
    std::function<void(int code)> onError;
    // The service is gone; once, and nothing after it unless another one is started (see
    // Player::Options::restart).
    std::function<void(const std::string& reason)> onLost;
};

// What plays: the PIDs of one service of the tuned source. 0 stands for no such stream.
struct LiveSource {
    uint16_t pcrPid = 0;
    uint16_t videoPid = 0;
    uint16_t audioPid = 0;
    uint16_t captionPid = 0;
    bool isLatm = true;        // AAC in LATM/LOAS, else in ADTS
    bool isMpegAudio = false;  // MPEG-1 or MPEG-2 audio; goes before isLatm
};

// The first picture, sound and captions of a service.
ORVCLIENT_API LiveSource liveSourceOf(const orvhost::Service& service);

// What the service counted since it started; for status lines.
struct PlaybackFigures {
    uint64_t framesTimed = 0;      // pictures whose time came, shown or not
    int64_t lastFrameTimedNs = 0;  // CLOCK_MONOTONIC; 0: none yet
    uint64_t picturesReleasedUnseen = 0;
    uint64_t picturesDroppedAtWindow = 0;
    int64_t firstIdrQueuedUs = 0;  // CLOCK_MONOTONIC; 0: none yet
    int64_t firstIdrReadyUs = 0;
    int64_t firstPcrUs = 0;    // the player's clock was set, since the last start
    int64_t firstSoundUs = 0;  // the first decoded block of sound, likewise
    uint64_t audioFrames = 0;  // sample frames written
    bool heard = false;        // something was played while the output was not muted
    double outputLatencyMs = 0.0;
    double audioEarlyMs = 0.0;  // of the sound at hand against the sound clock, the latest
    uint64_t audioEarlyCount = 0;
    std::vector<int64_t>
        beepsNs;                  // CLOCK_MONOTONIC: when test beeps are heard, since the last call
    int64_t mediaDurationMs = 0;  // of the media file that was opened last; 0: unknown
    int indexPercent = -1;        // of the recording's index, while one is made of its file
    double cpuSeconds = 0.0;      // of the service process
    int64_t voluntarySwitches = 0;
    int64_t maxRssKb = 0;
    int pid = 0;
};

// The player service, driven from this process.
//
//   orvclient::Player::Options options;           // a service process of its own, as its child
//   auto player = orvclient::Player::create(options, callbacks, &error);
//   player->tuner().tune("sample.ts", {});
//   auto services = player->tuner().services(2000);
//   player->setSurface(&queue);
//   player->open(source);  player->start();  ...  player->stop();  player->close();
//
// Commands wait for the service's answer, at most `commandTimeout`, and come from one thread at a
// time; callbacks come through the executor and may issue commands unless the executor runs on the
// commanding thread. Only the application that plays registers for events: a second one would take
// them from the first.
class ORVCLIENT_API Player {
public:
    enum class Service { EMBEDDED, SESSION_BUS, SYSTEM_BUS };

    struct Options {
        Service service = Service::EMBEDDED;
        // Embedded: the program to run, with its arguments, parted by blanks, before ours; empty:
        // "orvplayerd" beside this program, else in PATH.
        std::string daemon;
        // Embedded: the descriptor that is to be its standard error; -1: ours. To be kept open as
        // long as a service can be started.
        int errorOutput = -1;
        // When the service ended by itself, the next command starts a new one, or connects to it.
        // That has the surface and the settings of the old one, but no source.
        bool restart = false;
        // Runs a callback, at once or later, in order. Empty: a thread of this library.
        std::function<void(std::function<void()>)> executor;
        std::chrono::milliseconds commandTimeout{10000};
        // Registers for events. Without it nothing can be opened, played or taken a still of: only
        // what plays can be looked at, set and stopped.
        bool registerForEvents = true;
    };

    // Null, and one line in *error, when the service cannot be started or reached.
    static std::unique_ptr<Player> create(const Options& options, Callbacks callbacks,
                                          std::string* error);
    // Closes what is open; the embedded service ends. Not from a callback.
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Tuner& tuner();
    Recordings& recordings();

    // Opening while something is open closes that first.
    Status open(const LiveSource& source);
    // Tunes to a recording by its number, and tells what is known of it.
    orvhost::TuneResult tuneRecording(int number, orvhost::RecordingDetails* details);
    // The recording that is tuned, by its path. Refused when that holds ';', '#' or '?'.
    Status openRecording(const std::string& path, const LiveSource& source);
    // All of it: tunes to the recording and opens its first picture, sound and captions.
    Status openRecording(int number);
    // A media file, by the platform's player. One that it cannot play ends the service.
    Status openFile(const std::string& path);
    Status start();
    // Also when nothing plays. Whatever ends playback, close() and opening too, ends a recording
    // under way and keeps it.
    Status stop();
    Status close();
    // Nothing happens where it is paused, or plays, already. REFUSED when nothing plays.
    Status pause();
    Status resume();
    // Recordings and files only, playing or paused. REFUSED, and nothing has changed, where the
    // service cannot go there; the last 1.5 s of a recording, and what lies beyond, are its end.
    Status seek(std::chrono::milliseconds position);
    // How far a recording or a media file was played, and of how much; 0 when that is unknown, as
    // for what is live. Elapsed time grows by whole seconds; a seek sets it.
    std::chrono::milliseconds elapsed() const;
    std::chrono::milliseconds duration();

    State state();
    // The queue must live until another one, or null, was set.
    Status setSurface(PictureQueue* queue);
    // A part of the picture in display coordinates; useOriginal: all of it.
    Status setCrop(int left, int top, int right, int bottom, bool useOriginal);
    Status setAudioEnabled(bool enabled);
    Status setAudioOnly(bool audioOnly);
    // Another sound of the same coding.
    Status setAudioPid(uint16_t pid);
    Status setCaptionPid(uint16_t pid);
    // Pictures are shown so much later (or, negative, earlier).
    Status setAvOffset(std::chrono::milliseconds offset);
    // How loud the service is: 0 to 150 percent, 100 being as it was sent, on the scale of sound
    // servers' mixers; what lies outside becomes the nearest. Holds for whatever plays, a service
    // that replaces this one included. Until one was set it is as the sound server remembers it.
    Status setVolume(int percent);
    Status setMuted(bool isMuted);
    int volume() const;  // as set last, 100 before
    bool isMuted() const;
    // Captions reach onCaption so much later; not the service's business, done here.
    void setCaptionDelay(std::chrono::milliseconds delay);

    // So many stills, one every so often, beginning with the picture on the screen. Passed over
    // while earlier ones are still to come.
    Status requestStills(int count, std::chrono::milliseconds every);
    Status cancelStills();

    // Records what plays, one recording at a time. The service has begun to write when this
    // returns 0; `number`, if any, is then as in Callbacks::onRecordingStarted.
    Status startRecording(const RecordingLabels& labels, int* number = nullptr);
    // Else it is thrown away.
    Status stopRecording(bool keep);
    bool isRecording() const;

    // Pictures in the last second, -1: unknown. The stream time, 33 bits at 90 kHz, 0: none.
    int frameRate();
    int64_t streamTime90k();
    PlaybackFigures figures();
    // How presentation was timed since the last call: to be called every now and then, ten times a
    // second, say, by one program at a time. False, and *report as it was, without an answer.
    bool presentation(orvhost::PresentationReport* report);
    // Writes the state of the service's pipeline to a descriptor.
    Status dump(int fd);
    // -1: there is none, or on a bus that does not tell.
    int servicePid() const;

    class ORVCLIENT_LOCAL Impl;  // the library's own
    explicit Player(std::unique_ptr<Impl> impl);

private:
    const std::unique_ptr<Impl> mImpl;
};

}  // namespace orvclient
