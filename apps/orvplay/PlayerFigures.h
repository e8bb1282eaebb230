#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "PictureOutput.h"
#include "PlaySource.h"
#include "PlayerSession.h"
#include "RunSummary.h"
#include "ServiceState.h"
#include "StreamSelection.h"
#include "SyncMeter.h"

namespace orvplay {

// The figures of a run of playback as it stands, under the keys of FigureTable.h.
class PlayerFigures {
public:
    // What it looks at; all of it outlives it.
    struct Sources {
        PlayerSession& session;
        const PictureOutput& pictures;
        const RunSummary& summary;
        const SyncMeter& sync;
        const ServiceState& service;
        const PlaySource& source;
        const StreamSelection& selection;
        const EventLog& events;
    };

    explicit PlayerFigures(const Sources& sources) : mSources(sources) {}

    // Another channel plays; another service took over from one that ended.
    void countChannelChange() { ++mChannelChanges; }
    void countServiceRestart() { ++mServiceRestarts; }

    // Asks the service. What does not exist, or cannot be known, is left out.
    nlohmann::json toJson(bool isPaused) const;

private:
    using Json = nlohmann::json;

    void addPlayback(Json& figures) const;
    void addTimes(Json& figures) const;
    void addReception(Json& figures) const;
    void addUsage(Json& figures) const;

    const Sources mSources;
    uint64_t mChannelChanges = 0;
    uint64_t mServiceRestarts = 0;
};

}  // namespace orvplay
