#include "StatusText.h"

#include <cmath>
#include <cstdio>

#include "HumanText.h"

namespace orvplay {

namespace {

using Json = nlohmann::json;

const char* kindName(SourceKind kind) {
    switch (kind) {
        case SourceKind::LIVE:
            return "live";
        case SourceKind::RECORDING:
            return "recording";
        case SourceKind::MEDIA:
            break;
    }
    return "media";
}

Json toJson(const Programme& programme) {
    Json json = {{"title", programme.title}};
    if (!programme.text.empty()) {
        json["text"] = programme.text;
    }
    if (programme.startUtcS >= 0) {
        json["start"] = programme.startUtcS;
    }
    if (programme.endUtcS >= 0) {
        json["end"] = programme.endUtcS;
    }
    return json;
}

std::string textAt(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_string() ? found->get<std::string>() : "";
}

int64_t numberAt(const Json& json, const char* key, int64_t otherwise = 0) {
    const auto found = json.find(key);
    return found != json.end() && found->is_number() ? found->get<int64_t>() : otherwise;
}

bool isSet(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_boolean() && found->get<bool>();
}

std::string line(const char* what, const std::string& text) {
    char label[16];
    snprintf(label, sizeof label, "%-11s", what);
    return text.empty() ? "" : label + text + "\n";
}

// "20:30", as the broadcast's country has it.
std::string clockText(int64_t utcS, int64_t offsetMinutes) {
    constexpr int64_t DAY_MINUTES = 24 * 60;
    const int64_t minutes = ((utcS / 60 + offsetMinutes) % DAY_MINUTES + DAY_MINUTES) % DAY_MINUTES;
    char text[16];
    snprintf(text, sizeof text, "%02d:%02d", static_cast<int>(minutes / 60),
             static_cast<int>(minutes % 60));
    return text;
}

std::string programmeText(const Json& status, const char* key) {
    const auto programme = status.find(key);
    if (programme == status.end() || !programme->is_object()) {
        return "";
    }
    const int64_t offset = numberAt(status, "localOffsetMinutes");
    const int64_t startS = numberAt(*programme, "start", -1);
    const int64_t endS = numberAt(*programme, "end", -1);
    std::string text = startS >= 0 ? clockText(startS, offset) : "";
    text += startS >= 0 && endS >= 0 ? "-" + clockText(endS, offset) : "";
    return text + (text.empty() ? "" : "  ") + textAt(*programme, "title");
}

std::string positionText(const Json& status) {
    const int64_t durationMs = numberAt(status, "durationMs");
    return timeText(numberAt(status, "positionMs")) +
           (durationMs > 0 ? " of " + timeText(durationMs) : "") +
           (isSet(status, "paused") ? ", paused" : "");
}

std::string pictureText(const Json& status) {
    if (numberAt(status, "width") <= 0) {
        return "";
    }
    char skew[48] = "";
    if (const auto ms = status.find("skewMs"); ms != status.end() && ms->is_number()) {
        snprintf(skew, sizeof skew, ", skew %+.0f ms", ms->get<double>());
    }
    return std::to_string(numberAt(status, "width")) + "x" +
           std::to_string(numberAt(status, "height")) +
           (isSet(status, "interlaced") ? "i, " : "p, ") +
           std::to_string(numberAt(status, "picturesShown")) + " shown, " +
           std::to_string(numberAt(status, "picturesDropped")) + " dropped" + skew;
}

std::string signalText(const Json& status) {
    const auto reception = status.find("reception");
    if (reception == status.end() || !reception->is_object()) {
        return textAt(status, "signal");
    }
    return textAt(status, "signal") + ", " + std::to_string(numberAt(*reception, "packets")) +
           " packets, " + std::to_string(numberAt(*reception, "continuityErrors")) + " breaks";
}

}  // namespace

Json toJson(const ScreenState& state) {
    Json json = {{"kind", kindName(state.kind)}, {"name", state.name}};
    if (!state.channelNumber.empty()) {
        json["channel"] = state.channelNumber;
    }
    if (state.serviceId != 0) {
        json["service"] = state.serviceId;
    }
    if (state.now.has_value()) {
        json["now"] = toJson(*state.now);
    }
    if (state.next.has_value()) {
        json["next"] = toJson(*state.next);
    }
    if (state.clockUtcS >= 0) {
        json["clock"] = state.clockUtcS;
    }
    json["localOffsetMinutes"] = state.localOffsetMinutes;
    json["signal"] = state.signalText.empty() ? "good" : state.signalText;
    if (state.reception.tuned) {
        json["reception"] = {{"packets", state.reception.packets},
                             {"continuityErrors", state.reception.continuityErrors}};
    }
    if (state.recordingNumber != 0) {
        json["recording"] = {{"number", state.recordingNumber}, {"lengthMs", state.recordingMs}};
    }
    json["volume"] = state.volumePercent;
    json["muted"] = state.isMuted;
    json["paused"] = state.isPaused;
    json["positionMs"] = state.positionMs;
    if (state.durationMs > 0) {
        json["durationMs"] = state.durationMs;
    }
    if (state.width > 0) {
        json["width"] = state.width;
        json["height"] = state.height;
        json["interlaced"] = state.isInterlaced;
    }
    if (state.picturesPerSecond > 0) {
        json["picturesPerSecond"] = state.picturesPerSecond;
    }
    if (state.skewMs.has_value()) {
        json["skewMs"] = std::round(*state.skewMs * 10) / 10;
    }
    return json;
}

std::string statusText(const Json& status) {
    const std::string channel = textAt(status, "channel");
    const int64_t service = numberAt(status, "service");
    const auto recording = status.find("recording");
    std::string text =
        line("Plays", (channel.empty() ? "" : channel + " ") + textAt(status, "name") +
                          (service != 0 ? " (service " + std::to_string(service) + ")" : "")) +
        line("Now", programmeText(status, "now")) + line("Next", programmeText(status, "next")) +
        line("Signal", textAt(status, "kind") == "live" ? signalText(status) : "") +
        line("Position", positionText(status)) + line("Picture", pictureText(status));
    if (recording != status.end() && recording->is_object()) {
        text += line("Recording", std::to_string(numberAt(*recording, "number")) + ", " +
                                      timeText(numberAt(*recording, "lengthMs")));
    }
    return text + line("Volume", std::to_string(numberAt(status, "volume", 100)) + " %" +
                                     (isSet(status, "muted") ? ", muted" : ""));
}

}  // namespace orvplay
