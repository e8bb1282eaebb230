#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dtv/Services.h"
#include "dtv/TsPacket.h"

namespace orvhost {

// Where playing of a recording can begin, and when that is.
//
// Two times in 27 MHz ticks, both counted from the first PCR of the recording on and continuous:
// wraps of 33 bits are taken out, a jump of the time base is bridged at the rate before it.
struct RandomAccessPoint {
    uint64_t offset = 0;   // of the packet it begins with, in bytes from the start of the file
    int64_t time27M = 0;   // when its picture is shown (without video, sent); ascending
    int64_t clock27M = 0;  // the programme's clock at its last PCR before this point ...
    int64_t pcr27M = -1;   // ... and that PCR as it was sent
    bool operator==(const RandomAccessPoint&) const = default;
};

// The programme of a recording that is played. Its PCR, else its time stamps, tell the time.
struct IndexedProgramme {
    uint16_t serviceId = 0;  // 0: unknown
    uint16_t pcrPid = PID_NONE;
    uint16_t videoPid = PID_NONE;  // PID_NONE: sound alone, two points a second
    uint8_t videoType = 0;         // stream_type
    bool operator==(const IndexedProgramme&) const = default;
};

// The index of one recording. A plain value; not thread-safe.
class RecordingIndex {
public:
    IndexedProgramme programme;
    uint32_t packetBytes = TS_PACKET_BYTES;  // 188, 192 or 204, from packet to packet
    uint64_t scannedBytes = 0;               // of the file, from its start on
    int64_t duration27M = 0;                 // first to last PCR in them
    std::vector<RandomAccessPoint> points;   // ascending in offset and time27M

    // Elapsed time counts from the first picture that can be shown.
    int64_t positionMsOf(const RandomAccessPoint& point) const;
    int64_t durationMs() const { return duration27M / (PCR_HZ / 1000); }

    // The last point at or before this position; the first one for positions before it. Null
    // without points.
    const RandomAccessPoint* pointBefore(int64_t positionMs) const;
};

// NAME.ts, or any other name: NAME.index beside it.
std::string indexPathOf(const std::string& recordingPath);

// Makes the index of a recording while that is written: NAME.index grows with it. After a crash the
// file tells of all but the last seconds, and the reader goes on from there. One thread at a time.
class RecordingIndexWriter {
public:
    // Creates the file, or empties it. Null when it cannot, with errno set.
    static std::unique_ptr<RecordingIndexWriter> create(const std::string& indexPath,
                                                        const IndexedProgramme& programme);
    virtual ~RecordingIndexWriter() = default;

    // Takes the next `count` packets of 188 bytes that are written to the recording, all of them
    // and in order. Points that are found reach the file once a second of the recording. False when
    // the file cannot be written, from then on always; the recording plays without it, too.
    virtual bool add(const uint8_t* packets, size_t count) = 0;

    // No more will come: the file tells how long the recording is and that it is whole. Without
    // this call it counts as one that was cut off. The recording, read by its descriptor, may have
    // changed at its edges meanwhile.
    virtual bool finish(int recordingFd) = 0;

    // Of what was added so far, in milliseconds.
    virtual int64_t durationMs() const = 0;
};

// Reads NAME.index of a recording. Nothing when there is none, when it is damaged, belongs to
// another file or to another programme (PIDs that are not PID_NONE in `programme` must agree). What
// it has scanned may end before the file does: extendIndex() goes on from there. `recordingFd` is
// read with pread and stays where it is.
std::optional<RecordingIndex> readIndex(const std::string& indexPath, int recordingFd,
                                        const IndexedProgramme& programme);

// Called now and then with the bytes scanned so far and the size of the file; false gives up.
using IndexProgress = std::function<bool(uint64_t scannedBytes, uint64_t totalBytes)>;

// Scans a recording from index.scannedBytes to its present end and adds what it finds. False when
// the file cannot be read, has no transport stream in it, or `progress` gave up; what was found
// till then is there.
bool extendIndex(int recordingFd, RecordingIndex* index, const IndexProgress& progress);

// The service with that id, else the first one with video, else the first with a clock. All PIDs
// are PID_NONE when there is none.
IndexedProgramme programmeOf(const std::vector<Service>& services, uint16_t serviceId);

// What the tables at the head of a file say.
std::vector<Service> findServices(int recordingFd);
IndexedProgramme findProgramme(int recordingFd, uint16_t serviceId);

// Writes an index that was made by scanning, in one step: the file is the old one or the new one.
// Leaves errno on failure.
bool saveIndex(const std::string& indexPath, const RecordingIndex& index, int recordingFd);

// All of that for one recording: reads NAME.index, scans what it does not cover (the whole file
// when there is none), and writes it again when `save` and anything was missing.
std::optional<RecordingIndex> loadOrRebuildIndex(const std::string& recordingPath, bool save,
                                                 const IndexProgress& progress);

}  // namespace orvhost
