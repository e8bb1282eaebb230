#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "recording/FileBytes.h"
#include "recording/RecordingIndex.h"

namespace orvhost {

// A recording while it is played: its descriptor and its index.
//
// The index is read from NAME.index. What that does not cover, of a file without one or one that
// has grown, is scanned on a thread of its own ("RecIndex"), from the first question on that needs
// it; a recording with a sidecar, that nobody writes, gets its NAME.index by that. Questions wait
// for the scan as long as they say and are then answered with what is known. Any thread.
class PlayedRecording {
public:
    PlayedRecording(UniqueFd fd, const IndexedProgramme& programme);
    ~PlayedRecording();                                // ends a scan
    PlayedRecording(const PlayedRecording&) = delete;  // the thread knows us by address
    PlayedRecording& operator=(const PlayedRecording&) = delete;

    int fd() const { return mFd.get(); }
    const IndexedProgramme& programme() const { return mProgramme; }

    // First to last PCR; an estimate from these two while the scan goes on.
    int64_t durationMs(int waitMs);

    // Whether there is an index, or one is on its way.
    bool canSeek();

    // Where a decoder begins to show that position, or the picture before it: the last random
    // access point there is; while the scan has not come so far, about there. Nothing when there
    // is no stream.
    std::optional<uint64_t> offsetOf(int64_t positionMs, int waitMs);

private:
    void refresh();
    void scan(RecordingIndex index);
    void keep(const RecordingIndex& index) const;
    bool publish(const RecordingIndex& index);
    bool covers(int64_t positionMs) const;

    const UniqueFd mFd;
    const IndexedProgramme mProgramme;
    std::mutex mMutex;  // all below
    std::condition_variable mScanned;
    RecordingIndex mIndex;
    bool mScanning = false;
    bool mEnding = false;
    std::thread mThread;
};

// The path of an open file, wherever it was moved meanwhile. Empty when it has none.
std::string pathOf(int fd);

// From the first and the last PCR of a file; where they contradict its size, from that and its
// rate. 0 when nothing can be told.
int64_t estimateDurationMs(int fd, const IndexedProgramme& programme);

}  // namespace orvhost
