#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "ControlSocket.h"
#include "EventFollowers.h"
#include "PlayParts.h"
#include "PlayerFigures.h"
#include "ScreenState.h"

namespace orvplay {

// What other commands are told of the player that runs:
//
//   request                                answer, besides "ok"
//   {"command":"status"}                   "status": a ScreenState, with the process number and
//                                          pictures shown and dropped
//   {"command":"stats"}                    "stats": as PlayerFigures has it
//   {"command":"events"}                   -; the connection stays, for the lines of the event log
//
// One thread.
class FleetControl {
public:
    using Json = nlohmann::json;

    // All of it outlives it.
    FleetControl(ControlServer& server, const PlayParts& parts, PlayerFigures& figures,
                 const ScreenState& screen)
        : mServer(server),
          mParts(parts),
          mFigures(figures),
          mScreen(screen),
          mFollowers(server, parts.events.queue()) {}

    // False: that request is none of these.
    bool serve(int connection, const Json& request);
    // To be called often.
    void look();
    // The last event was written: those who follow get it, unless they are slow.
    void finish();

private:
    Json status() const;

    ControlServer& mServer;
    const PlayParts mParts;
    PlayerFigures& mFigures;
    const ScreenState& mScreen;
    EventFollowers mFollowers;
    std::string mPlayed;  // the channel, at the last look
};

}  // namespace orvplay
