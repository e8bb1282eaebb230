#pragma once

#include <orvclient/Recordings.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Session.h"

namespace orvclient {

// The recordings of whichever service there is at the time of a call.
class ClientRecordings : public Recordings {
public:
    // `session` answers null, and one line, when there is none.
    using FindSession = std::function<std::shared_ptr<Session>(std::string* error)>;

    // Calls answer ServiceLost when they last longer than `patience`; an import goes on as long as
    // the service lives.
    ClientRecordings(FindSession session, std::chrono::milliseconds patience)
        : mSession(std::move(session)), mPatience(patience) {}

    orvhost::RecordingList list() override;
    orvhost::RecordingResult find(int number, orvhost::RecordingDetails* details) override;
    orvhost::RecordingResult setPosition(int number, std::chrono::milliseconds position) override;
    orvhost::RecordingResult remove(int number) override;
    orvhost::RecordingResult importFile(const std::string& path, const RecordingLabels& labels,
                                        const Progress& progress,
                                        orvhost::RecordingDetails* imported) override;

    // Its file for reading, which the caller closes; -1 on failure.
    orvhost::RecordingResult open(int number, orvhost::RecordingDetails* details, int* fd);

private:
    class Import;

    const FindSession mSession;
    const std::chrono::milliseconds mPatience;
};

}  // namespace orvclient
