#include "PlayControl.h"

#include "ExitCode.h"
#include "HumanText.h"
#include "RecordingText.h"

using orvclient::Status;

namespace orvplay {

namespace {

// As the players that people know have it.
constexpr int64_t STEP_MS = 5'000;
constexpr int64_t FAR_STEP_MS = 60'000;

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
                         StreamSelection& selection, RecordingControl& recording, int storage)
    : mParts(parts),
      mSource(source),
      mSelection(selection),
      mRecording(recording),
      mStorage(storage),
      mStreams(parts, selection),
      mTransport(parts, source) {}

Status PlayControl::lookAtKeys() {
    using Request = Display::Request;
    const auto times = [this](Request request) { return mParts.pictures.takeRequests(request); };
    for (int left = times(Request::NEXT_AUDIO); left > 0; --left) {
        if (const Status status = mStreams.nextSound(); !status.ok()) {
            return status;
        }
    }
    for (int left = times(Request::NEXT_CAPTIONS); left > 0; --left) {
        mStreams.nextCaptions();
    }
    if (times(Request::PAUSE) % 2 != 0) {
        tellFailure(mTransport.togglePause());
    }
    const int64_t steps = times(Request::FORWARD) - times(Request::BACK);
    const int64_t farSteps = times(Request::FAR_FORWARD) - times(Request::FAR_BACK);
    if (steps != 0 || farSteps != 0) {
        tellFailure(mTransport.seekBy(steps * STEP_MS + farSteps * FAR_STEP_MS));
    }
    if (times(Request::RECORD) % 2 != 0) {
        toggleRecording();
    }
    return {};
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

void PlayControl::toggleRecording() {
    tellFailure(mParts.session.player().isRecording() ? stopRecording(true)
                                                      : startRecording("", mStorage));
}

void PlayControl::tellFailure(const Status& status) {
    if (!status.ok()) {
        tell(status.message);
    }
}

void PlayControl::tell(const std::string& line) {
    mParts.messages.say(line);
    mParts.pictures.showStatus(line, mTransport.isPaused());
}

}  // namespace orvplay
