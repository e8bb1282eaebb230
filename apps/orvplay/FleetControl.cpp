#include "FleetControl.h"

#include <unistd.h>

#include <utility>

#include "StatusText.h"

namespace orvplay {

bool FleetControl::serve(int connection, const Json& request) {
    const auto command = request.find("command");
    if (command == request.end()) {
        return false;
    }
    if (*command == "status") {
        mServer.answer(connection, {{"ok", true}, {"status", status()}});
    } else if (*command == "stats") {
        mParts.askService();
        mServer.answer(connection, {{"ok", true}, {"stats", mFigures.toJson(mScreen.isPaused)}});
    } else if (*command == "events") {
        mFollowers.add(connection);
    } else {
        return false;
    }
    return true;
}

void FleetControl::look() {
    mFollowers.look();
    if (mScreen.name.empty() || mScreen.kind != SourceKind::LIVE) {
        return;  // the tables are still to come
    }
    std::string plays = std::to_string(mScreen.serviceId) + " " + mScreen.name;
    if (plays != mPlayed) {
        if (!mPlayed.empty()) {
            mFigures.countChannelChange();
        }
        mPlayed = std::move(plays);
    }
}

FleetControl::Json FleetControl::status() const {
    Json status = toJson(mScreen);
    status["pid"] = getpid();
    status["picturesShown"] = mParts.pictures.figures().frames;
    status["picturesDropped"] = mParts.summary.dropped(mParts.session.figures());
    return status;
}

void FleetControl::finish() {
    constexpr int64_t PATIENCE_NS = 500'000'000;
    mFollowers.finish(PATIENCE_NS);
}

}  // namespace orvplay
