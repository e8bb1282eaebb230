#include "PlayControl.h"

#include <utility>
#include <vector>

#include "ExitCode.h"
#include "HumanText.h"
#include "RecordingText.h"
#include "StillWriter.h"

using orvclient::Status;

namespace orvplay {

namespace {

// Held keys come faster than they can be followed: steps in a row are one, and what is switched
// twice in a row stays.
std::vector<UserRequest> merged(const std::vector<UserRequest>& requests) {
    std::vector<UserRequest> few;
    for (const UserRequest& request : requests) {
        const bool isAgain = !few.empty() && few.back().what == request.what;
        if (isAgain && (request.what == Request::SEEK || request.what == Request::VOLUME)) {
            few.back().value += request.value;
        } else if (isAgain && (request.what == Request::PAUSE || request.what == Request::RECORD ||
                               request.what == Request::MUTE)) {
            few.pop_back();
        } else {
            few.push_back(request);
        }
    }
    return few;
}

int64_t numberOr(const nlohmann::json& request, const char* key, int64_t otherwise) {
    const auto found = request.find(key);
    return found != request.end() && found->is_number_integer() ? found->get<int64_t>() : otherwise;
}

std::string textOf(const nlohmann::json& request, const char* key) {
    const auto found = request.find(key);
    return found != request.end() && found->is_string() ? found->get<std::string>() : "";
}

nlohmann::json failure(int code, const std::string& message) {
    return {{"ok", false}, {"code", code}, {"message", message}};
}

}  // namespace

PlayControl::PlayControl(const PlayParts& parts, const PlaySource& source,
                         StreamSelection& selection, RecordingControl& recording, ZapControl& zap,
                         int storage)
    : mParts(parts),
      mSource(source),
      mSelection(selection),
      mRecording(recording),
      mZap(zap),
      mStorage(storage),
      mStreams(parts, selection),
      mTransport(parts, source) {}

Status PlayControl::lookAtRequests() {
    for (const UserRequest& request : merged(mParts.pictures.takeRequests())) {
        act(request);
    }
    return std::exchange(mBroken, {});
}

Status PlayControl::act(const UserRequest& request) {
    orvclient::Player& player = mParts.session.player();
    switch (request.what) {
        case Request::NEXT_AUDIO:
            return nextSound();
        case Request::NEXT_CAPTIONS:
            mStreams.nextCaptions();
            return {};
        case Request::PAUSE:
            return toldFailure(mTransport.togglePause());
        case Request::SEEK:
            return toldFailure(mTransport.seekBy(request.value));
        case Request::SEEK_TO:
            return toldFailure(mTransport.seekTo(request.value));
        case Request::RECORD:
            return toldFailure(toggleRecording());
        case Request::STILL:
            return toldFailure(saveStill());
        case Request::VOLUME:
            return toldFailure(player.setVolume(player.volume() + static_cast<int>(request.value)));
        case Request::SET_VOLUME:
            return toldFailure(player.setVolume(static_cast<int>(request.value)));
        case Request::MUTE:
            return toldFailure(player.setMuted(!player.isMuted()));
        case Request::NEXT_CHANNEL:
            return toldFailure(mZap.step(1));
        case Request::PREVIOUS_CHANNEL:
            return toldFailure(mZap.step(-1));
        case Request::LAST_CHANNEL:
            return toldFailure(mZap.goBack());
        case Request::CHOOSE_CHANNEL:
            return toldFailure(mZap.choose(static_cast<int>(request.value)));
        case Request::BANNER:
            mParts.pictures.showBanner();
            return {};
        default:
            return {};
    }
}

PlayControl::Json PlayControl::serve(const Json& request) {
    const auto command = textOf(request, "command");
    Status status;
    if (command == "record.start") {
        const int64_t storage = numberOr(request, "storage", mStorage);
        status = startRecording(textOf(request, "name"), static_cast<int>(storage));
    } else if (command == "record.stop") {
        if (!mParts.session.player().isRecording()) {
            return failure(EXIT_NOT_FOUND,
                           "nothing is being recorded; begin with: "
                           "orvplay record start");
        }
        status = stopRecording(request.value("keep", Json(true)) != Json(false));
    } else if (command == "play.pause") {
        status = mTransport.togglePause();
    } else if (command == "play.seek") {
        status = mTransport.seekBy(numberOr(request, "by", 0));
    } else {
        return failure(EXIT_FAILED, "this player knows no \"" + command + "\"");
    }
    const bool isRecord = command.starts_with("record.");
    if (!status.ok()) {
        return failure(isRecord ? EXIT_RECORDING : EXIT_PLAYBACK, status.message);
    }
    return isRecord ? Json{{"ok", true}, {"number", mRecording.number()}} : Json{{"ok", true}};
}

Status PlayControl::startRecording(const std::string& name, int storage) {
    if (mSource.kind != SourceKind::LIVE) {
        return {Status::REFUSED, "what plays is no broadcast; only those are recorded"};
    }
    const Status status =
        mRecording.start(mParts.session.player(), {toLabel(mSelection.serviceName), name, storage});
    if (status.ok()) {
        tell("recording " + std::to_string(mRecording.number()) + " begins");
    }
    return status;
}

Status PlayControl::stopRecording(bool keep) {
    orvclient::Player& player = mParts.session.player();
    const Status status = player.stopRecording(keep);
    const std::string name = "recording " + std::to_string(mRecording.number());
    orvhost::RecordingDetails details;
    if (!status.ok()) {
        return status;
    }
    if (!keep) {
        tell(name + " is thrown away");
    } else if (player.recordings().find(mRecording.number(), &details).ok()) {
        mParts.events.writeLine(toJson(details));
        tell(name + " ends: " + timeText(details.durationMs) + ", " + sizeText(details.sizeBytes));
    } else {
        tell(name + " ends");
    }
    return {};
}

void PlayControl::enterChannel() {
    mTransport.enterChannel();
    mStreams.enterChannel();
}

Status PlayControl::nextSound() {
    const Status status = mStreams.nextSound();
    if (!status.ok()) {
        mBroken = status;
    }
    return status;
}

Status PlayControl::toggleRecording() {
    return mParts.session.player().isRecording() ? stopRecording(true)
                                                 : startRecording("", mStorage);
}

// Of what is on the screen, in the folder where the program was started.
Status PlayControl::saveStill() {
    Still still;
    if (!mParts.pictures.takeStill(&still)) {
        return {Status::REFUSED, "there is no picture yet"};
    }
    std::string error;
    const StillLabels labels{!mSource.title.empty() ? mSource.title : mSelection.serviceName,
                             mSelection.serviceId};
    const std::string path = writeStill(still, labels, ".", &error);
    if (path.empty()) {
        return {Status::REFUSED, "no still: " + error};
    }
    mParts.events.write("snapshot", {{"path", path}});
    tell("still: " + path);
    return {};
}

Status PlayControl::toldFailure(const Status& status) {
    if (!status.ok()) {
        tell(status.message);
    }
    return status;
}

void PlayControl::tell(const std::string& line) {
    mParts.messages.say(line);
    mParts.pictures.showStatus(line, mTransport.isPaused());
}

}  // namespace orvplay
