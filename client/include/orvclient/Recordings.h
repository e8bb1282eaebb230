#pragma once

#include <orvclient/Export.h>
#include <recording/RecordingDetails.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace orvclient {

// What a recording is called in lists; either name may be empty, and neither may hold ';' or '#'.
struct RecordingLabels {
    std::string channel;
    std::string programme;
    int storage = 0;  // which of the service's storages, by its number
};

// The recordings of the service's user; each has a number. Any thread. Calls wait for storage.
class ORVCLIENT_API Recordings {
public:
    // Bytes: how far it is, of how much. False cancels. On the thread that waits.
    using Progress = std::function<bool(int64_t done, int64_t total)>;

    virtual ~Recordings() = default;

    // All of them, by number.
    virtual orvhost::RecordingList list() = 0;
    virtual orvhost::RecordingResult find(int number, orvhost::RecordingDetails* details) = 0;
    // Where playback of it stopped, for the next time: RecordingDetails::positionMs.
    virtual orvhost::RecordingResult setPosition(int number,
                                                 std::chrono::milliseconds position) = 0;
    // With its files; not one that is being written.
    virtual orvhost::RecordingResult remove(int number) = 0;
    // Copies a transport stream file, which is opened here, among the recordings; one at a time.
    // Empty labels: as the stream says. `progress` may be empty.
    virtual orvhost::RecordingResult importFile(const std::string& path,
                                                const RecordingLabels& labels,
                                                const Progress& progress,
                                                orvhost::RecordingDetails* imported) = 0;
};

}  // namespace orvclient
