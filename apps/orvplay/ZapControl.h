#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ChannelLineup.h"
#include "ControlSocket.h"
#include "PlayParts.h"
#include "ScreenState.h"
#include "ZapTimes.h"

namespace orvplay {

// Changes channels while it plays, and measures that.
//
//   request -> what plays is left -> the target is tuned, opened, started -> first picture
//              `- in between, requests change the target: of several the last one counts
//
// A target that cannot be played is told in one line, and the next request goes on from it. A
// request overtakes a change that still waits for its picture. Each change that came to its
// picture, or waited for it in vain, is kept (see ZapHistory). One thread.
//
//   request of another command                answer, with the first picture
//   {"command":"channel.next"}                "channel", "number", "service", and where the time
//   {"command":"channel.previous"}            went (see ZapTimes.h); only "channel" to "service"
//   {"command":"channel.last"}                where that channel plays already
//   {"command":"channel.set","channel":...}
class ZapControl {
public:
    // Why a channel does not play, with what the command that asked should exit with.
    struct Failure {
        int code = 0;
        std::string message;
    };
    // What a change does to the run of playback.
    struct Steps {
        std::function<void()> leave;
        // Tells when the source was tuned and the streams were known.
        std::function<Failure(const Channel& channel, ZapTimes* times)> enter;
        // What there is to choose from, and the row that plays.
        std::function<void(std::vector<ChannelRow> rows, int playing)> show;
    };

    // All of it outlives this.
    ZapControl(const PlayParts& parts, ControlServer& server, Steps steps)
        : mParts(parts), mServer(server), mSteps(std::move(steps)) {}
    ZapControl(const ZapControl&) = delete;  // answers are on their way
    ZapControl& operator=(const ZapControl&) = delete;

    // A service of this source plays, the first of the run. Without: nothing can be zapped to.
    void begin(const std::string& source, uint16_t serviceId);

    // The channel so many after this one; the one before this one; a row of the lineup. REFUSED
    // where there is none.
    orvclient::Status step(int by);
    orvclient::Status goBack();
    orvclient::Status choose(int row);
    // False when the request is none of those above.
    bool serve(int connection, const nlohmann::json& request);

    // To be called now and then with what came out: goes on with a change.
    void look(const PictureOutput::Figures& figures);
    // What plays was left and nothing was begun: requests that are at hand still count.
    bool isBetween() const { return mHasLeft; }

    // The channel turned out not to be playable; false when none was changed to, so that the
    // failure is the run's.
    bool takeFailure(const Failure& failure);

    const ChannelLineup& lineup() const { return mLineup; }

private:
    int base() const { return mTarget != ChannelLineup::NONE ? mTarget : mLineup.current(); }
    orvclient::Status aim(int row);
    void enter();
    void awaitPicture(const PictureOutput::Figures& figures);
    void finish(int64_t pictureNs);
    void fail(const Failure& failure);
    void showLineup();
    void remember(const Channel& channel);
    void tell(const std::string& line);
    void answer(const nlohmann::json& answer);
    const Channel& present() const { return mLineup.entries()[size_t(mLineup.current())]; }

    const PlayParts mParts;
    ControlServer& mServer;
    const Steps mSteps;
    ChannelLineup mLineup;

    int mTarget = ChannelLineup::NONE;  // to be changed to
    int64_t mAskedNs = 0;               // when that was asked for
    bool mHasLeft = false;
    bool mHasChanged = false;  // once, at least
    bool mPlays = true;        // or is to come: the present channel was started
    bool mAwaitsPicture = false;
    int64_t mStartedNs = 0;
    ZapTimes mTimes;
    std::vector<int> mAskers;  // connections that wait for their answer
};

}  // namespace orvplay
