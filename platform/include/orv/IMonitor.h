#pragma once

#include <binder/IInterface.h>
#include <orv/PresentationTypes.h>

#include <cstdint>
#include <vector>

namespace orvhost {

// What the service process counted since it started; for status lines and summaries. Each figure is
// exact by itself, the set is not a snapshot.
struct PlaybackFigures {
    uint64_t framesTimed = 0;      // pictures whose time came, shown or not
    int64_t lastFrameTimedNs = 0;  // CLOCK_MONOTONIC; 0: none yet
    uint64_t picturesReleasedUnseen = 0;
    uint64_t picturesDroppedAtWindow = 0;
    int64_t firstIdrQueuedUs = 0;  // CLOCK_MONOTONIC; 0: none yet
    int64_t firstIdrReadyUs = 0;
    int64_t firstPcrUs = 0;        // the player's clock was set, since the last start
    int64_t firstSoundUs = 0;      // the first decoded block of sound, likewise
    uint64_t audioFrames = 0;      // sample frames written
    bool heard = false;            // something was played while the output was not muted
    double outputLatencyMs = 0.0;  // from a write into an empty track to the ear; 0: none yet
    double audioEarlyMs = 0.0;     // of the sound at hand against the sound clock, the latest
    uint64_t audioEarlyCount = 0;
    // CLOCK_MONOTONIC: when the beeps of a test stream are heard, since the last call; the latest
    // MAX_BEEPS of them.
    std::vector<int64_t> beepsNs;
    int64_t mediaDurationMs = 0;  // of the media file that was opened last; 0: unknown
    int32_t indexPercent = -1;    // of the recording's index, while one is made of its file
    double cpuSeconds = 0.0;      // of the service process, as the three below
    int64_t voluntarySwitches = 0;
    int64_t maxRssKb = 0;
    int32_t pid = 0;

    static constexpr size_t MAX_BEEPS = 64;
};

// A look into the service process, "OrvMonitor". The state of the pipeline as text comes by
// IBinder::dump(). Any thread.
//
//   code  operation  request after the token  reply
//   1     figures    -                        the figures, the list last, numbers as int64
//   2     setVolume  int32 percent, muted     -
//   3     presentation  -                     the report, its numbers as int64
class IMonitor : public android::IInterface {
public:
    static const android::String16& descriptor;
    static android::sp<IMonitor> asInterface(const android::sp<android::IBinder>& binder);

    static constexpr char SERVICE_NAME[] = "OrvMonitor";

    enum Code : uint32_t {
        FIGURES = android::IBinder::FIRST_CALL_TRANSACTION,
        SET_VOLUME,
        PRESENTATION,
    };

    // Takes the beeps: one caller gets each of them. 0, DEAD_OBJECT, or BAD_VALUE for an answer
    // that makes no sense; then *figures is as it was.
    virtual android::status_t figures(PlaybackFigures* figures) = 0;
    // How loud the service's sound is: 0 to 150 percent on the scale of sound servers' mixers, what
    // lies outside becomes the nearest. Holds for what plays and for what will, until the next one.
    virtual android::status_t setVolume(int32_t percent, bool isMuted) = 0;

    // How presentation was timed since the last call; what was missed before the first one is of
    // earlier callers. Without calls for half a minute nothing is noted any more. Statuses as
    // above.
    virtual android::status_t presentation(PresentationReport* report) = 0;
};

class BnMonitor : public android::BnInterface<IMonitor> {
public:
    bool isBrief(uint32_t code) const override { return code == FIGURES || code == PRESENTATION; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
};

}  // namespace orvhost
