#include "EndStill.h"

#include <chrono>
#include <cstdio>

#include "StillWriter.h"

namespace orvplay {

namespace {

constexpr std::chrono::seconds STILL_WAIT{2};
constexpr std::chrono::milliseconds AT_ONCE{0};

}  // namespace

void EndStill::subscribe(orvclient::Callbacks* callbacks) {
    if (!mPath.empty()) {
        callbacks->onStill = [this](const orvclient::StillView& still) { mTray.put(still); };
    }
}

void EndStill::keepLatest(orvclient::Player& player) {
    if (!mPath.empty()) {
        player.requestStills(1, AT_ONCE);
    }
}

void EndStill::take(orvclient::Player* player) {
    if (mPath.empty()) {
        return;
    }
    mTaken = mTray.take(&mStill, AT_ONCE);
    if (!mTaken && player != nullptr && player->requestStills(1, AT_ONCE).ok()) {
        mTaken = mTray.take(&mStill, STILL_WAIT);
    }
}

void EndStill::take(const PictureOutput& pictures) {
    mTaken = !mPath.empty() && pictures.takeStill(&mStill);
}

bool EndStill::save(const StillLabels& labels, EventLog& events) {
    if (mPath.empty()) {
        return true;
    }
    std::string error = "there was no picture";
    const std::string path = mTaken ? writeStill(mStill, labels, mPath, &error) : std::string();
    if (path.empty()) {
        fprintf(stderr, "orvplay: no still in %s: %s\n", mPath.c_str(), error.c_str());
        return false;
    }
    events.write("snapshot", {{"path", path}});
    if (!events.enabled()) {
        printf("Still:    %s\n", path.c_str());
    }
    return true;
}

}  // namespace orvplay
