#pragma once

#include <poll.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "MprisState.h"
#include "UserRequest.h"

namespace orvplay {

// This player on the user's desktop: media keys, panels and playerctl find it as
// org.mpris.MediaPlayer2.orvplay.instancePID on the session bus (MPRIS 2.2). It knows what it was
// told last, and hands on what is asked for.
//
//   mpris.open();
//   while (...) {
//       pollfd watched = mpris.watched();
//       poll(&watched, 1, 100);
//       mpris.process();
//       for (const UserRequest& request : mpris.takeRequests()) { ... }
//       mpris.publish(state);
//   }
//
// Nothing here waits for the bus: without one, after it is gone, or when it takes nothing any more,
// all of this does nothing. Changes are told as they come, once a second at most. One thread.
class MprisPlayer {
public:
    MprisPlayer() = default;
    ~MprisPlayer();
    MprisPlayer(const MprisPlayer&) = delete;  // the bus knows it by address
    MprisPlayer& operator=(const MprisPlayer&) = delete;

    // Once. False when there is no bus.
    bool open();
    bool isOpen() const { return mBus != nullptr; }

    // What to wait for: without a bus a descriptor of -1, which poll() passes over.
    pollfd watched() const;
    // Serves what came, a bounded part of it, and tells changes that are due: to be called a few
    // times a second whatever came.
    void process();

    // What holds from here on.
    void publish(const MprisState& state);

    // In the order in which they were made.
    std::vector<UserRequest> takeRequests();

    // Changes that the desktop was told of.
    uint64_t signalsSent() const { return mSignalsSent; }

private:
    friend struct MprisTables;

    // Changes to tell, as bits.
    enum Change : uint32_t {
        STATUS = 1,
        METADATA = 2,
        VOLUME = 4,
        CAN_SEEK = 8,
        CAN_ZAP = 16,
    };

    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };

    void close();
    void tellChanges(int64_t nowNs);
    void ask(Request what, int64_t value = 0);
    std::string trackPath() const;

    std::unique_ptr<sd_bus, CloseBus> mBus;
    MprisState mState;
    uint32_t mChanges = 0;
    uint64_t mTrack = 1;  // counts what plays
    int64_t mToldNs = 0;
    uint64_t mSignalsSent = 0;
    std::vector<UserRequest> mRequests;
};

}  // namespace orvplay
