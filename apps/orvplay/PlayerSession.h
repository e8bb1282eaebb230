#pragma once

#include <orvclient/Player.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Options.h"
#include "PlaySource.h"
#include "ServiceErrors.h"
#include "ServiceFigures.h"
#include "StreamSelection.h"

namespace orvplay {

// The player service as this program uses it: in a process of its own, started for this session, or
// one that runs already. What becomes of it is known from here, and what it counted.
//
//   PlayerSession session(options, callbacks);
//   if (session.connect(&error)) {
//       session.tuner().tune(...);
//       session.open(selection, &queue, true);  session.start();
//       while (!session.isLost()) { session.look(); ... }
//   }
//
// Calls come from one thread. Callbacks come on a thread of the client library, one at a time, and
// must neither wait nor call the session; none comes once it is destroyed.
class PlayerSession {
public:
    PlayerSession(ServiceOptions options, orvclient::Callbacks callbacks);
    PlayerSession(const PlayerSession&) = delete;  // the library calls it
    PlayerSession& operator=(const PlayerSession&) = delete;

    // Starts the service, or finds it. False, and one line in *error, when that fails; only the
    // destructor may be called then.
    bool connect(std::string* error);
    // The same without events: nothing can be played then, and whoever plays there is not
    // disturbed.
    bool connectAside(std::string* error);

    orvclient::Tuner& tuner() { return mPlayer->tuner(); }
    orvclient::Player& player() { return *mPlayer; }

    // Builds the player for these streams of the tuned source, or for a media file; its pictures go
    // to the queue.
    orvclient::Status open(const PlaySource& source, const StreamSelection& selection,
                           orvclient::PictureQueue* queue, bool audio);
    // What is counted counts from the first one, unless the service was replaced.
    orvclient::Status start();

    // The service ended by itself.
    bool isLost() const { return mLost; }
    // That, for people, with what to do; `reason` is what a command said of it.
    std::string lostMessage(const std::string& reason = {}) const;
    // It was the media player that could not go on. A service on a bus does not say.
    bool hasMediaFailed() const;
    // That it is lost while it played this media file.
    std::string mediaMessage(const std::string& path) const;
    // Goes on with another service, where that was asked for: the source is to be tuned and opened
    // again. False when it was not.
    bool replaceLost();

    // Asks the service for what follows: at most twice a second, ten times once the source has
    // ended, unless it is urgent. False when nothing new is known.
    bool look(bool urgent = false);
    const orvclient::PlaybackFigures& figures() const { return mFigures.totals(); }
    // The source has nothing more, while the player may still hold pictures of it.
    bool sourceEnded() const { return mSourceEnded; }

private:
    bool connect(bool forEvents, std::string* error);
    void onLost(const std::string& reason);

    const ServiceOptions mOptions;
    orvclient::Callbacks mCallbacks;
    ServiceErrors mErrors;
    ServiceFigures mFigures;
    bool mStarted = false;
    bool mSourceEnded = false;
    int64_t mLastLookNs = 0;
    std::atomic<bool> mLost{false};
    mutable std::mutex mLock;  // the reason
    std::string mLostReason;
    std::unique_ptr<orvclient::Player> mPlayer;  // last: its end is the end of the callbacks
};

}  // namespace orvplay
